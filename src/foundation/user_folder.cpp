#include "foundation/user_folder.h"

#include <glib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

namespace belvane::detail {

std::string userFolderPath() {
  // Read each time (not GLib's cached values) so the folder follows the
  // environment of the moment, as the player tool inherits it.
  const char* runtime = g_getenv("XDG_RUNTIME_DIR");
  if (runtime && *runtime) return std::string(runtime) + "/com.brambleside.ettd";
  const char* tmp = g_getenv("TMPDIR");
  return std::string(tmp && *tmp ? tmp : "/tmp") + "/com.brambleside.ettd-" + std::to_string(geteuid());
}

std::string prepareUserFolder(std::string* why) {
  std::string dir = userFolderPath();
  auto refuse = [&](std::string reason) {
    if (why) *why = std::move(reason);
    return std::string();
  };
  if (mkdir(dir.c_str(), 0700) != 0 && errno != EEXIST) return refuse(std::strerror(errno));
  struct stat st {};
  if (lstat(dir.c_str(), &st) != 0) return refuse(std::strerror(errno));
  if (S_ISLNK(st.st_mode)) return refuse("it is a symbolic link.");
  if (!S_ISDIR(st.st_mode)) return refuse("it is not a folder.");
  if (st.st_uid != geteuid()) return refuse("it belongs to another user.");
  if (st.st_mode & 077) return refuse("other users have access to it.");
  return dir;
}

}  // namespace belvane::detail
