// LoudnessControl: loudness normalisation of the audio on its way to the
// output. It measures the station's own loudness (LoudnessMeter, before any
// gain) and moves a gain of its own toward the one that brings it to the
// target (default -18 LUFS), smoothly (GainRamp, frame by frame), so that
// stations play at matched loudness. This gain multiplies the audio before
// the output's, so the listener's volume and fades act on top of it
// (volume x normalisation).
//
// How the gain moves: nothing changes until 3 s of audio have been measured;
// then the gain heads for (target - short-term loudness), kept between -24
// and +12 dB, over 1 s; after that it is looked at every half second of
// audio and, when it should move by more than 0.5 dB, it heads there over
// 2 s (within half a dB it stays put, so it does not ride every phrase).
// Silence (below -70 LUFS) leaves the gain where it is, so pauses between
// songs are not pumped up.
// The ceiling: the gain never lifts the sample peak of the last seconds of
// audio above -1 dBFS (the peak held falls 0.5 dB a second), and a block
// that would pass it with the gain in force brings the gain down within
// 5 ms. Every sample is looked at while the gain is above -3.3 dB; below
// it, nothing a decoder gives (at most +2.3 dBFS) can pass the ceiling, and
// the peaks are not looked at (a gain that then rises is capped by the first
// block it would lift too high). The gain a station settled on is
// remembered (LoudnessMemory, by the station's URL), and its next play starts
// there; turning normalisation off moves the gain back to unity over 1 s.
//
// Threads: setEnabled, setTarget and their readers from any thread;
// setStation on the thread that starts the playback, before its audio
// comes; process on the one thread that hands frames to the output (it may
// change between playbacks, never during one).
#pragma once

#include <atomic>
#include <cstddef>
#include <string>
#include <vector>

#include "audio_output/gain_ramp.h"
#include "audio_output/loudness_meter.h"
#include "foundation/thread_annotations.h"

namespace belvane::detail {

class LoudnessControl {
 public:
  static constexpr double kDefaultTarget = -18.0;

  LoudnessControl() = default;
  // Remembers the gain of the station that played.
  ~LoudnessControl();
  LoudnessControl(const LoudnessControl&) = delete;
  LoudnessControl& operator=(const LoudnessControl&) = delete;

  void setEnabled(bool enabled) { enabled_ = enabled; }
  bool isEnabled() const { return enabled_; }
  // In LUFS; not-a-number and values outside -70 to 0 are ignored.
  void setTarget(double lufs);
  double target() const { return target_; }

  // The station (its URL) whose audio comes next: the gain of the one
  // before is remembered, and the measure starts again from this one's
  // remembered gain (unity when none).
  void setStation(const std::string& station);

  // The audio to hand to the output in place of `channels` (a null right
  // channel stays null): `channels` itself while normalisation is off and
  // the gain at unity, else the control's own copy at its gain, valid
  // until the next call.
  float** process(unsigned rate, float** channels, size_t frames);

  // The gain (dB) applied to the audio handed over last; any thread.
  double gainDb() const;

 private:
  void restart();
  void steer(unsigned rate, float blockPeak, size_t frames);
  void remember();

  std::atomic<bool> enabled_{false};
  std::atomic<double> target_{kDefaultTarget};
  std::atomic<float> gainShown_{1.0f};  // gain_ after the last block

  Mutex stationMutex_;
  std::string station_ GUARDED_BY(stationMutex_);
  double settledDb_ GUARDED_BY(stationMutex_) = 0;  // where the gain last headed
  bool settled_ GUARDED_BY(stationMutex_) = false;  // it has headed somewhere
  double startDb_ GUARDED_BY(stationMutex_) = 0;    // the remembered gain
  std::atomic<bool> restart_{false};  // setStation asks the processing thread to start over

  // Processing thread only.
  LoudnessMeter meter_;
  GainRamp ramp_;
  float gain_ = 1.0f;
  float peakHeld_ = 0.0f;
  size_t framesToSteer_ = 0;
  bool wasEnabled_ = false;
  bool moved_ = false;  // the gain has followed a measure in this playback
  std::vector<float> left_, right_;
  float* out_[2] = {nullptr, nullptr};
};

}  // namespace belvane::detail
