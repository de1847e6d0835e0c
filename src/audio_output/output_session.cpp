// OutputSession: the stop signal shared by a player and its output thread.
#include "audio_output/output_backend.h"

namespace belvane::detail {

void OutputSession::requestStop() {
  std::lock_guard lock(mutex_);
  stop_ = true;
  changed_.notify_all();
}

bool OutputSession::stopRequested() const {
  std::lock_guard lock(mutex_);
  return stop_;
}

bool OutputSession::sleepUntil(std::chrono::steady_clock::time_point deadline) {
  std::unique_lock lock(mutex_);
  return !changed_.wait_until(lock, deadline, [this] { return stop_; });
}

void OutputSession::markExited() {
  std::lock_guard lock(mutex_);
  exited_ = true;
  changed_.notify_all();
}

bool OutputSession::waitExited(std::chrono::milliseconds timeout) {
  std::unique_lock lock(mutex_);
  return changed_.wait_for(lock, timeout, [this] { return exited_; });
}

}  // namespace belvane::detail
