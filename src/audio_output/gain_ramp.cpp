// GainRamp: a linear, frame-by-frame move of the output's gain.
#include "audio_output/gain_ramp.h"

#include <algorithm>
#include <cmath>

namespace belvane::detail {

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
  double g = gain;
  for (size_t i = 0; i < frames; ++i) {
    g = i < moving ? g + step : target_;
    left[stride * i] *= float(g);
    if (right) right[stride * i] *= float(g);
  }
  secondsLeft_ -= double(frames) / rate;
  if (double(frames) >= framesLeft) {
    active_ = false;
    return target_;
  }
  return float(g);
}

}  // namespace belvane::detail
