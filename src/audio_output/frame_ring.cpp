// FrameRing: bounded stereo frame queue with per-run sample rates.
#include "audio_output/frame_ring.h"

#include <algorithm>
#include <cmath>
#include <cstring>

#if defined(__SSE__)
#include <xmmintrin.h>
#endif

namespace belvane::detail {

double FrameRing::seconds() const {
  double total = 0;
  for (const Run& run : runs_) total += static_cast<double>(run.frames) / run.rate;
  return total;
}

size_t FrameRing::room(unsigned rate, double limitSeconds) const {
  double free = (limitSeconds - seconds()) * rate;
  return free >= 1 ? static_cast<size_t>(std::floor(free)) : 0;
}

namespace {

// Interleaves two planes into stereo frames, four frames at a time where
// SSE is there (compilers do not vectorise this at -O2).
void interleave(const float* __restrict left, const float* __restrict right, size_t frames, float* __restrict out) {
  size_t i = 0;
#if defined(__SSE__)
  for (; i + 4 <= frames; i += 4) {
    __m128 l = _mm_loadu_ps(left + i), r = _mm_loadu_ps(right + i);
    _mm_storeu_ps(out + 2 * i, _mm_unpacklo_ps(l, r));
    _mm_storeu_ps(out + 2 * i + 4, _mm_unpackhi_ps(l, r));
  }
#endif
  for (; i < frames; ++i) {
    out[2 * i] = left[i];
    out[2 * i + 1] = right[i];
  }
}

void scale(float* samples, size_t count, float gain) {
  size_t i = 0;
#if defined(__SSE__)
  const __m128 g = _mm_set1_ps(gain);
  for (; i + 4 <= count; i += 4) _mm_storeu_ps(samples + i, _mm_mul_ps(_mm_loadu_ps(samples + i), g));
#endif
  for (; i < count; ++i) samples[i] *= gain;
}

}  // namespace

void FrameRing::reserve(size_t frames) {
  if (frames <= capacity_) return;
  size_t capacity = std::max(frames, capacity_ * 2);
  std::vector<float> grown(capacity * kChannels);
  copyOut(grown.data(), count_);
  samples_.swap(grown);
  capacity_ = capacity;
  head_ = 0;
}

void FrameRing::copyOut(float* out, size_t frames) const {
  // The oldest frames lie in at most two runs: up to the end of the storage,
  // then from its start.
  if (frames == 0) return;
  size_t first = std::min(frames, capacity_ - head_);
  std::memcpy(out, samples_.data() + head_ * kChannels, first * kChannels * sizeof(float));
  if (frames > first) std::memcpy(out + first * kChannels, samples_.data(), (frames - first) * kChannels * sizeof(float));
}

void FrameRing::push(unsigned rate, const float* const* channels, size_t offset, size_t count) {
  if (count == 0) return;
  reserve(count_ + count);
  const float* left = channels[0] + offset;
  const float* right = channels[1] ? channels[1] + offset : left;
  size_t tail = head_ + count_;
  if (tail >= capacity_) tail -= capacity_;
  size_t first = std::min(count, capacity_ - tail);
  interleave(left, right, first, samples_.data() + tail * kChannels);
  interleave(left + first, right + first, count - first, samples_.data());
  count_ += count;
  if (!runs_.empty() && runs_.back().rate == rate)
    runs_.back().frames += count;
  else
    runs_.push_back({rate, count});
}

size_t FrameRing::pop(float* out, size_t max, float gain) {
  if (runs_.empty()) return 0;
  size_t n = std::min(max, runs_.front().frames);
  copyOut(out, n);
  // A gain of exactly 1 leaves every sample as it is.
  if (gain != 1.0f) scale(out, n * kChannels, gain);
  head_ += n;
  if (head_ >= capacity_) head_ -= capacity_;
  count_ -= n;
  if ((runs_.front().frames -= n) == 0) runs_.pop_front();
  return n;
}

void FrameRing::clear() {
  head_ = 0;
  count_ = 0;
  runs_.clear();
}

}  // namespace belvane::detail
