// Arbitrary bytes through the path a stream's bytes take: the ICY reply
// head, the metadata demultiplexer, the frame search and the MPEG decoder.
// The first two bytes choose the metadata interval, the third the size of
// the pieces the rest arrives in.
#include "streaming/icy_metadata.h"
#include "streaming/shoutstreamer_pipeline.h"

#include <cstddef>
#include <cstdint>
#include <span>

namespace {

struct DiscardingSink : belvane::detail::PipelineSink {
  uint64_t frames = 0;
  void title(belvane::detail::StreamTitle t) override { frames += t.title.size() + t.url.size(); }
  bool audio(const float* interleaved, size_t n, long) override {
    // Touch the samples so the sanitizers see the decoder's output.
    for (size_t i = 0; i < 2 * n; i += 97) frames += interleaved[i] > 2.0f;
    frames += n;
    return true;
  }
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size < 3) return 0;
  uint32_t metaint = uint32_t(data[0]) << 8 | data[1];
  size_t piece = size_t(data[2]) * 16 + 1;
  std::span<const uint8_t> rest(data + 3, size - 3);

  belvane::detail::IcyReplyParser head;
  auto result = head.feed(rest);
  if (result == belvane::detail::IcyReplyParser::Result::NeedMore ||
      result == belvane::detail::IcyReplyParser::Result::Malformed)
    return 0;
  std::span<const uint8_t> body = head.pending();

  DiscardingSink sink;
  belvane::detail::StreamPipeline pipeline(metaint, sink, 16 * 1024);
  for (size_t at = 0; at < body.size(); at += piece) {
    if (pipeline.feed(body.subspan(at, std::min(piece, body.size() - at))) !=
        belvane::detail::StreamPipeline::Status::Ok)
      break;
  }
  pipeline.finish();
  return 0;
}
