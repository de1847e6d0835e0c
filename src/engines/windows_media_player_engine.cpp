// BVWindowsMediaPlayerEngine: Windows Media through the general media engine.
#include <belvane/BVIconCenter.h>
#include <belvane/BVPlayerEngines.h>
#include <belvane/BVResources.h>

#include "engines/download_pages.h"

#include <algorithm>

std::shared_ptr<BVWindowsMediaPlayerEngine> BVWindowsMediaPlayerEngine::sharedEngine() {
  static auto engine = std::make_shared<BVWindowsMediaPlayerEngine>();
  return engine;
}

// The general engine plays Windows Media once GStreamer can take apart and
// decode it (the ASF demuxer and a WMA decoder are installed).
bool BVWindowsMediaPlayerEngine::isAvailable() {
  const auto& types = BVQuicktimePlayerEngine::movieFileTypes();
  return std::binary_search(types.begin(), types.end(), std::string("wmv"));
}

std::shared_ptr<BVImage> BVWindowsMediaPlayerEngine::icon() const {
  return BVIconCenter::sharedCenter()->imageNamed(BVIconWindowsMediaPlayer);
}

std::optional<BVURL> BVWindowsMediaPlayerEngine::installerDownloadURL() const {
  return belvane::detail::downloadPageURL("/airloom/versions/flip4mac.php");
}

std::optional<std::string> BVWindowsMediaPlayerEngine::displayableEngineDescription() {
  return BVResources::localizedString(
      "Windows Media playback is enabled through Flip4Mac. With this installed you can listen to streaming Windows "
      "Media audio.\n\nYou will need to restart Airloom after having downloaded and installed this component.");
}

// Windows Media plays inside the general engine's movie.
