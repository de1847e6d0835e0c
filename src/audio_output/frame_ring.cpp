// FrameRing: bounded stereo frame queue with per-run sample rates.
#include "audio_output/frame_ring.h"

#include <algorithm>
#include <cmath>

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

void FrameRing::reserve(size_t frames) {
  if (frames <= capacity_) return;
  size_t capacity = std::max(frames, capacity_ * 2);
  std::vector<float> grown(capacity * kChannels);
  for (size_t i = 0; i < count_; ++i) {
    size_t from = ((head_ + i) % capacity_) * kChannels;
    grown[i * kChannels] = samples_[from];
    grown[i * kChannels + 1] = samples_[from + 1];
  }
  samples_.swap(grown);
  capacity_ = capacity;
  head_ = 0;
}

void FrameRing::push(unsigned rate, const float* const* channels, size_t offset, size_t count) {
  if (count == 0) return;
  reserve(count_ + count);
  const float* left = channels[0] + offset;
  const float* right = channels[1] ? channels[1] + offset : left;
  size_t tail = (head_ + count_) % capacity_;
  for (size_t i = 0; i < count; ++i) {
    samples_[tail * kChannels] = left[i];
    samples_[tail * kChannels + 1] = right[i];
    if (++tail == capacity_) tail = 0;
  }
  count_ += count;
  if (!runs_.empty() && runs_.back().rate == rate)
    runs_.back().frames += count;
  else
    runs_.push_back({rate, count});
}

size_t FrameRing::pop(float* out, size_t max, float gain) {
  if (runs_.empty()) return 0;
  size_t n = std::min(max, runs_.front().frames);
  for (size_t i = 0; i < n; ++i) {
    out[i * kChannels] = samples_[head_ * kChannels] * gain;
    out[i * kChannels + 1] = samples_[head_ * kChannels + 1] * gain;
    if (++head_ == capacity_) head_ = 0;
  }
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
