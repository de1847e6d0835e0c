// LoudnessControl: the meter, the gain that follows it and its memory (see
// loudness_control.h).
#include "audio_output/loudness_control.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstdint>
#include <optional>

#include "audio_output/loudness_memory.h"

namespace belvane::detail {
namespace {
constexpr double kLowestTarget = -70.0;
constexpr double kSilence = -70.0;             // LUFS below which the gain stays put
constexpr double kLeastGainDb = -24.0;
constexpr double kMostGainDb = 12.0;
constexpr float kCeiling = 0.891f;             // -1 dBFS
constexpr double kPeakFallDbPerSecond = 0.5;
constexpr double kSteerEverySeconds = 0.5;
constexpr double kFirstMoveSeconds = 1.0;      // the first move of a playback
constexpr double kMoveSeconds = 2.0;           // a later move toward the target
constexpr double kDeadbandDb = 0.5;            // closer than this, the gain stays
constexpr double kCeilingSeconds = 0.005;      // a move down to the ceiling
constexpr double kOffSeconds = 1.0;            // back to unity when turned off

float gainOf(double db) { return float(std::pow(10.0, db / 20.0)); }
double dbOf(float gain) { return 20.0 * std::log10(std::max(gain, 1e-6f)); }

// The largest magnitude of the samples: compared as the bits of their
// absolute values, which order as the values do and which the compiler
// compares many at a time.
float samplePeak(const float* samples, size_t count) {
  uint32_t most = 0;
  for (size_t i = 0; i < count; ++i) most = std::max(most, std::bit_cast<uint32_t>(samples[i]) & 0x7fffffffu);
  float peak = std::bit_cast<float>(most);
  return std::isfinite(peak) ? peak : 0.0f;  // a not-a-number says nothing of the level
}
}  // namespace

LoudnessControl::~LoudnessControl() { remember(); }

void LoudnessControl::setTarget(double lufs) {
  if (!(lufs >= kLowestTarget && lufs <= 0.0)) return;
  target_ = lufs;
}

void LoudnessControl::remember() {
  std::string station;
  double db;
  {
    std::lock_guard lock(stationMutex_);
    if (!settled_ || station_.empty()) return;
    station = station_;
    db = settledDb_;
    settled_ = false;
  }
  rememberLoudnessGain(station, db);
}

void LoudnessControl::setStation(const std::string& station) {
  remember();
  std::optional<double> recalled = recalledLoudnessGain(station);
  std::lock_guard lock(stationMutex_);
  station_ = station;
  settled_ = false;
  startDb_ = recalled.value_or(0.0);
  restart_ = true;
}

// A new playback: from the station's remembered gain, measured afresh.
void LoudnessControl::restart() {
  double start;
  {
    std::lock_guard lock(stationMutex_);
    start = startDb_;
  }
  wasEnabled_ = enabled_;
  meter_.reset();
  ramp_.cancel();
  gain_ = wasEnabled_ ? gainOf(start) : 1.0f;
  peakHeld_ = 0.0f;
  framesToSteer_ = 0;
  moved_ = false;
}

float** LoudnessControl::process(unsigned rate, float** channels, size_t frames) {
  if (restart_.exchange(false)) restart();
  const bool enabled = enabled_;
  if (enabled != wasEnabled_) {
    wasEnabled_ = enabled;
    if (enabled) {
      meter_.reset();
      framesToSteer_ = 0;
      moved_ = false;
      std::lock_guard lock(stationMutex_);
      ramp_.start(gainOf(startDb_), kOffSeconds);
    } else {
      ramp_.start(1.0f, kOffSeconds);
    }
  }
  if (!enabled && !ramp_.isActive() && gain_ == 1.0f) {
    gainDb_.store(0.0, std::memory_order_relaxed);
    return channels;
  }
  const float* left = channels[0];
  const float* right = channels[1];
  if (enabled && rate > 0) {
    float peak = std::max(samplePeak(left, frames), right ? samplePeak(right, frames) : 0.0f);
    meter_.add(rate, left, right, frames);
    steer(rate, peak, frames);
  }
  if (left_.size() < frames) {
    left_.resize(frames);
    right_.resize(frames);
  }
  // Copied at the gain in force, or copied whole and then ramped.
  const float gain = ramp_.isActive() ? 1.0f : gain_;
  for (size_t i = 0; i < frames; ++i) left_[i] = left[i] * gain;
  if (right)
    for (size_t i = 0; i < frames; ++i) right_[i] = right[i] * gain;
  out_[0] = left_.data();
  out_[1] = right ? right_.data() : nullptr;
  if (ramp_.isActive()) gain_ = ramp_.apply(out_[0], out_[1], frames, rate, gain_);
  gainDb_.store(dbOf(gain_), std::memory_order_relaxed);
  return out_;
}

// Follows the measure every half second, and the ceiling on every block.
void LoudnessControl::steer(unsigned rate, float blockPeak, size_t frames) {
  const double seconds = double(frames) / rate;
  peakHeld_ = std::max(blockPeak, peakHeld_ * gainOf(-kPeakFallDbPerSecond * seconds));
  framesToSteer_ += frames;
  if (framesToSteer_ >= size_t(rate * kSteerEverySeconds)) {
    framesToSteer_ = 0;
    std::optional<double> lufs = meter_.shortTermLufs();
    if (lufs && *lufs >= kSilence) {
      double db = std::clamp(target_.load() - *lufs, kLeastGainDb, kMostGainDb);
      float gain = gainOf(db);
      if (peakHeld_ > 0 && gain * peakHeld_ > kCeiling) gain = kCeiling / peakHeld_;
      const float heading = ramp_.isActive() ? ramp_.target() : gain_;
      if (!moved_)
        ramp_.start(gain, kFirstMoveSeconds);
      else if (std::fabs(dbOf(gain) - dbOf(heading)) > kDeadbandDb)
        ramp_.start(gain, kMoveSeconds);
      moved_ = true;
      std::lock_guard lock(stationMutex_);
      settledDb_ = dbOf(gain);
      settled_ = true;
      noteLoudnessGain(station_, settledDb_);
    }
  }
  // This block's peak, at the gain in force or heading there, would pass
  // the ceiling: down to it at once, gently enough not to click.
  const float inForce = ramp_.isActive() ? std::max(gain_, ramp_.target()) : gain_;
  if (blockPeak > 0 && blockPeak * inForce > kCeiling) ramp_.start(kCeiling / blockPeak, kCeilingSeconds);
}

}  // namespace belvane::detail
