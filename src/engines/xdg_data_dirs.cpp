// The XDG data folders, read afresh from the environment.
#include "engines/xdg_data_dirs.h"

#include <glib.h>

#include <cstdlib>

namespace belvane::detail {

std::vector<std::string> xdgDataDirectories() {
  std::vector<std::string> dirs;
  const char* home = std::getenv("XDG_DATA_HOME");
  if (home && *home) {
    dirs.emplace_back(home);
  } else {
    dirs.push_back(std::string(g_get_home_dir()) + "/.local/share");
  }
  const char* system = std::getenv("XDG_DATA_DIRS");
  std::string list = system && *system ? system : "/usr/local/share/:/usr/share/";
  gchar** parts = g_strsplit(list.c_str(), ":", -1);
  for (gchar** p = parts; *p; ++p) {
    if (**p) dirs.emplace_back(*p);
  }
  g_strfreev(parts);
  return dirs;
}

}  // namespace belvane::detail
