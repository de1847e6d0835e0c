// GainRamp: a change of the output's gain spread over a stretch of audio,
// so that a fade moves smoothly rather than in audible steps (the "zipper"
// of a volume changed a few times a second). The gain moves in a straight
// line, frame by frame, over the ramp's seconds of audio as it leaves the
// queue, at whatever rate that audio has. Not locked: the player guards it
// with the queue.
#pragma once

#include <cstddef>

namespace belvane::detail {

class GainRamp {
 public:
  // From now on the gain moves to `target` over `seconds` of audio.
  void start(float target, double seconds);
  void cancel() { active_ = false; }
  bool isActive() const { return active_; }
  float target() const { return target_; }
  // Multiplies `frames` interleaved stereo frames at `rate` by the gain as
  // it moves from `gain` (the gain before them); returns the gain after
  // them. The ramp ends on its target.
  float apply(float* interleaved, size_t frames, unsigned rate, float gain) {
    return applyStrided(interleaved, interleaved + 1, 2, frames, rate, gain);
  }
  // The same on planar channels (a null right channel is left alone).
  float apply(float* left, float* right, size_t frames, unsigned rate, float gain) {
    return applyStrided(left, right, 1, frames, rate, gain);
  }

 private:
  float applyStrided(float* left, float* right, size_t stride, size_t frames, unsigned rate, float gain);

  bool active_ = false;
  float target_ = 1.0f;
  double secondsLeft_ = 0;
};

}  // namespace belvane::detail
