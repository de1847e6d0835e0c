// Fuzzes the MPEG transport stream scanner (PAT, PMT and PES framing, the
// timed ID3 metadata streams): the input is fed in pieces whose sizes come
// from its first byte, so packets split across feeds and lost sync are hit.
#include "movie/transport_stream_scanner.h"

#include <cstddef>
#include <cstdint>

using namespace belvane::detail;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size == 0) return 0;
  const size_t piece = size_t(data[0]) * 3 + 1;
  std::span<const uint8_t> bytes(data + 1, size - 1);
  TransportStreamScanner scanner;
  size_t fed = 0;
  for (size_t at = 0; at < bytes.size(); at += piece) {
    scanner.scan(bytes.subspan(at, std::min(piece, bytes.size() - at)));
    for (const TransportPESPacket& packet : scanner.takePackets()) {
      fed += packet.payload.size();
      if (packet.metadata && (!packet.pts || packet.payload.size() != packet.payloadSize)) __builtin_trap();
    }
    if ((at / piece) % 7 == 6) scanner.discontinuity();
  }
  (void)fed;
  return 0;
}
