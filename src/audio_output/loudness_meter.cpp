// LoudnessMeter: libebur128 fed a sample of the audio (see loudness_meter.h).
#include "audio_output/loudness_meter.h"

#include <algorithm>
#include <cmath>

namespace belvane::detail {
namespace {
constexpr unsigned kWindowMs = 3000;  // EBU R128 short-term
constexpr unsigned kSliceMs = 25;
// Below this rate the K-weighting's high shelf (1.68 kHz) no longer fits.
constexpr unsigned kLowestMeteredRate = 8000;
}  // namespace

LoudnessMeter::~LoudnessMeter() {
  if (state_) ebur128_destroy(&state_);
}

void LoudnessMeter::reset() {
  if (state_) ebur128_destroy(&state_);
  state_ = nullptr;
  rate_ = 0;
}

void LoudnessMeter::add(unsigned rate, const float* left, const float* right, size_t frames) {
  if (rate == 0 || frames == 0) return;
  if (rate != rate_) {
    reset();
    rate_ = rate;
    step_ = std::clamp<size_t>(rate / kLowestMeteredRate, 1, kDecimation);
    state_ = ebur128_init(2, rate / unsigned(step_), EBUR128_MODE_S);
    slice_ = std::max<size_t>(1, size_t(rate) * kSliceMs / 1000);
    cycle_ = 0;
    sliceAt_ = 0;
    phase_ = 0;
    framesAdded_ = 0;
  }
  if (!state_) return;
  if (!right) right = left;
  framesAdded_ = std::min(framesAdded_ + frames, size_t(rate_) * kWindowMs / 1000);
  const size_t period = slice_ * kPeriodSlices;
  while (frames > 0) {
    // Skip to the period's slice, measure it, skip to the period's end.
    size_t n;
    if (cycle_ < sliceAt_) {
      n = std::min(sliceAt_ - cycle_, frames);
    } else if (cycle_ < sliceAt_ + slice_) {
      n = std::min(sliceAt_ + slice_ - cycle_, frames);
      measure(left, right, n);
    } else {
      n = std::min(period - cycle_, frames);
    }
    left += n, right += n, frames -= n, cycle_ += n;
    if (cycle_ == period) {
      // Each period's slice at a place of its own, so that the slices do
      // not keep step with a rhythm of the programme.
      cycle_ = 0;
      sliceAt_ = std::uniform_int_distribution<size_t>(0, period - slice_)(random_);
    }
  }
}

// Every decimation-th frame of a measured stretch, interleaved for libebur128.
void LoudnessMeter::measure(const float* left, const float* right, size_t frames) {
  const size_t step = step_;
  size_t i = phase_;
  while (i < frames) {
    size_t n = 0;
    for (; i < frames && n < sizeof scratch_ / sizeof scratch_[0] / 2; i += step, ++n) {
      scratch_[2 * n] = left[i];
      scratch_[2 * n + 1] = right[i];
    }
    ebur128_add_frames_float(state_, scratch_, n);
  }
  phase_ = i - frames;
}

std::optional<double> LoudnessMeter::shortTermLufs() const {
  if (!state_ || framesAdded_ < size_t(rate_) * kWindowMs / 1000) return std::nullopt;
  // The slices measured of the last 3 s make up this much of libebur128's audio.
  double lufs;
  if (ebur128_loudness_window(state_, kWindowMs / kPeriodSlices, &lufs) != EBUR128_SUCCESS) return std::nullopt;
  return lufs;
}

}  // namespace belvane::detail
