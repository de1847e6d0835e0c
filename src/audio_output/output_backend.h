// OutputBackend: one way of playing interleaved stereo float frames (a sound
// server, a sound card, a file, or nothing), and OutputSession, the stop
// signal one run of a player's output thread shares with its player.
//
// A backend is used by one thread at a time: orplayer_start opens it, then
// the output thread owns it until it closes it by destroying it.
#pragma once

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <string>

#include <belvane/BVAudioOutputSetting.h>

namespace belvane::detail {

class OutputSession {
 public:
  void requestStop();
  bool stopRequested() const;
  // Sleeps until `deadline`; false when a stop was requested first.
  bool sleepUntil(std::chrono::steady_clock::time_point deadline);
  // The output thread has finished with the backend and the player.
  void markExited();
  bool waitExited(std::chrono::milliseconds timeout);

 private:
  mutable std::mutex mutex_;
  std::condition_variable changed_;
  bool stop_ = false;
  bool exited_ = false;
};

class OutputBackend {
 public:
  virtual ~OutputBackend() = default;  // closes; a file is completed

  // Short name for diagnostics: "pulse", "alsa", "null", "null:fast", "wav".
  virtual const char* name() const = 0;
  // The device in use, as an output setting names it ("pulse:SINK",
  // "alsa:DEVICE"); the short name for outputs without devices. Any thread.
  virtual std::string device() const { return name(); }
  // Plays on to the output `setting` names (a sink of the same sound server)
  // without reopening; false when this backend cannot (the caller then opens
  // a new backend). Called by the thread that writes.
  virtual bool moveTo(const BVAudioOutputSetting& /*setting*/) { return false; }
  // Told (on any thread, never under the caller's locks) when the device in
  // use changes by itself: the server moved the stream because its device
  // went away or the system default changed. Set from any thread (a sound
  // server may move the stream, and tell, as soon as it is open).
  void setDeviceListener(std::function<void(const std::string&)> listener) {
    std::lock_guard lock(listenerMutex_);
    deviceListener_ = std::move(listener);
  }
  // Whether writing takes as long as playing (a device, or null).
  virtual bool paced() const = 0;
  // Whether play_wait may write to it on the caller's thread: writes that
  // never block, or block only in OutputSession::sleepUntil, which a stop
  // interrupts. Sound servers and cards, whose calls may block beyond our
  // reach, get an output thread instead.
  virtual bool writableByCaller() const { return !paced(); }
  // Whether it ignores the samples it is given (null): the writer then
  // skips preparing them.
  virtual bool discardsSamples() const { return false; }
  // When everything handed over will have been heard (now, for an unpaced
  // backend); read by the thread that writes.
  virtual std::chrono::steady_clock::time_point playedOutAt() const { return std::chrono::steady_clock::now(); }
  // Opens for two channels at `rate`: 0, or an orplayer error code, with
  // why in failureReason() (a listener-readable clause).
  virtual int open(unsigned rate) = 0;
  const std::string& failureReason() const { return failureReason_; }
  unsigned rate() const { return rate_; }
  // Hands frames over, blocking while the device is full. False on failure
  // (or when the session was asked to stop).
  virtual bool write(const float* interleaved, size_t frames) = 0;
  // Returns once everything handed over has been heard.
  virtual void drain() = 0;
  // Throws away what the device still holds (a stop).
  virtual void discard() {}
  // Follows a change of sample rate; called after drain(). 0 or an error code.
  virtual int changeRate(unsigned rate) = 0;
  // Times the device ran dry while being written to since the last call
  // (an underrun: the listener heard a gap), as far as the backend knows.
  virtual uint64_t takeUnderruns() { return 0; }
  // After a failed write: try to get going again (for example after the
  // sound server restarted). False when the backend cannot.
  virtual bool recover() { return false; }
  // Whether a write failure ends the playback (a recording, which must not
  // go on silently), with failureReason() saying why; otherwise a backend
  // that cannot recover is replaced by a silent one and the playback goes on.
  virtual bool failureEndsPlayback() const { return false; }

 protected:
  // The backend's own thread (a sound server's callback).
  void deviceChanged(const std::string& device) {
    std::function<void(const std::string&)> listener;
    {
      std::lock_guard lock(listenerMutex_);
      listener = deviceListener_;
    }
    if (listener) listener(device);
  }
  unsigned rate_ = 0;
  std::string failureReason_;
  std::mutex listenerMutex_;
  std::function<void(const std::string&)> deviceListener_;  // guarded by listenerMutex_
};

// Device buffer length asked of paced outputs, in seconds.
std::unique_ptr<OutputBackend> makeNullOutput(bool paced, double deviceSeconds, std::shared_ptr<OutputSession> session);
class OutputPlayback;
// playback: the playback the file belongs to (continued within it); may be null.
std::unique_ptr<OutputBackend> makeWavOutput(const std::string& path, std::shared_ptr<OutputPlayback> playback);
// An empty sink or device means the system default (followed as it changes).
std::unique_ptr<OutputBackend> makePulseOutput(double deviceSeconds, const std::string& sink);
std::unique_ptr<OutputBackend> makeAlsaOutput(double deviceSeconds, const std::string& device);
// Whether the system has any ALSA sound card (the automatic choice skips
// ALSA without one, rather than have it fail noisily).
bool alsaCardPresent();

}  // namespace belvane::detail
