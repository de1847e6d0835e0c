// ReceptionWatch: works out, for an engine player that writes through an
// AudioDelivery, what the listener hears of a playback (BVPlayerReception):
// prebuffering until the first sound, receiving while audio is heard, and,
// once the written audio has been played out without more coming,
// buffering or reconnecting with the seconds without audio and the tries.
//
// Everything runs on the playing thread's run loop. The watch does not wait
// on the audio path: it reads the delivery's estimate of when the written
// audio runs out and the engine's readings, and sets a one-shot timer for
// the moment that estimate passes (and, while audio is missing, four times a
// second), so a running-out and a return are seen within a few tenths of a
// second.
#pragma once

#include <belvane/BVBasePlayer.h>
#include <belvane/BVRunLoop.h>

#include <chrono>
#include <functional>
#include <memory>

namespace belvane::detail {

class AudioDelivery;

class ReceptionWatch {
 public:
  // What the engine knows; read on the run loop at each look.
  struct Readings {
    int32_t reconnectAttempts = 0;  // fresh connections tried since the playback started
    bool connectionBroken = false;  // between a break and the next connection's answer
    float prebufferFill = -1.0f;    // 0..1 before the first sound; negative: cannot tell
    bool paused = false;            // a paused file: nothing is missing
  };
  using Read = std::function<Readings()>;
  using Announce = std::function<void(const BVPlayerReception&)>;

  ReceptionWatch(std::shared_ptr<AudioDelivery> audio, Read read, Announce announce);
  ~ReceptionWatch();
  ReceptionWatch(const ReceptionWatch&) = delete;
  ReceptionWatch& operator=(const ReceptionWatch&) = delete;

  // A playback starts (Prebuffering) or ends (None); both announce.
  void start();
  void stop();
  // Looks now: for an engine that knows something changed (a try, a fill).
  void look();
  const BVPlayerReception& reception() const { return reception_; }

 private:
  void schedule(double seconds);

  std::shared_ptr<AudioDelivery> audio_;
  Read read_;
  Announce announce_;
  bool active_ = false;
  bool heardAudio_ = false;
  // When the audio heard last ran out, or will: the latest estimate seen
  // (the delivery's own starts again from nothing when its output restarts).
  std::chrono::steady_clock::time_point lastHeard_{};
  int32_t attemptsAtOutage_ = 0;
  BVPlayerReception reception_;
  BVTimerRef timer_;
};

}  // namespace belvane::detail
