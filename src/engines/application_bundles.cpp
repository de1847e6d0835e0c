// Application bundles by identifier, volume information from the mount table
// and sysfs, and the copy of a bundle's folder.
#include "engines/application_bundles.h"

#include <belvane/BVPropertyList.h>
#include <belvane/BVResources.h>

#include "engines/xdg_data_dirs.h"
#include "foundation/text_encoding.h"

#include <algorithm>
#include <cctype>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <vector>

namespace fs = std::filesystem;

namespace belvane::detail {

std::optional<std::string> applicationBundlePathForIdentifier(const std::string& identifier) {
  const std::string wanted = asciiLower(identifier);
  std::vector<fs::path> folders;
  for (const std::string& dir : xdgDataDirectories()) folders.push_back(fs::path(dir) / "belvane" / "applications");
  // Last, the applications shipped with the framework itself (the build
  // tree's own, when it is not installed).
  folders.push_back(fs::path(BVResources::frameworkResourceDirectory()) / "applications");
  for (const fs::path& folder : folders) {
    std::error_code ec;
    if (!fs::is_directory(folder, ec)) continue;
    std::vector<fs::path> bundles;
    for (const auto& entry : fs::directory_iterator(folder, ec)) bundles.push_back(entry.path());
    std::sort(bundles.begin(), bundles.end());
    for (const fs::path& bundle : bundles) {
      auto info = BVPropertyList::readFile((bundle / "Info.plist").string());
      if (!info) continue;
      const std::string* id = (*info)["CFBundleIdentifier"].string();
      if (id && asciiLower(*id) == wanted) return bundle.string();
    }
  }
  return std::nullopt;
}

namespace {

// Mount-table fields escape space, tab, newline and backslash as \ooo.
std::string unescapeMountField(const std::string& s) {
  std::string out;
  for (size_t i = 0; i < s.size(); ++i) {
    if (s[i] == '\\' && i + 3 < s.size() && std::isdigit((unsigned char)s[i + 1]) &&
        std::isdigit((unsigned char)s[i + 2]) && std::isdigit((unsigned char)s[i + 3])) {
      out += char((s[i + 1] - '0') * 64 + (s[i + 2] - '0') * 8 + (s[i + 3] - '0'));
      i += 3;
    } else {
      out += s[i];
    }
  }
  return out;
}

bool isUnder(const std::string& path, const std::string& mountPoint) {
  if (mountPoint == "/") return true;
  return path == mountPoint || (path.size() > mountPoint.size() && path.compare(0, mountPoint.size(), mountPoint) == 0 &&
                                path[mountPoint.size()] == '/');
}

std::string readFirstLine(const fs::path& file) {
  std::ifstream in(file);
  std::string line;
  std::getline(in, line);
  return line;
}

// A block device is removable when sysfs says so for it or, for a
// partition, for its disk; a loop device carries a mounted image.
bool isRemovableBlockDevice(const std::string& majorMinor, const std::string& sysfsRoot) {
  if (majorMinor.rfind("7:", 0) == 0) return true;  // loop devices
  fs::path device = fs::path(sysfsRoot) / "dev" / "block" / majorMinor;
  std::error_code ec;
  if (fs::exists(device / "loop", ec)) return true;
  if (fs::exists(device / "removable", ec)) return readFirstLine(device / "removable") == "1";
  if (fs::exists(device / "partition", ec)) {
    fs::path disk = fs::canonical(device, ec).parent_path();
    if (!ec) return readFirstLine(disk / "removable") == "1";
  }
  return false;
}

}  // namespace

std::optional<VolumeInformation> volumeInformationForPath(const std::string& path, const std::string& mountInfoFile,
                                                          const std::string& sysfsRoot) {
  std::error_code ec;
  fs::path canonical = fs::weakly_canonical(fs::absolute(path, ec), ec);
  std::string target = ec ? path : canonical.string();

  std::ifstream in(mountInfoFile);
  if (!in) return std::nullopt;
  std::string line;
  std::string bestMountPoint;
  bool found = false;
  VolumeInformation best;
  while (std::getline(in, line)) {
    // id parent major:minor root mount-point options [optional...] - type source super-options
    std::istringstream fields(line);
    std::vector<std::string> f;
    for (std::string word; fields >> word;) f.push_back(word);
    auto dash = std::find(f.begin(), f.end(), "-");
    if (f.size() < 6 || dash == f.end() || f.end() - dash < 3) continue;
    std::string mountPoint = unescapeMountField(f[4]);
    if (!isUnder(target, mountPoint)) continue;
    // Later lines mount over earlier ones at the same point.
    if (found && mountPoint.size() < bestMountPoint.size()) continue;
    found = true;
    bestMountPoint = mountPoint;
    best = VolumeInformation{};
    std::string options = f[5];
    best.writable = options == "rw" || options.rfind("rw,", 0) == 0;
    best.unmountable = mountPoint != "/";
    best.type = dash[1];
    best.description = unescapeMountField(dash[2]);
    best.removable = isRemovableBlockDevice(f[2], sysfsRoot);
  }
  if (!found) return std::nullopt;
  return best;
}

void copyFolderUnlessPresent(const std::string& from, const std::string& to) {
  std::error_code ec;
  if (fs::exists(to, ec)) return;
  fs::copy(from, to, fs::copy_options::recursive, ec);
}

}  // namespace belvane::detail
