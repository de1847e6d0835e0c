// Reading a station list for a movie (see movie_station_list.h).
#include "movie/movie_station_list.h"

#include <belvane/BVM3UWebPlaylist.h>
#include <belvane/BVPLSWebPlaylist.h>

#include <algorithm>
#include <cctype>
#include <cstdlib>

#include "movie/movie_status.h"

namespace belvane::detail {
namespace {

// Readers bound to a URL without asking the server first: the movie already
// knows which kind of list it has.
class StationM3U final : public BVM3UWebPlaylist {
 public:
  explicit StationM3U(const BVURL& url) { setURL(url); }
};
class StationPLS final : public BVPLSWebPlaylist {
 public:
  explicit StationPLS(const BVURL& url) { setURL(url); }
};

std::string lower(std::string text) {
  std::transform(text.begin(), text.end(), text.begin(), [](unsigned char c) { return char(std::tolower(c)); });
  return text;
}

}  // namespace

std::optional<MovieStationList::Kind> MovieStationList::kindForURL(const BVURL& url) {
  std::string extension = lower(url.pathExtension());
  if (extension == "m3u") return Kind::M3U;
  if (extension == "pls") return Kind::PLS;
  return std::nullopt;
}

std::optional<MovieStationList::Kind> MovieStationList::kindForContentType(const std::string& contentType) {
  std::string type = lower(contentType.substr(0, contentType.find(';')));
  while (!type.empty() && std::isspace((unsigned char)type.back())) type.pop_back();
  if (type == "audio/x-mpegurl" || type == "audio/mpegurl") return Kind::M3U;
  if (type == "audio/x-scpls" || type == "application/pls+xml") return Kind::PLS;
  return std::nullopt;
}

MovieStationList::MovieStationList(const BVURL& url, Kind kind, Completion completion)
    : url_(url), completion_(std::move(completion)) {
  if (kind == Kind::M3U)
    playlist_ = std::make_shared<StationM3U>(url);
  else
    playlist_ = std::make_shared<StationPLS>(url);
  playlist_->setDelegate(this);
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
  if (playlist.contents().find("#EXT-X-") != std::string::npos) {
    result.isHLS = true;
  } else {
    for (size_t i = 0; i < playlist.countOfTracks(); ++i) {
      const std::string* text = BVDictionaryString(playlist.objectInTracksAtIndex(i), kPlaylistAttributeTrackURL);
      if (!text) continue;
      std::string trimmed = *text;
      while (!trimmed.empty() && std::isspace((unsigned char)trimmed.back())) trimmed.pop_back();
      size_t start = 0;
      while (start < trimmed.size() && std::isspace((unsigned char)trimmed[start])) ++start;
      trimmed.erase(0, start);
      if (trimmed.empty() || trimmed[0] == '#') continue;
      if (auto url = BVURL::URLWithStringRelativeTo(trimmed, url_)) result.entries.push_back(*url);
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
