// Fuzzes the M3U reader on decoded text (as a download delivers it) and on
// raw bytes: no crash, hang or track without a URL string.
#include <belvane/BVM3UWebPlaylist.h>

#include "text_reader_fuzz.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  return belvane::fuzz::fuzzTextReader<BVM3UWebPlaylist>(data, size, [](BVM3UWebPlaylist& reader, std::string_view) {
    for (const auto& track : reader.tracks()) {
      if (!track[kPlaylistAttributeTrackURL].isString()) __builtin_trap();
      const auto& duration = track[kPlaylistAttributeTrackDuration];
      if (!duration.isNone() && duration.kind() != BVValue::Kind::Integer) __builtin_trap();
    }
  });
}
