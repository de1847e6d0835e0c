// LoudnessControl: the meter, the gain that follows it and its memory (see
// loudness_control.h).
#include "audio_output/loudness_control.h"

#include <algorithm>
#include <cmath>
#include <optional>

#include "audio_output/cpu_clones.h"
#include "audio_output/loudness_memory.h"

#define BELVANE_EVERY_SAMPLE BELVANE_CPU_CLONES

namespace belvane::detail {
namespace {
constexpr double kLowestTarget = -70.0;
constexpr double kSilence = -70.0;             // LUFS below which the gain stays put
constexpr double kLeastGainDb = -24.0;
constexpr double kMostGainDb = 12.0;
constexpr float kCeiling = 0.891f;             // -1 dBFS
// The loudest sample a decoder gives (+2.3 dBFS; an MP3 of a master limited
// at full scale overshoots it by a little), and the gain below which even
// that stays under the ceiling (-3.3 dB).
constexpr float kLoudestSample = 1.3f;
constexpr float kWatchedGain = kCeiling / kLoudestSample;
constexpr double kPeakFallDb = 0.25;          // of the peak held, every half second
constexpr double kSteerEverySeconds = 0.5;
constexpr double kFirstMoveSeconds = 1.0;      // the first move of a playback
constexpr double kMoveSeconds = 2.0;           // a later move toward the target
constexpr double kDeadbandDb = 0.5;            // closer than this, the gain stays
constexpr double kCeilingSeconds = 0.005;      // a move down to the ceiling
constexpr double kOffSeconds = 1.0;            // back to unity when turned off

float gainOf(double db) { return float(std::pow(10.0, db / 20.0)); }
double dbOf(float gain) { return 20.0 * std::log10(std::max(gain, 1e-6f)); }

// The largest magnitude of the samples, kept in 32 lanes so that the
// compiler compares many at a time, on independent registers; a
// not-a-number is never larger, and an infinite peak says nothing of the
// level.
BELVANE_EVERY_SAMPLE float samplePeak(const float* samples, size_t count) {
  constexpr size_t kLanes = 32;
  float lanes[kLanes] = {};
  size_t i = 0;
  for (; i + kLanes <= count; i += kLanes)
    for (size_t j = 0; j < kLanes; ++j) {
      float magnitude = std::fabs(samples[i + j]);
      lanes[j] = magnitude > lanes[j] ? magnitude : lanes[j];
    }
  float peak = 0.0f;
  for (; i < count; ++i) peak = std::max(peak, std::fabs(samples[i]));
  for (float lane : lanes) peak = std::max(peak, lane);
  return std::isfinite(peak) ? peak : 0.0f;
}

BELVANE_EVERY_SAMPLE void scaleInto(float* out, const float* in, size_t count, float gain) {
  for (size_t i = 0; i < count; ++i) out[i] = in[i] * gain;
}
}  // namespace

LoudnessControl::~LoudnessControl() { remember(); }

double LoudnessControl::gainDb() const { return dbOf(gainShown_.load(std::memory_order_relaxed)); }

void LoudnessControl::setTarget(double lufs) {
  if (!(lufs >= kLowestTarget && lufs <= 0.0)) return;
  target_ = lufs;
}

void LoudnessControl::remember() {
  std::string station;
  double db;
  {
    MutexLock lock(stationMutex_);
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
  MutexLock lock(stationMutex_);
  station_ = station;
  settled_ = false;
  startDb_ = recalled.value_or(0.0);
  restart_ = true;
}

// A new playback: from the station's remembered gain, measured afresh.
void LoudnessControl::restart() {
  double start;
  {
    MutexLock lock(stationMutex_);
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
  if (restart_.load(std::memory_order_relaxed) && restart_.exchange(false)) restart();
  const bool enabled = enabled_;
  if (enabled != wasEnabled_) {
    wasEnabled_ = enabled;
    if (enabled) {
      meter_.reset();
      framesToSteer_ = 0;
      moved_ = false;
      MutexLock lock(stationMutex_);
      ramp_.start(gainOf(startDb_), kOffSeconds);
    } else {
      ramp_.start(1.0f, kOffSeconds);
    }
  }
  if (!enabled && !ramp_.isActive() && gain_ == 1.0f) {
    gainShown_.store(1.0f, std::memory_order_relaxed);
    return channels;
  }
  const float* left = channels[0];
  const float* right = channels[1];
  if (enabled && rate > 0) {
    // Below kWatchedGain no sample passes the ceiling: the peaks are looked
    // at only while the gain in force, or the one it heads for, is above it.
    const float heading = ramp_.isActive() ? std::max(gain_, ramp_.target()) : gain_;
    float peak = 0.0f;
    if (heading > kWatchedGain)
      peak = std::max(samplePeak(left, frames), right ? samplePeak(right, frames) : 0.0f);
    meter_.add(rate, left, right, frames);
    steer(rate, peak, frames);
  }
  if (left_.size() < frames) {
    left_.resize(frames);
    right_.resize(frames);
  }
  // Copied at the gain in force, or copied whole and then ramped.
  const float gain = ramp_.isActive() ? 1.0f : gain_;
  scaleInto(left_.data(), left, frames, gain);
  if (right) scaleInto(right_.data(), right, frames, gain);
  out_[0] = left_.data();
  out_[1] = right ? right_.data() : nullptr;
  if (ramp_.isActive()) gain_ = ramp_.apply(out_[0], out_[1], frames, rate, gain_);
  gainShown_.store(gain_, std::memory_order_relaxed);
  return out_;
}

// Follows the measure every half second, and the ceiling on every block.
void LoudnessControl::steer(unsigned rate, float blockPeak, size_t frames) {
  peakHeld_ = std::max(blockPeak, peakHeld_);
  framesToSteer_ += frames;
  if (framesToSteer_ >= size_t(rate * kSteerEverySeconds)) {
    framesToSteer_ = 0;
    peakHeld_ *= gainOf(-kPeakFallDb);
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
      MutexLock lock(stationMutex_);
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
