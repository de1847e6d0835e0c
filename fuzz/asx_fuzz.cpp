// Fuzzes the XML playlist parsers: the first byte picks the entry point (the
// full ASX reader, whose XML path falls back to the tag scanner, the tag
// scanner alone, or the XSPF parser); the rest is the file. Beyond crashes
// and hangs it checks the scanner's shape (every track it inserts is one
// shared dictionary) and that every XSPF track's URL is its first location.
#include <belvane/BVASXWebPlaylist.h>

#include "playlists/playlist_text_parser.h"

#include <cstddef>
#include <cstdint>
#include <string_view>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size == 0) return 0;
  const bool scannerOnly = data[0] & 1;
  std::span<const uint8_t> bytes(data + 1, size - 1);
  auto text = BVWebPlaylist::stringFromData(bytes);
  if (!text) return 0;

  if (data[0] & 2) {
    for (const auto& track : belvane::detail::parsePlaylistText(belvane::detail::PlaylistFormat::XSPF, *text))
      if (!track.url || track.alternateURLs.empty() || track.alternateURLs.front() != *track.url) __builtin_trap();
    return 0;
  }
  auto reader = BVASXWebPlaylist::create();
  if (scannerOnly) {
    reader->generateTracksFromStringUsingFallbackParser(*text);
    const auto& tracks = reader->tracks();
    for (const auto& track : tracks)
      if (track.dictionary() != tracks.front().dictionary()) __builtin_trap();
  } else {
    reader->generateTracksFromString(*text);
  }
  for (const auto& track : reader->tracks()) {
    if (!track[kPlaylistAttributeTrackURL].isString()) __builtin_trap();
    const auto& alternates = track[kPlaylistAttributeAlternateTrackURLs];
    if (!alternates.isNone() && (!alternates.array() || alternates.array()->empty() ||
                                 alternates.array()->front() != track[kPlaylistAttributeTrackURL]))
      __builtin_trap();
  }
  return 0;
}
