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
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <memory>
#include <mutex>
#include <string>
#include <thread>

#include "audio_output/orplayer.h"
#include "streaming/shoutstreamer.h"

class BVMP3StreamPlayer;

class BVShoutstreamerDelegate : public std::enable_shared_from_this<BVShoutstreamerDelegate> {
 public:
  static std::shared_ptr<BVShoutstreamerDelegate> create();
  ~BVShoutstreamerDelegate();
  BVShoutstreamerDelegate(const BVShoutstreamerDelegate&) = delete;
  BVShoutstreamerDelegate& operator=(const BVShoutstreamerDelegate&) = delete;

  BVMP3StreamPlayer* owner();
  void setOwner(BVMP3StreamPlayer* owner);
  // Where main-thread hand-offs go: the loop of the thread that plays, which
  // must be the calling thread.
  void setRunLoop(const BVRunLoop& loop);

  int startAudioPlayer();
  void askAudioPlayerToStop();
  void checkPlayerDone(BVTimer& timer);

  void setVolume(float volume);
  float volume() const;
  void setMuted(bool muted);
  bool isMuted() const { return _unmutedVolume >= 0; }

  // Linux additions: the output to open at the next start ("auto", "pulse",
  // "alsa", "null", "null:fast", "wav:PATH"), and what it has written.
  int setAudioOutput(const std::string& setting);
  uint64_t framesWritten() const;
  const char* outputName() const;

  // Called from the streaming library's delivery thread.
  void shoutstreamerChangedState(int oldState, int newState, int32_t errorCode);
  void shoutstreamerDidProvideAudio(float sampleRate, float** data, int32_t frames);
  void shoutstreamerDidProvideTitle(const std::string& title, int32_t framesBuffered);
  // On the run loop: hands a due title to the owner.
  void shoutstreamerDidProvideTitle(const std::shared_ptr<const std::string>& title);

  // The library's callbacks, with this delegate as their context.
  static void stateCallback(shoutstreamer_t streamer, int oldState, int newState);
  static void audioCallback(shoutstreamer_t streamer, float sampleRate, float** channels, int32_t frames);
  static void titleCallback(shoutstreamer_t streamer, const char* bytes, int32_t length, int32_t framesBuffered);
  static void interruptCallback(shoutstreamer_t streamer);

 private:
  BVShoutstreamerDelegate();
  struct PendingTitle {
    std::string title;
    int32_t framesBuffered;
  };
  void announceTitle(std::string title, bool waitForAnnouncement);
  void writeAudio(float sampleRate, float** data, int32_t from, int32_t count);
  void waitUntilWritten();
  void performOnRunLoop(std::function<void(BVShoutstreamerDelegate&)> fn);

  orplayer_t _orplayer = nullptr;
  BVTimerRef _checkPlayerDoneTimer;
  std::deque<PendingTitle> _bufferedTitles;  // delivery thread only
  int32_t _framesBuffered = 0;               // delivery thread only
  uint64_t framesQueued_ = 0;                // delivery thread only
  float lastSampleRate_ = 44100;             // of the last write; delivery thread only
  std::mutex ackMutex_;
  std::condition_variable ackCondition_;
  uint64_t titlesSent_ = 0, titlesAnnounced_ = 0;
  std::atomic<bool> interrupted_{false};
  mutable std::mutex ownerMutex_;
  BVMP3StreamPlayer* _owner = nullptr;
  float _unmutedVolume = -1.0f;
  mutable std::mutex loopMutex_;
  BVRunLoop loop_;
  std::thread::id loopThread_ = std::this_thread::get_id();
};
