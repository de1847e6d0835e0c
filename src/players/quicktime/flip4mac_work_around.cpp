// BVQuickTimePlayer: the Windows Media component's looping fault. Older
// components loop on ASX and MMS links, so such links are played from a
// small reference movie (made from the "asx_template" resource) that names
// the stream instead; it is written 0600 to the user's private folder and
// removed once the movie has read it. The component's version is read from its Info.plist
// under "QuickTime/Flip4Mac WMV Advanced.component" in each XDG data folder.
#include <belvane/BVKitOwner.h>
#include <belvane/BVMediaLink.h>
#include <belvane/BVPropertyList.h>
#include <belvane/BVQuickTimePlayer.h>
#include <belvane/BVResources.h>
#include <belvane/BVRunLoop.h>

#include "engines/xdg_data_dirs.h"
#include "foundation/text_encoding.h"
#include "foundation/user_folder.h"
#include "movie/reference_movie.h"
#include "players/quicktime/quicktime_player_impl.h"

#include <fcntl.h>
#include <glib.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
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

void BVQuickTimePlayer::Impl::resetFlip4MacVersionCheck() {
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
  const std::string& text = url.absoluteString();
  auto length = uint32_t(text.size());
  bytes.replace(kReferenceTemplateURLOffset, kReferenceTemplateURLFieldSize, text);
  const char lengthBytes[4] = {char(length >> 24), char(length >> 16), char(length >> 8), char(length)};
  bytes.replace(kReferenceTemplateLengthOffset, 4, lengthBytes, 4);

  // The file names the stream, so only the user may read it: it goes to the
  // user's private folder, made 0600 and never through a link.
  std::string why;
  std::string folder = prepareUserFolder(&why);
  if (folder.empty()) {
    BVLog("Could not write the reference movie for %s: the folder %s cannot be used: %s", text.c_str(),
          userFolderPath().c_str(), why.c_str());
    return nullptr;
  }
  gchar* uuid = g_uuid_string_random();
  std::string path = folder + "/" + (uuid ? uuid : "reference") + ".mov";
  g_free(uuid);
  int fd = open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600);
  bool written = fd >= 0 && write(fd, bytes.data(), bytes.size()) == ssize_t(bytes.size());
  int failure = errno;
  if (fd >= 0) close(fd);
  if (!written) {
    if (fd >= 0) unlink(path.c_str());
    BVLog("Could not write the reference movie for %s: %s", text.c_str(), std::strerror(failure));
    return nullptr;
  }
  // The player removes the file once its movie has been opened from it; for
  // a caller that never opens one, it goes on the next turn of the run loop.
  BVRunLoop::current().perform([path] { unlink(path.c_str()); });
  _employedFlip4MacWorkAround = true;
  return BVMediaLink::linkWithURL(BVURL::fileURLWithPath(path));
}
