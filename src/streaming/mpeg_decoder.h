// MpegDecoder: libmpg123 in feed mode, one MPEG frame at a time, decoding
// layers I to III to interleaved two-channel 32-bit float (mono is
// duplicated by the decoder). Each frame comes with the offset of its header
// in the bytes fed since the last reset, which is what lets the stream map
// a metadata block's byte position to a position in the decoded audio.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

struct mpg123_handle_struct;

namespace belvane::detail {

class MpegDecoder {
 public:
  MpegDecoder();
  ~MpegDecoder();
  MpegDecoder(const MpegDecoder&) = delete;
  MpegDecoder& operator=(const MpegDecoder&) = delete;

  // False when libmpg123 could not make a decoder.
  bool valid() const { return handle_ != nullptr; }
  // Forgets everything fed; the next byte fed is offset 0 again.
  bool reset();
  bool feed(std::span<const uint8_t> bytes);

  struct Frame {
    const float* samples = nullptr;  // interleaved left, right
    size_t frames = 0;
    long sampleRate = 0;
    uint64_t inputOffset = 0;  // of the frame's header, in bytes fed since reset()
  };
  // What the stream is, as its frames' headers say: the layer (1 to 3),
  // the sample rate and the channels coded (1 or 2, before the decoder
  // doubles mono). Known from the first frame on; zeros before.
  struct Format {
    int layer = 0;
    long sampleRate = 0;
    int channels = 0;
    bool operator==(const Format&) const = default;
  };
  const Format& format() const { return format_; }

  enum class Status { Frame, NeedMore, Error };
  // The next decoded frame. The samples stay valid until the next call.
  Status next(Frame& frame);

 private:
  mpg123_handle_struct* handle_ = nullptr;
  long sampleRate_ = 0;
  Format format_;
};

}  // namespace belvane::detail
