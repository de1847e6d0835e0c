// LoudnessMeter: the EBU R128 short-term loudness (the last 3 s) of the
// audio that plays, measured by libebur128 on a sample of it.
//
// Measuring every sample costs more than half as much CPU as decoding the
// MP3 it came from (bench/streaming_loudness_bench.cpp), so the meter
// measures a share: of every kPeriodSlices slices of 25 ms it takes one (at
// a place in the period drawn at random, so that a rhythm of the programme
// is not sampled in step), and of that slice every
// kDecimation-th frame (the rate libebur128 filters at is the audio's divided
// by kDecimation, or by less where that would fall below 8 kHz, too low for
// the K-weighting's high shelf). The loudness returned is that of the
// sampled frames of the last 3 s of audio, an estimate of the 3 s
// short-term loudness (how far it strays from the full measure on three
// kinds of programme: docs/performance.md).
//
// One thread only (the one that hands frames to the output).
#pragma once

#include <ebur128.h>

#include <cstddef>
#include <optional>
#include <random>

namespace belvane::detail {

class LoudnessMeter {
 public:
  // The share measured: one frame in kDecimation, one slice in kPeriodSlices.
  static constexpr unsigned kDecimation = 5;
  static constexpr unsigned kPeriodSlices = 16;

  LoudnessMeter() = default;
  ~LoudnessMeter();
  LoudnessMeter(const LoudnessMeter&) = delete;
  LoudnessMeter& operator=(const LoudnessMeter&) = delete;

  // Adds `frames` of planar audio at `rate` (a null right channel repeats
  // the left). A change of rate starts the measure again.
  void add(unsigned rate, const float* left, const float* right, size_t frames);
  // The short-term loudness in LUFS once 3 s of audio have been added since
  // the start (or the last reset); -inf for silence.
  std::optional<double> shortTermLufs() const;
  void reset();

 private:
  void measure(const float* left, const float* right, size_t frames);

  ebur128_state* state_ = nullptr;
  unsigned rate_ = 0;
  size_t step_ = 1;         // the decimation at rate_
  size_t slice_ = 0;        // frames in a slice at rate_
  size_t cycle_ = 0;        // where in the period of kPeriodSlices slices the next frame falls
  size_t sliceAt_ = 0;      // where in the period the slice measured begins
  std::minstd_rand random_;
  size_t phase_ = 0;        // frames to skip before the next frame measured
  size_t framesAdded_ = 0;  // since the start, capped at 3 s
  float scratch_[2 * 1024];
};

}  // namespace belvane::detail
