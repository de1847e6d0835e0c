// StreamRecorder: a shoutstreamer client for tests. It records every
// callback (states, frames, rates, titles with the frame position they
// announce, the calling threads), can hold the audio callback blocked the
// way a full output would, can destroy its stream from inside a callback,
// and destroys it at the end.
#pragma once

#include "streaming/shoutstreamer.h"
#include "streaming/shoutstreamer_tuning.h"
#include "support/icy_test_server.h"

#include <gtest/gtest.h>

#include <chrono>
#include <cstdlib>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <mutex>
#include <set>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace belvane::test {

// Short time-outs so failure tests finish quickly.
inline detail::ShoutstreamerTuning fastTuning() {
  detail::ShoutstreamerTuning t;
  t.connectTimeout = 2.0;
  t.stallTimeout = 1.0;
  t.reconnectWindow = 2.0;
  t.reconnectFirstDelay = 0.1;
  return t;
}

// A script sending audioBytes of the stereo 44.1 kHz tone, then `end`.
inline IcyStreamScript toneScript(uint64_t audioBytes, IcyStreamScript::End end = IcyStreamScript::End::Close) {
  IcyStreamScript script;
  script.audio = {stereoTone44k()};
  script.audioBytes = audioBytes;
  script.end = end;
  return script;
}

class StreamRecorder {
 public:
  struct Title {
    std::string text;
    uint64_t position;  // frames delivered before the call + framesBuffered
  };

  explicit StreamRecorder(const detail::ShoutstreamerTuning& tuning = fastTuning()) {
    streamer_ = shoutstreamer_create();
    detail::shoutstreamerSetTuning(streamer_, tuning);
    shoutstreamer_set_interrupt_callback(streamer_, &StreamRecorder::onInterrupt);
  }
  ~StreamRecorder() { destroy(); }

  int start(const std::string& url) {
    return shoutstreamer_start(streamer_, url.c_str(), this, &onState, &onAudio, nullptr, &onTitle);
  }
  // Destroys the stream (once); returns the seconds it took.
  double destroy() {
    if (!streamer_) return 0;
    auto started = std::chrono::steady_clock::now();
    shoutstreamer_destroy(streamer_);
    streamer_ = nullptr;
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - started).count();
  }
  shoutstreamer_t streamer() const { return streamer_; }

  bool waitFor(const std::function<bool()>& condition, double timeout = 10.0) {
    std::unique_lock lock(mutex_);
    return changed_.wait_for(lock, std::chrono::duration<double>(timeout), condition);
  }
  bool waitForState(int state, double timeout = 10.0) {
    return waitFor([&] { return reached(state); }, timeout);
  }
  bool waitForFrames(uint64_t frames, double timeout = 10.0) {
    return waitFor([&] { return frames_ >= frames; }, timeout);
  }

  // Every accessor below locks; the lambdas given to waitFor run locked and
  // use the unlocked names (reached, frames_, ...).
  std::vector<std::pair<int, int>> states() const {
    std::lock_guard lock(mutex_);
    return states_;
  }
  int lastState() const {
    std::lock_guard lock(mutex_);
    return states_.empty() ? -1 : states_.back().second;
  }
  uint64_t frames() const {
    std::lock_guard lock(mutex_);
    return frames_;
  }
  std::vector<Title> titles() const {
    std::lock_guard lock(mutex_);
    return titles_;
  }
  std::vector<std::pair<long, uint64_t>> rateChanges() const {
    std::lock_guard lock(mutex_);
    return rates_;
  }
  bool channelsDiffered() const {
    std::lock_guard lock(mutex_);
    return channelsDiffered_;
  }
  bool oneCallbackThread() const {
    std::lock_guard lock(mutex_);
    return threads_.size() == 1;
  }
  int callbacksInProgress() const {
    std::lock_guard lock(mutex_);
    return inCallback_;
  }
  int callbackCount() const {
    std::lock_guard lock(mutex_);
    return callbacks_;
  }

  // While set, the audio callback blocks until the interrupt callback runs,
  // as it would in a full or stalled output.
  void blockAudio() {
    std::lock_guard lock(mutex_);
    blockAudio_ = true;
  }
  bool audioBlocked() const {
    std::lock_guard lock(mutex_);
    return audioBlockedNow_;
  }
  // While set, the state callback that reports Playing destroys the stream.
  void destroyOnPlaying() {
    std::lock_guard lock(mutex_);
    destroyOnPlaying_ = true;
  }
  bool waitForDestroyInCallback(double timeout = 10.0) {
    return waitFor([&] { return destroyedInCallback_; }, timeout);
  }

  bool reached(int state) const {
    for (auto& s : states_) {
      if (s.second == state) return true;
    }
    return false;
  }
  bool lastChangeIs(int from, int to) const { return !states_.empty() && states_.back() == std::make_pair(from, to); }
  uint64_t frames_ = 0;

 private:
  static StreamRecorder& of(shoutstreamer_t s) {
    return *static_cast<StreamRecorder*>(shoutstreamer_delegate(s)->context);
  }
  void enter() {
    threads_.insert(std::this_thread::get_id());
    ++inCallback_;
    ++callbacks_;
  }
  void leave() {
    --inCallback_;
    changed_.notify_all();
  }

  static void onState(shoutstreamer_t s, int from, int to) {
    auto& r = of(s);
    std::unique_lock lock(r.mutex_);
    r.enter();
    r.states_.push_back({from, to});
    if (to == SHOUTSTREAMER_STATE_PLAYING && r.destroyOnPlaying_) {
      lock.unlock();  // the destroy may call the interrupt callback
      r.destroy();
      lock.lock();
      r.destroyedInCallback_ = true;
    }
    r.leave();
  }
  static void onAudio(shoutstreamer_t s, float rate, float** channels, int32_t frames) {
    auto& r = of(s);
    std::unique_lock lock(r.mutex_);
    r.enter();
    if (r.rates_.empty() || r.rates_.back().first != long(rate)) r.rates_.push_back({long(rate), r.frames_});
    for (int32_t i = 0; i < frames; ++i) {
      if (channels[0][i] != channels[1][i]) {
        r.channelsDiffered_ = true;
        break;
      }
    }
    r.frames_ += uint64_t(frames);
    if (r.blockAudio_) {
      r.audioBlockedNow_ = true;
      r.changed_.notify_all();
      r.changed_.wait(lock, [&] { return r.interrupted_; });
      r.audioBlockedNow_ = false;
    }
    r.leave();
  }
  static void onTitle(shoutstreamer_t s, const char* bytes, int32_t length, int32_t framesBuffered) {
    auto& r = of(s);
    std::lock_guard lock(r.mutex_);
    r.enter();
    r.titles_.push_back({std::string(bytes, size_t(length)), r.frames_ + uint64_t(framesBuffered)});
    r.leave();
  }
  static void onInterrupt(shoutstreamer_t s) {
    auto& r = of(s);
    std::lock_guard lock(r.mutex_);
    r.interrupted_ = true;
    r.changed_.notify_all();
  }

  shoutstreamer_t streamer_ = nullptr;
  mutable std::mutex mutex_;
  std::condition_variable changed_;
  std::vector<std::pair<int, int>> states_;
  std::vector<Title> titles_;
  std::vector<std::pair<long, uint64_t>> rates_;  // rate, frame where it began
  std::set<std::thread::id> threads_;
  bool channelsDiffered_ = false;
  int inCallback_ = 0;
  int callbacks_ = 0;
  bool blockAudio_ = false;
  bool audioBlockedNow_ = false;
  bool interrupted_ = false;
  bool destroyOnPlaying_ = false;
  bool destroyedInCallback_ = false;
};

// Each title reported matches a title the server sent on its first
// connection, at the server's position to one MPEG frame (1152 samples).
inline void expectTitlesInPlace(const StreamRecorder& recorder, const IcyTestServer& server, size_t atLeast) {
  auto reported = recorder.titles();
  auto sent = server.titles();
  ASSERT_GE(reported.size(), atLeast);
  for (size_t i = 0; i < reported.size(); ++i) {
    ASSERT_LT(i, sent.size());
    EXPECT_EQ(reported[i].text, sent[i].title);
    EXPECT_EQ(sent[i].connection, 0);
    auto diff = int64_t(reported[i].position) - int64_t(sent[i].samplesBefore);
    EXPECT_LE(std::llabs(diff), 1152) << sent[i].title;
  }
}

}  // namespace belvane::test
