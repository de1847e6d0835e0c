// PlayerCore: the state a player shares between its writer (play_wait), its
// output thread and the controlling calls, all guarded by one mutex except
// the atomics; and runOutput, the body of the output thread, which moves
// frames from the queue to the backend, follows rate changes, plays out on
// play_done and replaces a backend that fails.
//
// The core's lifecycle is one state (PlayerCore::State). Whoever moves it, or
// hands frames to the device, wakes the threads blocked in waitWritten and
// waitDrained (the `progress` condition); the drained listener hears each
// play-out that completes, so that a host learns of the end without polling.
#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>

#include "audio_output/frame_ring.h"
#include "audio_output/gain_ramp.h"
#include "audio_output/output_backend.h"
#include "audio_output/output_setting.h"

namespace belvane::detail {

constexpr unsigned kInitialRate = 44100;
// Queue limit and device buffer, in seconds, with and without
// ORPLAYER_OPTION_LOW_LATENCY.
constexpr double kShortQueue = 0.10, kShortDevice = 0.15;
constexpr double kLongQueue = 0.50, kLongDevice = 0.50;

// What the writer, the output thread and the controlling calls share.
struct PlayerCore {
  // The lifecycle. A start leads to Started; the first frame queued to
  // Playing; play_done to Draining (Drained when nothing was playing); the
  // play-out's end to Drained; more frames back to Playing. A failure that
  // ends the output (a file) leads to Failed until the next start. A stop
  // leads back to Idle, destroy to Closed.
  enum class State { Idle, Started, Playing, Draining, Drained, Failed, Closed };

  std::mutex mutex;
  std::condition_variable room;      // the writer waits for room, destroy for the writer
  std::condition_variable work;      // the output thread waits for frames
  std::condition_variable progress;  // waitWritten and waitDrained: frames written, state moved
  FrameRing ring;
  uint64_t session = 0;  // bumped by every start and stop; a thread of an old session quits
  State state = State::Idle;
  // Which way this session's frames go, fixed from start to stop: play_wait
  // writes the backend itself (no output thread).
  bool directOutput = false;
  // Direct output: when what has been written will have been heard.
  std::chrono::steady_clock::time_point directPlayedOutAt{};
  int writers = 0;       // threads inside play_wait
  unsigned lastRate = kInitialRate;
  double queueSeconds = kShortQueue;
  // Who waits for what, so that each side wakes the other only when the
  // wait can end: the room (in frames at writerRate) the writers wait for,
  // SIZE_MAX while none waits; the frames the output thread waits for.
  int waitingWriters = 0;
  size_t writerNeeds = SIZE_MAX;
  unsigned writerRate = kInitialRate;
  int outputWaiters = 0;
  size_t outputWants = 1;
  // Threads in waitWritten or waitDrained, and the fewest frames written
  // one of them waits for (UINT64_MAX while none waits for frames): the
  // output thread wakes them only when a wait can end.
  int progressWaiters = 0;
  uint64_t writtenWanted = UINT64_MAX;

  // A session is open: frames are taken (unless it failed) and play_done
  // means something.
  bool isOpen() const { return state != State::Idle && state != State::Closed; }
  // Writes are taken: open and not failed.
  bool takesFrames() const { return isOpen() && state != State::Failed; }
  // Queued frames have not all been heard yet (orplayer_is_playing). For a
  // direct output a play-out ends at directPlayedOutAt, which this notes.
  bool isPlaying(std::chrono::steady_clock::time_point now);
  // With the mutex held: marks a play-out complete and wakes the waits (the
  // caller then tells the drained listener, without the mutex).
  void finishDrain();
  // Block until `frames` frames have been written in all (true), or until
  // nothing is playing, the session changes or `deadline` passes (false);
  // waitDrained until nothing plays (true) or `deadline` (false). A stop
  // ends both at once.
  bool waitWritten(uint64_t frames, std::chrono::steady_clock::time_point deadline);
  bool waitDrained(std::chrono::steady_clock::time_point deadline);
  // With the mutex held: after frames were written, wakes a waitWritten
  // that can end.
  void noteWritten();

  // The gain as it stands (moved by a ramp as its audio leaves the queue),
  // and the ramp in progress, guarded by the mutex.
  std::atomic<float> gain{1.0f};
  GainRamp ramp;
  std::atomic<uint64_t> framesWritten{0};
  std::atomic<const char*> outputName{"none"};
  std::atomic<bool> realTime{false};
  std::atomic<uint64_t> underruns{0};  // the backend takes as long as playing

  // The failure that ended the output while playing (an orplayer error
  // code, 0 for none, and why), cleared by a start; writes are dropped
  // meanwhile. Guarded by the mutex.
  int failure = 0;
  std::string failureReason;

  // A change of output while playing: orplayer_set_output sets the setting
  // and bumps the generation; the output thread moves to it. Guarded by the mutex.
  BVAudioOutputSetting target;  // resolved
  uint64_t targetGeneration = 0;
  // The playback the output belongs to (see OutputPlayback); may be null.
  std::shared_ptr<OutputPlayback> playback;

  // The device in use ("pulse:SINK"), and who hears when it changes.
  void noteDevice(const std::string& device, bool tell);
  std::string device() const;
  void setDeviceListener(void (*listener)(const char*, void*), void* context);
  // A listener for a backend: notes (and tells) the device it moved to.
  static std::function<void(const std::string&)> deviceListenerFor(const std::shared_ptr<PlayerCore>& core);
  // Who hears that a play-out ended or will end (orplayer_set_drained_listener):
  // called without the core's mutex, with the seconds until it ends (0: it has).
  void setDrainedListener(void (*listener)(double, void*), void* context);
  void tellDrained(double seconds);

 private:
  std::mutex drainedMutex_;
  void (*drainedListener_)(double, void*) = nullptr;
  void* drainedListenerContext_ = nullptr;
  mutable std::mutex deviceMutex_;
  std::string device_;
  void (*deviceListener_)(const char*, void*) = nullptr;
  void* deviceListenerContext_ = nullptr;
};

// Moves a playing output to `target` (see PlayerCore::target): the backend
// moves if it can, else a new backend is opened and replaces it; a failure
// keeps the old one. The thread that writes calls it.
void switchBackend(std::unique_ptr<OutputBackend>& backend, const std::shared_ptr<PlayerCore>& core,
                   const BVAudioOutputSetting& target, double deviceSeconds, const std::shared_ptr<OutputSession>& session);

// Replaces a failed backend: first by reopening it, then by a null output
// paced like it, so that the stream keeps its flow control. A backend whose
// failure ends the playback (a file) is replaced by an unpaced null output
// and the failure is noted in the core (PlayerCore::failure).
void recoverBackend(std::unique_ptr<OutputBackend>& backend, PlayerCore& core, double deviceSeconds,
                    const std::shared_ptr<OutputSession>& session);

// Runs until core.session no longer equals `session`; then discards what the
// device holds, closes the backend and marks the run's session exited.
void runOutput(std::shared_ptr<PlayerCore> core, std::shared_ptr<OutputSession> run, uint64_t session,
               std::unique_ptr<OutputBackend> backend, double deviceSeconds);

}  // namespace belvane::detail
