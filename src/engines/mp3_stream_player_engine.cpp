// BVMP3StreamPlayerEngine: the built-in MP3/Shoutcast streamer.
#include <belvane/BVIconCenter.h>
#include <belvane/BVMediaFormat.h>
#include <belvane/BVPlayerEngines.h>
#include <belvane/BVResources.h>

#include "foundation/text_encoding.h"

using belvane::detail::equalsIgnoringASCIICase;

std::shared_ptr<BVMP3StreamPlayerEngine> BVMP3StreamPlayerEngine::sharedEngine() {
  static auto engine = std::make_shared<BVMP3StreamPlayerEngine>();
  return engine;
}

std::shared_ptr<BVImage> BVMP3StreamPlayerEngine::icon() const {
  return BVIconCenter::sharedCenter()->imageNamed(BVIconShoutcastPlayer);
}

std::optional<std::string> BVMP3StreamPlayerEngine::displayableEngineDescription() {
  return BVResources::localizedString(
      "Shoutcast allows you listen to streaming mp3 audio. Shoutcast streaming is built-in so there's no need to "
      "download anything to enable it.");
}

bool BVMP3StreamPlayerEngine::canPlayFormat(const BVMediaFormat& format) {
  auto scheme = format.urlScheme();
  // Local files never go to the stream engine.
  if (scheme && equalsIgnoringASCIICase(*scheme, "file")) return false;
  if (BVBasePlayerEngine::canPlayFormat(format)) return true;
  // A bare HTTP link with no other clue may well be a Shoutcast stream.
  return scheme && equalsIgnoringASCIICase(*scheme, "http") && !format.fileExtension() && !format.mimeType();
}

