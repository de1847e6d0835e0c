// MovieStationList: an M3U or PLS station list that a movie reads before it
// plays: downloaded by the web playlist class on the calling thread's run
// loop, parsed by the playlist format registry, then handed over as the
// entries' URLs (resolved against the list's own URL) with their titles and
// places in the list. An M3U body with "#EXT-X-" tags is an HLS playlist,
// not a station list, and is reported as such so that the movie plays the
// list's URL itself.
#pragma once

#include <belvane/BVURL.h>
#include <belvane/BVWebPlaylist.h>

#include "playlists/playlist_entry.h"
#include "playlists/playlist_format.h"

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace belvane::detail {

class MovieStationList : private BVWebPlaylistDelegate {
 public:
  // M3U or PLS by the path's extension (their own names: never "m3u8").
  static std::optional<PlaylistFormat> formatForURL(const BVURL& url);
  // M3U or PLS by an HTTP Content-Type (their own types; parameters ignored).
  static std::optional<PlaylistFormat> formatForContentType(const std::string& contentType);

  struct Result {
    std::vector<BVURL> entries;
    std::vector<PlaylistEntry> details;  // each entry's title and place (from 1)
    bool isHLS = false;
    int32_t status = 0;  // the download's failure: its HTTP status, else -19160
  };
  using Completion = std::function<void(const Result& result)>;

  // Starts loading with the player's request settings (null: the
  // defaults); completion is called once, on this thread's run loop.
  // Destroying the list (also from inside completion) stops it.
  MovieStationList(const BVURL& url, PlaylistFormat format, const BVRequestSettingsRef& settings,
                   Completion completion);
  ~MovieStationList() override;
  MovieStationList(const MovieStationList&) = delete;
  MovieStationList& operator=(const MovieStationList&) = delete;

 private:
  void playlistDidFinishLoading(BVWebPlaylist& playlist) override;
  void playlistDidFailWithError(BVWebPlaylist& playlist, const BVErrorRef& error) override;
  void finish(const Result& result);

  BVURL url_;
  PlaylistFormat format_;
  BVWebPlaylistRef playlist_;
  Completion completion_;
  bool finished_ = false;
};

}  // namespace belvane::detail
