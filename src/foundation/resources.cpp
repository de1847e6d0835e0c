// Resource lookup relative to the loaded library, and the host's folder.
#include <belvane/BVPropertyList.h>
#include <belvane/BVResources.h>

#include <dlfcn.h>
#include <glib.h>

#include "foundation/thread_annotations.h"

namespace {

belvane::detail::Mutex gMutex;
std::optional<std::string> gMainBundle GUARDED_BY(gMutex);

bool isFile(const std::string& path) { return g_file_test(path.c_str(), G_FILE_TEST_IS_REGULAR); }

std::string libraryDirectory() {
  Dl_info info{};
  if (dladdr(reinterpret_cast<void*>(&BVResources::frameworkResourceDirectory), &info) && info.dli_fname) {
    gchar* dir = g_path_get_dirname(info.dli_fname);
    std::string out = dir;
    g_free(dir);
    return out;
  }
  return ".";
}

}  // namespace

namespace BVResources {

std::string frameworkResourceDirectory() {
  if (const char* env = g_getenv("BELVANE_RESOURCE_DIR"); env && *env) return env;
  static const std::string dir = [] {
    // <prefix>/lib[/<multiarch>]/libbelvane.so -> <prefix>/share/belvane; the
    // build tree mirrors that layout.
    std::string lib = libraryDirectory();
    for (const char* rel : {"/../share/belvane", "/../../share/belvane"}) {
      std::string candidate = lib + rel;
      if (g_file_test(candidate.c_str(), G_FILE_TEST_IS_DIR)) {
        gchar* canonical = g_canonicalize_filename(candidate.c_str(), nullptr);
        std::string out = canonical;
        g_free(canonical);
        return out;
      }
    }
    return lib + "/../share/belvane";
  }();
  return dir;
}

std::optional<std::string> frameworkPathForResource(const std::string& name, const std::string& type) {
  std::string path = frameworkResourceDirectory() + "/" + name + (type.empty() ? "" : "." + type);
  if (isFile(path)) return path;
  return std::nullopt;
}

void setMainBundleDirectory(const std::string& directory) {
  belvane::detail::MutexLock lock(gMutex);
  if (directory.empty())
    gMainBundle.reset();
  else
    gMainBundle = directory;
}

std::optional<std::string> mainBundleDirectory() {
  belvane::detail::MutexLock lock(gMutex);
  return gMainBundle;
}

std::optional<std::string> mainBundlePathForResource(const std::string& name, const std::string& type) {
  auto dir = mainBundleDirectory();
  if (!dir) return std::nullopt;
  std::string path = *dir + "/" + name + (type.empty() ? "" : "." + type);
  if (isFile(path)) return path;
  return std::nullopt;
}

std::string localizedString(const std::string& key) {
  auto path = mainBundlePathForResource("Localizable.strings", "plist");
  if (!path) return key;
  auto table = BVPropertyList::readFile(*path);
  if (!table) return key;
  if (auto text = (*table)[key].string(); text && !text->empty()) return *text;
  return key;
}

}  // namespace BVResources
