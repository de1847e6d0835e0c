// Fuzzes the PLS reader on decoded text and on raw bytes: no crash or hang,
// and no more tracks than "=" signs. (A track's number may be overwritten: a key
// spelt like the number key itself is kept under its own name.)
#include <belvane/BVPLSWebPlaylist.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string_view>

namespace {

void parse(std::string_view text) {
  auto reader = BVPLSWebPlaylist::create();
  reader->generateTracksFromString(text);
  if (reader->countOfTracks() > size_t(std::count(text.begin(), text.end(), '='))) __builtin_trap();
  for (const auto& track : reader->tracks())
    if (!track.dictionary() || track[kPlaylistAttributeTrackNumber].isNone()) __builtin_trap();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  std::span<const uint8_t> bytes(data, size);
  if (auto text = BVWebPlaylist::stringFromData(bytes)) parse(*text);
  parse(std::string_view(reinterpret_cast<const char*>(data), size));
  return 0;
}
