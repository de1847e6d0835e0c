// Reading a station list for a movie (see movie_station_list.h).
#include "movie/movie_station_list.h"

#include "movie/movie_status.h"
#include "playlists/playlist_text_parser.h"

#include <cctype>
#include <cstdlib>

namespace belvane::detail {
namespace {

// The download alone, bound to a URL without asking the server first: the
// movie already knows which kind of list it has, and parses it itself.
class StationListDownload final : public BVWebPlaylist {
 public:
  explicit StationListDownload(const BVURL& url) { setURL(url); }
  void generateTracksFromString(std::string_view) override {}
};

std::optional<PlaylistFormat> stationListFormat(PlaylistFormat format) {
  if (format == PlaylistFormat::M3U || format == PlaylistFormat::PLS) return format;
  return std::nullopt;
}

}  // namespace

std::optional<PlaylistFormat> MovieStationList::formatForURL(const BVURL& url) {
  return stationListFormat(playlistFormatForExtension(url.pathExtension(), PlaylistNames::Own));
}

std::optional<PlaylistFormat> MovieStationList::formatForContentType(const std::string& contentType) {
  return stationListFormat(playlistFormatForMIMEType(contentType, PlaylistNames::Own));
}

MovieStationList::MovieStationList(const BVURL& url, PlaylistFormat format, const BVRequestSettingsRef& settings,
                                   Completion completion)
    : url_(url), format_(format), completion_(std::move(completion)) {
  playlist_ = std::make_shared<StationListDownload>(url);
  playlist_->setDelegate(this);
  playlist_->setRequestSettings(settings);
  playlist_->loadAsynchronously();
}

MovieStationList::~MovieStationList() {
  if (playlist_) playlist_->setDelegate(nullptr);
}

void MovieStationList::finish(const Result& result) {
  if (finished_) return;
  finished_ = true;
  playlist_->setDelegate(nullptr);
  // The completion may destroy this object: nothing may follow it.
  auto completion = completion_;
  completion(result);
}

void MovieStationList::playlistDidFinishLoading(BVWebPlaylist& playlist) {
  Result result;
  if (isHLSPlaylistText(playlist.contents())) {
    result.isHLS = true;
  } else {
    int64_t order = 0;
    for (const PlaylistTrack& track : parsePlaylistText(format_, playlist.contents())) {
      const int64_t place = playlistEntryPlace(format_, track, ++order);
      if (!track.url) continue;
      std::string trimmed = *track.url;
      while (!trimmed.empty() && std::isspace((unsigned char)trimmed.back())) trimmed.pop_back();
      size_t start = 0;
      while (start < trimmed.size() && std::isspace((unsigned char)trimmed[start])) ++start;
      trimmed.erase(0, start);
      if (trimmed.empty() || trimmed[0] == '#') continue;
      if (auto url = BVURL::URLWithStringRelativeTo(trimmed, url_)) {
        result.entries.push_back(*url);
        result.details.push_back({playlistEntryTitle(track.title), place});
      }
    }
    if (result.entries.empty()) result.status = kMovieStatusNotAMovie;
  }
  finish(result);
}

void MovieStationList::playlistDidFailWithError(BVWebPlaylist&, const BVErrorRef& error) {
  Result result;
  result.status = kMovieStatusCannotReachStream;
  // An HTTP failure reads "404 Not Found": keep the server's status.
  if (error && error->domain() == BVWebPlaylistErrorDomain && error->code() == BVWebPlaylistErrorHTTPStatus) {
    long code = std::strtol(error->localizedDescription().c_str(), nullptr, 10);
    if (code >= 300 && code < 1000) result.status = int32_t(code);
  }
  finish(result);
}

}  // namespace belvane::detail
