// Parsing playlist text into typed tracks, for every format in one place:
// the web playlist readers, the stream tuner and the movie's station lists
// all read playlists through it. Pure: no I/O, no run loop; a reader's
// diagnostics come back as text for its caller to log.
//
// Each format keeps the rules its readers have always had: an M3U's first
// line is a URL even when it looks like a comment, PLS values shorter than
// two characters are dropped, ASX text is read lower-cased (and by a tolerant
// tag scanner when it is not well-formed XML), XSPF locations come as written.
#pragma once

#include "playlists/playlist_format.h"

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace belvane::detail {

struct PlaylistTrack {
  std::optional<std::string> url;  // a PLS track may name none
  std::optional<std::string> title;
  std::optional<int64_t> duration;         // M3U: the "#EXTINF" seconds
  std::optional<std::string> durationText;  // PLS: "LengthN" as written
  // PLS: the N of "FileN". ASX: the entry's place among all entries, from 0
  // (0 for the tag scanner's track). M3U, XSPF: the track's place.
  int64_t number = 0;
  // ASX: every reference of the entry, the first being url.
  std::vector<std::string> alternateURLs;
  // PLS: keys without a meaning here ("Genre"), by name as written.
  std::vector<std::pair<std::string, std::string>> otherAttributes;
  // The ASX tag scanner's quirk: one track standing for several entries.
  size_t occurrences = 1;
};

using PlaylistTrackSink = std::function<void(PlaylistTrack&& track)>;

// Hands the tracks of text to sink in playlist order; diagnostics, when
// given, receives messages about damaged text that was still read.
void parsePlaylistText(PlaylistFormat format, std::string_view text, const PlaylistTrackSink& sink,
                       std::vector<std::string>* diagnostics = nullptr);
std::vector<PlaylistTrack> parsePlaylistText(PlaylistFormat format, std::string_view text);

// ASX only: the tag scanner alone, as for text that is not well-formed XML.
void parseASXTextWithTagScanner(std::string_view text, const PlaylistTrackSink& sink);

// Every URL a track offers, in order: an ASX entry's references, else its URL.
std::vector<std::string> playlistTrackURLs(const PlaylistTrack& track);

}  // namespace belvane::detail
