// Application bundles and the volumes they lie on, as the RealMedia engine
// needs them to find and load a Helix client kit.
//
// An application bundle is a folder holding an "Info.plist" whose
// "CFBundleIdentifier" names it; bundles are looked for in
// "belvane/applications/" under each XDG data folder, in lookup order.
#pragma once

#include <optional>
#include <string>

namespace belvane::detail {

// The first bundle with that identifier (compared ignoring ASCII case), or nothing.
std::optional<std::string> applicationBundlePathForIdentifier(const std::string& identifier);

// What the file system says about the volume holding a path.
struct VolumeInformation {
  bool removable = false;    // a removable block device, or a mounted image (loop device)
  bool writable = false;     // mounted read-write
  bool unmountable = false;  // anything but the root file system
  std::string description;   // the mount source ("/dev/sdb1")
  std::string type;          // the file-system type ("vfat")
};

// Reads the mount table (mountinfo format) and the sysfs block-device tree;
// the defaults are the running system's.
std::optional<VolumeInformation> volumeInformationForPath(const std::string& path,
                                                          const std::string& mountInfoFile = "/proc/self/mountinfo",
                                                          const std::string& sysfsRoot = "/sys");

// Copies the folder from to the path to, recursively, unless something is
// already at to (an earlier copy is used as it stands). Failures are ignored.
void copyFolderUnlessPresent(const std::string& from, const std::string& to);

}  // namespace belvane::detail
