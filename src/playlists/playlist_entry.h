// PlaylistEntry: the entry of a station playlist that a player plays, as
// the code that tries a playlist's entries in turn (the stream tuner, the
// movie's station list) remembers it: the title the playlist gives it and
// its place in the playlist, and the player attributes they make. Plain
// data; any thread.
#pragma once

#include <belvane/BVValue.h>

#include "playlists/playlist_format.h"
#include "playlists/playlist_text_parser.h"

#include <cstdint>
#include <optional>
#include <string>

namespace belvane::detail {

struct PlaylistEntry {
  std::string title;  // #EXTINF's, TitleN's or an ASX entry's title; empty when none
  int64_t index = 0;  // the entry's place in its playlist, counting from 1
};

// A track's place in its playlist, counting from 1: the place the playlist
// itself gives it (an ASX entry's among the entries, a PLS FileN's N), else
// `order`, its place among the tracks read.
int64_t playlistEntryPlace(PlaylistFormat format, const PlaylistTrack& track, int64_t order);

// A track's title as the playlist gives it, trimmed and in UTF-8 whatever
// the file's character set; empty for none.
std::string playlistEntryTitle(const std::optional<std::string>& title);

// BVPlayerAttributePlaylistEntryTitleKey (when the entry has a title) and
// BVPlayerAttributePlaylistEntryIndexKey; empty when there is no entry (a
// station played from its own address).
BVDictionary playlistEntryAttributes(const std::optional<PlaylistEntry>& entry);

}  // namespace belvane::detail
