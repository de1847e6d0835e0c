#include "foundation/user_folder.h"

#include <belvane/BVKitOwner.h>

#include <glib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <map>
#include <mutex>

#include "foundation/thread_annotations.h"

namespace belvane::detail {

namespace {

constexpr const char* kInheritedVariable = "BELVANE_USER_FOLDER";

std::string temporaryDirectory() {
  const char* tmp = g_getenv("TMPDIR");
  return tmp && *tmp ? tmp : "/tmp";
}

// The usual folder's path, from the environment of the moment (not GLib's
// cached values), as the player tool inherits it.
std::string usualPath() {
  const char* runtime = g_getenv("XDG_RUNTIME_DIR");
  if (runtime && *runtime) return std::string(runtime) + "/com.brambleside.ettd";
  return temporaryDirectory() + "/com.brambleside.ettd-" + std::to_string(geteuid());
}

// Private folders made in place of usual ones that could not be used,
// by the usual path; removed at exit when nothing is left in them.
struct Replacements {
  Mutex mutex;
  std::map<std::string, std::string> byUsualPath GUARDED_BY(mutex);
};

Replacements& replacements() {
  static auto* r = new Replacements;  // outlives every user, also at exit
  return *r;
}

void removeEmptyReplacements() {
  Replacements& r = replacements();
  MutexLock lock(r.mutex);
  for (auto& [usual, made] : r.byUsualPath) rmdir(made.c_str());
}

// Why dir cannot be ours (empty when it is): it must be a real folder owned
// by the effective user that nobody else can enter. Creates it when missing.
std::string problemWith(const std::string& dir) {
  if (mkdir(dir.c_str(), 0700) != 0 && errno != EEXIST) return std::strerror(errno);
  struct stat st {};
  if (lstat(dir.c_str(), &st) != 0) return std::strerror(errno);
  if (S_ISLNK(st.st_mode)) return "it is a symbolic link.";
  if (!S_ISDIR(st.st_mode)) return "it is not a folder.";
  if (st.st_uid != geteuid()) return "it belongs to another user.";
  if (st.st_mode & 077) return "other users have access to it.";
  return {};
}

}  // namespace

std::string userFolderPath() {
  const char* inherited = g_getenv(kInheritedVariable);
  if (inherited && *inherited) return inherited;
  std::string usual = usualPath();
  Replacements& r = replacements();
  MutexLock lock(r.mutex);
  auto made = r.byUsualPath.find(usual);
  return made == r.byUsualPath.end() ? usual : made->second;
}

std::string prepareUserFolder(std::string* why) {
  std::string dir = userFolderPath();
  std::string problem = problemWith(dir);
  if (problem.empty()) return dir;

  // mkdtemp makes the folder 0700 under a name nobody could have taken.
  std::string usual = usualPath();
  std::string name = temporaryDirectory() + "/com.brambleside.ettd-" + std::to_string(geteuid()) + "-XXXXXX";
  if (!mkdtemp(name.data())) {
    if (why) *why = problem + " No private folder could be made in its place either: " + std::strerror(errno);
    return {};
  }
  BVLog("The folder %s cannot be used: %s Using %s instead.", dir.c_str(), problem.c_str(), name.c_str());
  static std::once_flag cleanup;
  std::call_once(cleanup, [] { std::atexit(removeEmptyReplacements); });
  Replacements& r = replacements();
  MutexLock lock(r.mutex);
  auto [entry, added] = r.byUsualPath.emplace(usual, name);
  if (!added) {  // another thread made one first: use that one
    rmdir(name.c_str());
    return entry->second;
  }
  return name;
}

std::string userFolderEnvironmentEntry() { return std::string(kInheritedVariable) + "=" + userFolderPath(); }

}  // namespace belvane::detail
