// MovieAudioAdapter (see movie_audio_adapter.h).
#include "players/quicktime/movie_audio_adapter.h"

namespace belvane::detail {

void MovieAudioAdapter::detach() {
  // The interrupt releases a streaming thread blocked in the output or
  // waiting for it; the lock then waits for it to leave.
  audio_->interrupt();
  std::lock_guard lock(mutex_);
  attached_ = false;
}

void MovieAudioAdapter::movieAudio(float sampleRate, float** channels, int32_t frames) {
  std::lock_guard lock(mutex_);
  if (!attached_) return;
  audio_->write(sampleRate, channels, frames);
  if (sampleRate > 0 && frames > 0)
    secondsTaken_.store(secondsTaken_.load(std::memory_order_relaxed) + frames / double(sampleRate),
                        std::memory_order_relaxed);
}

void MovieAudioAdapter::movieAudioFlushed() {
  std::lock_guard lock(mutex_);
  secondsTaken_.store(0.0, std::memory_order_relaxed);
  if (attached_) audio_->flushed();
}

void MovieAudioAdapter::movieDropUntilFlushed() { audio_->dropHeldWrite(); }

void MovieAudioAdapter::movieStreamTitle(const StreamTitle& title) {
  std::lock_guard lock(mutex_);
  if (attached_) audio_->title(title, 0);
}

void MovieAudioAdapter::movieAudioDiscontinuity() {
  std::lock_guard lock(mutex_);
  if (attached_) audio_->forgetPendingTitles();
}

void MovieAudioAdapter::movieAudioEnded() {
  std::lock_guard lock(mutex_);
  if (attached_) audio_->playOut();
}

}  // namespace belvane::detail
