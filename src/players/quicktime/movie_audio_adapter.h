// MovieAudioAdapter: a movie's audio sink that writes into the player's
// AudioDelivery, the audio path every engine in our process shares. One
// adapter serves one movie: once detached, whatever the movie's streaming
// threads still deliver is dropped, so a player can release a movie and
// start the next on the same output without a stale frame or title slipping
// into it.
#pragma once

#include <atomic>
#include <memory>
#include <mutex>

#include "movie/movie_audio_sink.h"
#include "players/audio_delivery.h"

namespace belvane::detail {

class MovieAudioAdapter final : public MovieAudioSink {
 public:
  explicit MovieAudioAdapter(std::shared_ptr<AudioDelivery> audio) : audio_(std::move(audio)) {}

  // Stops the output at once (its queued audio is dropped) and returns once
  // no streaming thread is inside the adapter any more. Later calls are
  // dropped.
  void detach();

  void movieAudio(float sampleRate, float** channels, int32_t frames) override;
  void movieStreamTitle(const StreamTitle& title) override;
  void movieAudioDiscontinuity() override;
  void movieAudioEnded() override;
  void movieAudioFlushed() override;
  void movieDropUntilFlushed() override;
  double movieSecondsTaken() const override { return secondsTaken_.load(std::memory_order_relaxed); }

 private:
  std::shared_ptr<AudioDelivery> audio_;
  std::mutex mutex_;  // held by a streaming thread for the whole of its call
  bool attached_ = true;
  std::atomic<double> secondsTaken_{0.0};  // written by the streaming thread
};

}  // namespace belvane::detail
