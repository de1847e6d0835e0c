// Fuzzes the M3U reader on decoded text (as a download delivers it) and on
// raw bytes: no crash, hang or track without a URL string.
#include <belvane/BVM3UWebPlaylist.h>

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace {

void parse(std::string_view text) {
  auto reader = BVM3UWebPlaylist::create();
  reader->generateTracksFromString(text);
  for (const auto& track : reader->tracks()) {
    if (!track[kPlaylistAttributeTrackURL].isString()) __builtin_trap();
    const auto& duration = track[kPlaylistAttributeTrackDuration];
    if (!duration.isNone() && duration.kind() != BVValue::Kind::Integer) __builtin_trap();
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  std::span<const uint8_t> bytes(data, size);
  if (auto text = BVWebPlaylist::stringFromData(bytes)) parse(*text);
  parse(std::string_view(reinterpret_cast<const char*>(data), size));
  return 0;
}
