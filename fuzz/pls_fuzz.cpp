// Fuzzes the PLS reader on decoded text and on raw bytes: no crash or hang,
// and no more tracks than "=" signs. (A track's number may be overwritten: a key
// spelt like the number key itself is kept under its own name.)
#include <belvane/BVPLSWebPlaylist.h>

#include "text_reader_fuzz.h"

#include <algorithm>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  return belvane::fuzz::fuzzTextReader<BVPLSWebPlaylist>(data, size, [](BVPLSWebPlaylist& reader,
                                                                         std::string_view text) {
    if (reader.countOfTracks() > size_t(std::count(text.begin(), text.end(), '='))) __builtin_trap();
    for (const auto& track : reader.tracks())
      if (!track.dictionary() || track[kPlaylistAttributeTrackNumber].isNone()) __builtin_trap();
  });
}
