// GainRamp: a linear, frame-by-frame move of the output's gain.
#include "audio_output/gain_ramp.h"

#include "audio_output/cpu_clones.h"

#include <algorithm>
#include <cmath>
#include <cstdint>

namespace belvane::detail {
namespace {
// Frame i of the ramp is at gain + step * (i + 1) (each frame's gain worked
// out on its own, in single precision, which is finer than a step of the
// longest ramp, so the compiler can scale many frames at a time), and the
// frames past its end at the target. A block is far below 2^31 frames.
template <size_t Stride>
void scaleRamped(float* samples, size_t frames, size_t moving, double gain, double step, float target) {
  const float from = float(gain), by = float(step);
  for (size_t i = 0; i < moving; ++i) samples[Stride * i] *= from + by * float(int32_t(i + 1));
  for (size_t i = moving; i < frames; ++i) samples[Stride * i] *= target;
}

// Planar channels (loudness normalisation's): see cpu_clones.h.
BELVANE_CPU_CLONES
void scaleRampedPlanar(float* samples, size_t frames, size_t moving, double gain, double step, float target) {
  scaleRamped<1>(samples, frames, moving, gain, step, target);
}
}  // namespace

void GainRamp::start(float target, double seconds) {
  target_ = target;
  secondsLeft_ = std::max(0.0, seconds);
  active_ = true;
}

float GainRamp::applyStrided(float* left, float* right, size_t stride, size_t frames, unsigned rate, float gain) {
  if (!active_ || rate == 0) return gain;
  // The step is worked out afresh for each block, from what is left of the
  // ramp at this block's rate, so that a change of rate keeps the ramp's length.
  const double framesLeft = std::floor(secondsLeft_ * rate);
  const double step = framesLeft >= 1 ? (double(target_) - gain) / framesLeft : 0.0;
  const size_t moving = size_t(std::min<double>(framesLeft, double(frames)));
  if (stride == 1) {
    scaleRampedPlanar(left, frames, moving, gain, step, target_);
    if (right) scaleRampedPlanar(right, frames, moving, gain, step, target_);
  } else {
    scaleRamped<2>(left, frames, moving, gain, step, target_);
    if (right) scaleRamped<2>(right, frames, moving, gain, step, target_);
  }
  secondsLeft_ -= double(frames) / rate;
  if (double(frames) >= framesLeft) {
    active_ = false;
    return target_;
  }
  return float(gain + step * double(moving));
}

}  // namespace belvane::detail
