// BVQuicktimePlayerEngine: the general media engine, on GStreamer.
#include <belvane/BVIconCenter.h>
#include <belvane/BVMediaFormat.h>
#include <belvane/BVMediaLink.h>
#include <belvane/BVPlayerEngines.h>
#include <belvane/BVResources.h>

#include "movie/gst_media_types.h"
#include "foundation/text_encoding.h"
#include "movie/QTMovie.h"

using belvane::detail::equalsIgnoringASCIICase;

std::shared_ptr<BVQuicktimePlayerEngine> BVQuicktimePlayerEngine::sharedEngine() {
  static auto engine = std::make_shared<BVQuicktimePlayerEngine>();
  return engine;
}

const std::vector<std::string>& BVQuicktimePlayerEngine::movieFileTypes() {
  static const std::vector<std::string> types = belvane::detail::gstreamerPlayableFileExtensions();
  return types;
}

bool BVQuicktimePlayerEngine::canInitWithURL(const BVURL& url) { return belvane::detail::gstreamerCanOpenURL(url); }

std::shared_ptr<BVImage> BVQuicktimePlayerEngine::icon() const {
  return BVIconCenter::sharedCenter()->imageNamed(BVIconQuickTimePlayer);
}

std::optional<std::string> BVQuicktimePlayerEngine::displayableEngineDescription() {
  return BVResources::localizedString(
      "QuickTime enables the playback of many different forms of streaming media. QuickTime streaming is built-in "
      "and there's no need to download anything to enable it.");
}

bool BVQuicktimePlayerEngine::canPlayFormat(const BVMediaFormat& format) {
  // PDF documents are not media, whatever else the format says. The
  // extension is looked at first: it is free, the MIME type may cost a query.
  if (auto extension = format.fileExtension(); extension && equalsIgnoringASCIICase(*extension, "pdf")) return false;
  if (auto mimeType = format.mimeType(); mimeType && equalsIgnoringASCIICase(*mimeType, "application/pdf")) return false;
  return BVBasePlayerEngine::canPlayFormat(format);
}

bool BVQuicktimePlayerEngine::canPlayLink(const BVMediaLink& link) {
  if (BVBasePlayerEngine::canPlayLink(link)) return true;
  BVURL url = link.url();
  if (canInitWithURL(url)) return true;
  // Last, and possibly over the network: try opening the movie.
  return _canOpenMovieWithURL(url);
}

// Yes when a movie opens on the URL without an error. The movie is closed
// again at once; for a network URL opening may already have connected.
bool BVQuicktimePlayerEngine::_canOpenMovieWithURL(const BVURL& url) {
  BVErrorRef error;
  auto movie = belvane::detail::QTMovie::movieWithURL(url, &error);
  return movie && !error;
}

