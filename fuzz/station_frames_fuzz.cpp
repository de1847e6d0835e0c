// Fuzzes the splitting of a station's audio into frames and Ogg pages (MPEG
// and ADTS chains, Ogg capture, header pages held per chain, the comment
// header read by TagLib): the input is fed in pieces whose sizes come from
// its first byte, with a break in the stream now and then, and every frame
// must lie inside what was fed.
#include "streaming/audio_frame_splitter.h"

#include <cstddef>
#include <cstdint>

using namespace belvane::detail;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size == 0) return 0;
  const size_t piece = size_t(data[0]) * 5 + 1;
  std::span<const uint8_t> bytes(data + 1, size - 1);
  AudioFrameSplitter splitter;
  for (size_t at = 0; at < bytes.size(); at += piece) {
    splitter.feed(bytes.subspan(at, std::min(piece, bytes.size() - at)), [&](const AudioFrame& frame) {
      if (frame.bytes.empty() || frame.streamOffset + frame.bytes.size() > splitter.bytesFed()) __builtin_trap();
    });
    if ((at / piece) % 11 == 10) splitter.restart();
  }
  return 0;
}
