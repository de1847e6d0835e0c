// The entries of a station playlist as the tuner's candidate URLs.
//
// The text is parsed by the playlist format registry, as the web playlist
// readers parse it. Entries come out in file order, an ASX entry's alternate
// references (an XSPF track's locations) one after another, each resolved
// against the playlist's own URL.
#pragma once

#include <belvane/BVURL.h>

#include "playlists/playlist_entry.h"
#include "playlists/playlist_format.h"

#include <string>
#include <string_view>
#include <vector>

namespace belvane::detail {

// Entries beyond this many are ignored: a station lists a handful.
inline constexpr size_t kTunerMaximumPlaylistEntries = 100;

// An entry as written (trimmed), with its title in the playlist (UTF-8)
// and its place there.
struct TunerPlaylistEntry {
  std::string text;
  PlaylistEntry entry;
};

// The entries (comments and blanks left out), in order, without repeats.
// Places count from 1: an ASX entry's place among the entries (its
// references share it and its title), a PLS FileN's N, else the track's
// place in the file.
std::vector<TunerPlaylistEntry> tunerPlaylistEntries(PlaylistFormat format, std::string_view text);

// The entry as an absolute URL: resolved against base, characters that a
// URL may not hold (blanks, non-ASCII) percent-escaped. Nothing when the
// entry cannot be made a URL.
std::optional<BVURL> tunerResolveEntry(std::string_view entry, const BVURL& base);

// The ASX reader lower-cases what it reads; this finds each URL as the file
// spells it (the same text ignoring case, "&amp;" decoded), or keeps it.
std::vector<std::string> tunerRestoreASXSpelling(const std::vector<std::string>& urls, std::string_view text);

}  // namespace belvane::detail
