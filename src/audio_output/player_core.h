// PlayerCore: the state a player shares between its writer (play_wait), its
// output thread and the controlling calls, all guarded by one mutex except
// the atomics; and runOutput, the body of the output thread, which moves
// frames from the queue to the backend, follows rate changes, plays out on
// play_done and replaces a backend that fails.
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
  std::mutex mutex;
  std::condition_variable room;  // the writer waits for room, destroy for the writer
  std::condition_variable work;  // the output thread waits for frames
  FrameRing ring;
  uint64_t session = 0;  // bumped by every start and stop; a thread of an old session quits
  bool running = false;
  bool audible = false;  // "playing": queued frames not yet heard
  bool done = false;     // play_done: play everything out
  bool closing = false;  // being destroyed
  bool directOutput = false;  // a backend that play_wait writes itself
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

 private:
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
