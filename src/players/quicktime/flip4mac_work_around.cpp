// BVQuickTimePlayer: the Windows Media component's looping fault. Older
// components loop on ASX and MMS links, so such links are played from a
// small reference movie (made from the "asx_template" resource) that names
// the stream instead. The component's version is read from its Info.plist
// under "QuickTime/Flip4Mac WMV Advanced.component" in each XDG data folder.
#include <belvane/BVKitOwner.h>
#include <belvane/BVMediaLink.h>
#include <belvane/BVPropertyList.h>
#include <belvane/BVQuickTimePlayer.h>
#include <belvane/BVResources.h>

#include "engines/xdg_data_dirs.h"
#include "foundation/text_encoding.h"
#include "movie/reference_movie.h"

#include <glib.h>

#include <cstdlib>
#include <fstream>
#include <iterator>

using belvane::detail::asciiLower;

namespace {

// Process-wide: whether a negative answer was cached, and the answer.
bool gFlip4MacVersionChecked = false;
bool gFlip4MacVersionIsFixed = false;

constexpr const char* kComponentPath = "QuickTime/Flip4Mac WMV Advanced.component";

std::optional<std::string> componentVersion(const std::string& dataDirectory) {
  auto plist = BVPropertyList::readFile(dataDirectory + "/" + kComponentPath + "/Info.plist");
  if (!plist || !plist->isDictionary()) return std::nullopt;
  const std::string* version = BVDictionaryString(*plist->dictionary(), "CFBundleVersion");
  if (!version) return std::nullopt;
  return *version;
}

// The leading integer of a version part, 0 when there is none.
int versionPart(const std::string& part) { return int(std::strtol(part.c_str(), nullptr, 10)); }

}  // namespace

bool BVQuickTimePlayer::flip4MacVersionHasFixedLoopingBug() {
  if (gFlip4MacVersionChecked) return gFlip4MacVersionIsFixed;
  for (const auto& directory : belvane::detail::xdgDataDirectories()) {
    auto version = componentVersion(directory);
    if (!version) continue;
    gchar** parts = g_strsplit(version->c_str(), ".", -1);
    guint count = g_strv_length(parts);
    int major = count > 2 ? versionPart(parts[0]) : 0;
    int minor = count > 2 ? versionPart(parts[1]) : 0;
    g_strfreev(parts);
    // Only full versions (2.2.0, not 2.2) count.
    if (count <= 2) continue;
    if ((major == 2 && minor > 1) || major > 2) {
      // A fixed component is looked for again next time; only "not fixed"
      // is remembered.
      gFlip4MacVersionIsFixed = true;
      return true;
    }
  }
  gFlip4MacVersionChecked = true;
  return gFlip4MacVersionIsFixed;
}

void BVQuickTimePlayer::resetFlip4MacVersionCheck() {
  gFlip4MacVersionChecked = false;
  gFlip4MacVersionIsFixed = false;
}

std::shared_ptr<BVMediaLink> BVQuickTimePlayer::makeLinkSafeFromASXBug(const std::shared_ptr<BVMediaLink>& link) {
  if (flip4MacVersionHasFixedLoopingBug()) return link;
  BVURL url = link->url();
  std::string extension = asciiLower(url.pathExtension());
  if (extension == "asx" || extension == "wax" || extension == "wsx" || asciiLower(url.scheme()) == "mms") {
    BVLog("Fixing ASX / MMS QT Bug for link: %s", url.absoluteString().c_str());
    auto copy = BVURL::URLWithString(url.absoluteString());
    if (auto safe = copy ? mediaLinkForMMSURL(*copy) : nullptr) return safe;
  }
  return link;
}

std::shared_ptr<BVMediaLink> BVQuickTimePlayer::mediaLinkForMMSURL(const BVURL& url) {
  using namespace belvane::detail;
  auto templatePath = BVResources::frameworkPathForResource("asx_template", "mov");
  if (!templatePath) {
    BVLog("The reference movie template \"asx_template.mov\" is missing");
    return nullptr;
  }
  std::ifstream in(*templatePath, std::ios::binary);
  std::string bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
  if (bytes.size() < kReferenceTemplateURLOffset + kReferenceTemplateURLFieldSize) return nullptr;

  gchar* uuid = g_uuid_string_random();
  std::string name = uuid ? uuid : "";
  g_free(uuid);

  const std::string& text = url.absoluteString();
  auto length = uint32_t(text.size());
  bytes.replace(kReferenceTemplateURLOffset, kReferenceTemplateURLFieldSize, text);
  const char lengthBytes[4] = {char(length >> 24), char(length >> 16), char(length >> 8), char(length)};
  bytes.replace(kReferenceTemplateLengthOffset, 4, lengthBytes, 4);

  std::string path = std::string(g_get_tmp_dir()) + "/" + name + ".mov";
  GError* error = nullptr;
  if (!g_file_set_contents(path.c_str(), bytes.data(), gssize(bytes.size()), &error)) {
    BVLog("Could not write the reference movie %s: %s", path.c_str(), error ? error->message : "");
    g_clear_error(&error);
    return nullptr;
  }
  _employedFlip4MacWorkAround = true;
  return BVMediaLink::linkWithURL(BVURL::fileURLWithPath(path));
}
