// MpegDecoder over libmpg123's feed interface.
#include "streaming/mpeg_decoder.h"

#include <mpg123.h>

#include <mutex>

namespace belvane::detail {

MpegDecoder::MpegDecoder() {
  static std::once_flag once;
  std::call_once(once, [] { mpg123_init(); });
  int error = MPG123_OK;
  mpg123_handle* handle = mpg123_new(nullptr, &error);
  if (!handle) return;
  // Gapless decoding stays off: a stream is joined mid-way and has no
  // encoder tag, and every decoded frame must yield all of its samples so
  // that positions can be counted in whole frames. No resampling either:
  // the output follows the stream's rate.
  mpg123_param(handle, MPG123_FLAGS, MPG123_QUIET | MPG123_FORCE_STEREO, 0.0);
  // Junk between frames is skipped however long it is; the stream decides
  // when too much input has gone by without a frame.
  mpg123_param(handle, MPG123_RESYNC_LIMIT, -1, 0.0);
  mpg123_format_none(handle);
  const long* rates = nullptr;
  size_t count = 0;
  mpg123_rates(&rates, &count);
  for (size_t i = 0; i < count; ++i) mpg123_format(handle, rates[i], MPG123_STEREO, MPG123_ENC_FLOAT_32);
  if (mpg123_open_feed(handle) != MPG123_OK) {
    mpg123_delete(handle);
    return;
  }
  handle_ = handle;
}

MpegDecoder::~MpegDecoder() {
  if (handle_) mpg123_delete(handle_);
}

bool MpegDecoder::reset() {
  if (!handle_) return false;
  auto h = handle_;
  mpg123_close(h);
  sampleRate_ = 0;
  format_ = {};
  return mpg123_open_feed(h) == MPG123_OK;
}

bool MpegDecoder::feed(std::span<const uint8_t> bytes) {
  if (!handle_) return false;
  if (bytes.empty()) return true;
  return mpg123_feed(handle_, bytes.data(), bytes.size()) == MPG123_OK;
}

MpegDecoder::Status MpegDecoder::next(Frame& frame) {
  if (!handle_) return Status::Error;
  auto h = handle_;
  while (true) {
    off_t number = 0;
    unsigned char* audio = nullptr;
    size_t bytes = 0;
    int result = mpg123_decode_frame(h, &number, &audio, &bytes);
    if (result == MPG123_NEW_FORMAT) {
      long rate = 0;
      int channels = 0, encoding = 0;
      if (mpg123_getformat(h, &rate, &channels, &encoding) != MPG123_OK || channels != 2 ||
          encoding != MPG123_ENC_FLOAT_32)
        return Status::Error;
      sampleRate_ = rate;
      mpg123_frameinfo2 info{};
      if (mpg123_info2(h, &info) == MPG123_OK)
        format_ = {info.layer, info.rate, info.mode == MPG123_M_MONO ? 1 : 2};
      if (bytes == 0) continue;
    } else if (result == MPG123_NEED_MORE) {
      return Status::NeedMore;
    } else if (result != MPG123_OK) {
      return Status::Error;
    }
    if (bytes == 0 || sampleRate_ <= 0) continue;
    frame.samples = reinterpret_cast<const float*>(audio);
    frame.frames = bytes / (2 * sizeof(float));
    frame.sampleRate = sampleRate_;
    frame.inputOffset = uint64_t(mpg123_framepos(h));
    return Status::Frame;
  }
}

}  // namespace belvane::detail
