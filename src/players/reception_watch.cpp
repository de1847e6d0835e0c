// ReceptionWatch: the listener's view of a playback (see reception_watch.h).
#include "players/reception_watch.h"

#include <algorithm>
#include <cmath>

#include "players/audio_delivery.h"

namespace belvane::detail {
namespace {
using Clock = std::chrono::steady_clock;
// Looks while the first sound is awaited, so the fill is seen as it grows.
constexpr double kPrebufferLook = 0.1;
// The shortest and longest wait for the next look while audio flows: the
// estimate moves with every write, so a look just after it passed may find
// it moved on; the longest bounds how late a running-out is seen when the
// writes stop at once.
constexpr double kShortestLook = 0.05, kLongestLook = 0.5;
// Looks while audio is missing, so its return is seen within this.
constexpr double kOutageLook = 0.25;
// A prebuffer fill announced again only after it grew by this much.
constexpr float kFillStep = 0.1f;
}  // namespace

ReceptionWatch::ReceptionWatch(std::shared_ptr<AudioDelivery> audio, Read read, Announce announce)
    : audio_(std::move(audio)), read_(std::move(read)), announce_(std::move(announce)) {}

ReceptionWatch::~ReceptionWatch() {
  if (timer_) timer_->invalidate();
}

void ReceptionWatch::start() {
  active_ = true;
  heardAudio_ = false;
  lastHeard_ = {};
  attemptsAtOutage_ = 0;
  reception_ = {};
  look();
}

void ReceptionWatch::stop() {
  if (timer_) timer_->invalidate();
  timer_.reset();
  if (!active_) return;
  active_ = false;
  reception_ = {};
  announce_(reception_);
}

void ReceptionWatch::look() {
  if (!active_) return;
  const Readings readings = read_();
  const auto now = Clock::now();
  const auto runsOut = audio_->audioRunsOutAt();
  const bool written = runsOut != Clock::time_point{};
  if (written) lastHeard_ = std::max(lastHeard_, runsOut);
  BVPlayerReception next;
  double wait = kLongestLook;
  if (!heardAudio_ && !written) {
    next.state = BVPlayerReceptionPrebuffering;
    float fill = std::clamp(readings.prebufferFill, 0.0f, 1.0f);
    // Announced in steps, so a filling buffer makes a few calls, not many.
    next.prebufferProgress = std::floor(fill / kFillStep) * kFillStep;
    wait = kPrebufferLook;
  } else if ((written && now < runsOut) || readings.paused || audio_->isEnding()) {
    heardAudio_ = true;
    if (readings.paused) lastHeard_ = std::max(lastHeard_, now);  // a pause is no gap
    next.state = BVPlayerReceptionReceiving;
    next.prebufferProgress = 1.0f;
    // Tries count from the last look that found the connection whole.
    if (!readings.connectionBroken) attemptsAtOutage_ = readings.reconnectAttempts;
    wait = std::clamp(std::chrono::duration<double>(runsOut - now).count() + kShortestLook, kShortestLook, kLongestLook);
  } else {
    heardAudio_ = true;
    // A new connection handle counts from nothing again.
    attemptsAtOutage_ = std::min(attemptsAtOutage_, readings.reconnectAttempts);
    next.tries = readings.reconnectAttempts - attemptsAtOutage_;
    next.state = (readings.connectionBroken || next.tries > 0) ? BVPlayerReceptionReconnecting
                                                               : BVPlayerReceptionBuffering;
    double without = std::max(0.0, std::chrono::duration<double>(now - lastHeard_).count());
    next.secondsWithoutAudio = std::floor(without);
    next.prebufferProgress = 1.0f;
    // Often enough to see the audio come back soon, and each new second.
    wait = std::clamp(next.secondsWithoutAudio + 1.0 - without, kShortestLook, kOutageLook);
  }
  schedule(wait);
  // Last: the owner may let the player (and this watch) go when told.
  if (next != reception_) {
    reception_ = next;
    announce_(next);
  }
}

void ReceptionWatch::schedule(double seconds) {
  if (timer_) timer_->invalidate();
  timer_ = BVTimer::scheduledTimer(seconds, false, [this](BVTimer&) { look(); });
}

}  // namespace belvane::detail
