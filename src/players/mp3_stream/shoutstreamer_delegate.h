// BVShoutstreamerDelegate: the bridge between the streaming library's
// callback thread and the MP3 stream player, and the owner of the audio
// output. Audio is written straight to the output on the library's thread
// (blocking is the stream's flow control); stream titles are held back
// until the audio buffered ahead of them has been written; state changes
// and titles reach the owner on the run loop of the thread that started
// playback.
#pragma once

#include <belvane/BVRunLoop.h>

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>

#include "foundation/thread_annotations.h"
#include "players/audio_delivery.h"
#include "streaming/shoutstreamer.h"

class BVMP3StreamPlayer;

namespace belvane::detail {

// A change of the streaming library's state, as the delegate hands it from
// the library's thread to the player on the run loop.
struct StreamerStateChange {
  int oldState = 0;
  int newState = 0;
  int32_t errorCode = 0;
};

}  // namespace belvane::detail

class BVShoutstreamerDelegate : public std::enable_shared_from_this<BVShoutstreamerDelegate>,
                                private belvane::detail::AudioDeliveryClient {
 public:
  static std::shared_ptr<BVShoutstreamerDelegate> create();
  ~BVShoutstreamerDelegate() override;
  BVShoutstreamerDelegate(const BVShoutstreamerDelegate&) = delete;
  BVShoutstreamerDelegate& operator=(const BVShoutstreamerDelegate&) = delete;

  // The player this delegate reports to (weak: the player owns the delegate);
  // null once the player is gone or being destroyed.
  std::shared_ptr<BVMP3StreamPlayer> owner();
  void setOwner(std::weak_ptr<BVMP3StreamPlayer> owner);
  // Where main-thread hand-offs go: the loop of the thread that plays, which
  // must be the calling thread.
  void setRunLoop(const BVRunLoop& loop);

  int startAudioPlayer();
  // Lets the output play out what it holds, then stops it and tells the
  // owner (didStopAudioPlayer) on the run loop: at once when nothing plays,
  // else when the output says it has drained.
  void askAudioPlayerToStop();
  // Linux addition: stops the output at once, dropping what is queued, and
  // forgets a drain in progress (the player moves on to another link).
  void stopAudioPlayerNow();

  void setVolume(float volume) { _audio->setVolume(volume); }
  float volume() const { return _audio->volume(); }
  void setMuted(bool muted) { _audio->setMuted(muted); }
  bool isMuted() const { return _audio->isMuted(); }

  // Linux additions: the output to open at the next start, and what it has written.
  const std::shared_ptr<belvane::detail::AudioDelivery>& audio() const { return _audio; }

  // Linux additions for seeking in a file. Between two streams (none runs):
  // the next stream's first `skipFrames` frames are decoded but not played,
  // the count of frames played starts again, and state changes the last
  // stream left queued are dropped.
  void startOver(uint64_t skipFrames);
  // Frames handed to the output since the stream started (or startOver),
  // and their rate (0 before the first).
  uint64_t framesDelivered() const { return framesDelivered_; }
  int sampleRate() const { return sampleRate_; }

  // Called from the streaming library's delivery thread.
  void shoutstreamerChangedState(int oldState, int newState, int32_t errorCode);
  void shoutstreamerDidProvideAudio(float sampleRate, float** data, int32_t frames);
  // The title with the StreamUrl the station sent with it (empty: none).
  void shoutstreamerDidProvideTitle(const std::string& title, int32_t framesBuffered, const std::string& url = {}) {
    _audio->title({title, url}, framesBuffered);
  }
  // On the run loop: hands a due title to the owner.
  void shoutstreamerDidProvideTitle(const std::shared_ptr<const belvane::detail::StreamTitle>& title);

  // The library's callbacks, with this delegate as their context.
  static void stateCallback(shoutstreamer_t streamer, int oldState, int newState);
  static void audioCallback(shoutstreamer_t streamer, float sampleRate, float** channels, int32_t frames);
  static void titleCallback(shoutstreamer_t streamer, const char* bytes, int32_t length, int32_t framesBuffered);
  static void interruptCallback(shoutstreamer_t streamer);

 private:
  BVShoutstreamerDelegate();
  void audioDeliveryTitleDue(const std::shared_ptr<const belvane::detail::StreamTitle>& title) override {
    shoutstreamerDidProvideTitle(title);
  }
  void audioDeliveryStoppedAtTitle() override;
  void audioDeliveryOutputChanged(const std::string& device) override;
  void audioDeliveryOutputFailed(const BVErrorRef& error) override;
  void audioDeliveryDrained() override;
  void performOnRunLoop(std::function<void(BVShoutstreamerDelegate&)> fn);

  std::shared_ptr<belvane::detail::AudioDelivery> _audio;
  bool draining_ = false;  // run loop only: askAudioPlayerToStop waits for the drain
  mutable belvane::detail::Mutex ownerMutex_;
  std::weak_ptr<BVMP3StreamPlayer> _owner GUARDED_BY(ownerMutex_);
  mutable belvane::detail::Mutex loopMutex_;
  BVRunLoop loop_ GUARDED_BY(loopMutex_);
  std::atomic<uint64_t> skipFrames_{0};
  std::atomic<uint64_t> framesDelivered_{0};
  std::atomic<int> sampleRate_{0};
  std::atomic<uint64_t> generation_{0};  // counts startOver calls
};
