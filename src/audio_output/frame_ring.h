// FrameRing: the bounded queue of stereo float frames between the writer
// (orplayer_play_wait) and the player's output thread. It remembers the
// sample rate of each run of frames so that the output can follow a change
// of rate exactly where it happens. Not locked: the player guards it.
#pragma once

#include <cstddef>
#include <deque>
#include <vector>

namespace belvane::detail {

class FrameRing {
 public:
  static constexpr int kChannels = 2;

  size_t frames() const { return count_; }
  // Duration of the queued frames, each run at its own rate.
  double seconds() const;
  // How many frames at `rate` may still be queued before the queue holds
  // `limitSeconds` of audio.
  size_t room(unsigned rate, double limitSeconds) const;
  // Appends `count` frames at `rate`, taken from planar buffers from
  // `offset` on. A missing second channel repeats the first.
  void push(unsigned rate, const float* const* channels, size_t offset, size_t count);
  // Rate of the oldest queued frames; 0 when empty.
  unsigned frontRate() const { return runs_.empty() ? 0 : runs_.front().rate; }
  // Moves up to `max` frames of the oldest rate into `out`, interleaved,
  // each sample multiplied by `gain`. Returns the number of frames moved.
  size_t pop(float* out, size_t max, float gain);
  void clear();

 private:
  void reserve(size_t frames);
  // Copies the oldest `frames` frames to `out`, interleaved.
  void copyOut(float* out, size_t frames) const;

  struct Run {
    unsigned rate;
    size_t frames;
  };
  std::vector<float> samples_;  // interleaved; capacity_ frames
  size_t capacity_ = 0;
  size_t head_ = 0;  // index of the oldest frame
  size_t count_ = 0;
  std::deque<Run> runs_;
};

}  // namespace belvane::detail
