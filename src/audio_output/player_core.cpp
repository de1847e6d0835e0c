// PlayerCore's lifecycle as the waits see it: whether it plays, the end of a
// play-out, and the blocking waits for frames written and for the play-out's
// end that orplayer_wait_written and orplayer_wait_drained expose.
#include "audio_output/player_core.h"

#include <algorithm>

namespace belvane::detail {

using Clock = std::chrono::steady_clock;

bool PlayerCore::isPlaying(Clock::time_point now) {
  // A direct output has no thread to end its play-out: it ends when the
  // time its backend named for it has come.
  if (directOutput && state == State::Draining && now >= directPlayedOutAt) state = State::Drained;
  return state == State::Playing || state == State::Draining;
}

void PlayerCore::finishDrain() {
  state = State::Drained;
  progress.notify_all();
}

void PlayerCore::noteWritten() {
  if (progressWaiters > 0 && framesWritten.load(std::memory_order_relaxed) >= writtenWanted) progress.notify_all();
}

bool PlayerCore::waitWritten(uint64_t frames, Clock::time_point deadline) {
  std::unique_lock lock(mutex);
  const uint64_t id = session;
  for (;;) {
    // framesWritten grows outside the mutex, but the output thread takes
    // the mutex after adding to it before it looks for waiters to wake.
    if (framesWritten.load(std::memory_order_relaxed) >= frames) return true;
    const auto now = Clock::now();
    if (session != id || !isPlaying(now) || now >= deadline) return false;
    ++progressWaiters;
    writtenWanted = std::min(writtenWanted, frames);
    progress.wait_until(lock, deadline);
    if (--progressWaiters == 0) writtenWanted = UINT64_MAX;
  }
}

bool PlayerCore::waitDrained(Clock::time_point deadline) {
  std::unique_lock lock(mutex);
  const uint64_t id = session;
  for (;;) {
    const auto now = Clock::now();
    if (session != id || !isPlaying(now)) return true;
    if (now >= deadline) return false;
    // A direct output's play-out ends at a known time; a threaded one's
    // when its thread says so.
    auto until = directOutput && state == State::Draining ? std::min(deadline, directPlayedOutAt) : deadline;
    ++progressWaiters;
    progress.wait_until(lock, until);
    if (--progressWaiters == 0) writtenWanted = UINT64_MAX;
  }
}

// The listener is called under its own mutex, so that clearing it (the
// player going away) waits for a call in progress.
void PlayerCore::setDrainedListener(void (*listener)(double, void*), void* context) {
  std::lock_guard lock(drainedMutex_);
  drainedListener_ = listener;
  drainedListenerContext_ = context;
}

void PlayerCore::tellDrained(double seconds) {
  std::lock_guard lock(drainedMutex_);
  if (drainedListener_) drainedListener_(seconds, drainedListenerContext_);
}

}  // namespace belvane::detail
