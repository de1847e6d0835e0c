// shoutstreamer_destroy returns promptly from every state, also while the
// audio callback is blocked on its output, and no callback follows it.
#include "streaming/shoutstreamer.h"
#include "streaming/stream_recorder.h"
#include "support/icy_test_server.h"

#include <gtest/gtest.h>

#include <thread>

using belvane::test::IcyStreamScript;
using belvane::test::IcyTestServer;
using belvane::test::Response;
using belvane::test::StreamRecorder;

namespace {

constexpr double kPrompt = 2.0;  // seconds; a generous bound, not a speed test

void expectQuietAfterDestroy(StreamRecorder& recorder) {
  int callbacks = recorder.callbackCount();
  EXPECT_EQ(recorder.callbacksInProgress(), 0);
  std::this_thread::sleep_for(std::chrono::milliseconds(100));
  EXPECT_EQ(recorder.callbackCount(), callbacks);
}

}  // namespace

TEST(ShoutstreamerDestroy, ReturnsPromptlyFromEveryStateAndABlockedCallback) {
  BELVANE_SKIP_WITHOUT_LAME();
  IcyTestServer server;
  server.http().route("/silent", Response::hang());
  IcyStreamScript trickle;
  trickle.audio = {belvane::test::stereoTone44k()};
  trickle.audioBytes = 4000;  // less than the prebuffer
  trickle.end = IcyStreamScript::End::Stall;
  server.serve("/trickle", {trickle});
  IcyStreamScript live = trickle;
  live.audioBytes = 100'000'000;
  server.serve("/live", {live});
  auto slowTuning = belvane::test::fastTuning();
  slowTuning.stallTimeout = slowTuning.connectTimeout = 30;

  {
    StreamRecorder never;
    EXPECT_LT(never.destroy(), kPrompt);
  }
  {
    StreamRecorder connecting(slowTuning);
    ASSERT_EQ(connecting.start(server.url("/silent")), 0);
    ASSERT_TRUE(connecting.waitForState(SHOUTSTREAMER_STATE_CONNECTING));
    EXPECT_LT(connecting.destroy(), kPrompt);
    EXPECT_EQ(connecting.lastState(), SHOUTSTREAMER_STATE_CONNECTING);
    expectQuietAfterDestroy(connecting);
  }
  {
    StreamRecorder buffering(slowTuning);
    ASSERT_EQ(buffering.start(server.url("/trickle")), 0);
    ASSERT_TRUE(buffering.waitForState(SHOUTSTREAMER_STATE_BUFFERING));
    EXPECT_LT(buffering.destroy(), kPrompt);
    EXPECT_EQ(buffering.lastState(), SHOUTSTREAMER_STATE_BUFFERING);
    expectQuietAfterDestroy(buffering);
  }
  {
    StreamRecorder playing(slowTuning);
    ASSERT_EQ(playing.start(server.url("/live")), 0);
    ASSERT_TRUE(playing.waitForFrames(100'000));
    EXPECT_LT(playing.destroy(), kPrompt);
    expectQuietAfterDestroy(playing);
  }
  {
    // The audio callback blocks on its output, and the network side has
    // filled the buffer behind it and waits for room as well.
    StreamRecorder blocked;
    blocked.blockAudio();
    ASSERT_EQ(blocked.start(server.url("/live")), 0);
    ASSERT_TRUE(blocked.waitFor([&] { return blocked.frames_ > 0; }));
    ASSERT_TRUE(blocked.audioBlocked());
    std::this_thread::sleep_for(std::chrono::milliseconds(200));
    EXPECT_LT(blocked.destroy(), kPrompt);
    expectQuietAfterDestroy(blocked);
  }
  {
    StreamRecorder failed;
    ASSERT_EQ(failed.start(server.url("/missing")), 0);
    ASSERT_TRUE(failed.waitForState(SHOUTSTREAMER_STATE_FAILED));
    EXPECT_LT(failed.destroy(), kPrompt);
  }
}

namespace {

struct SelfDestroying {
  std::mutex mutex;
  std::condition_variable done;
  bool destroyed = false;
  int callbacksAfter = 0;
};

SelfDestroying& selfOf(shoutstreamer_t s) { return *static_cast<SelfDestroying*>(shoutstreamer_delegate(s)->context); }

void destroyWhenPlaying(shoutstreamer_t s, int, int to) {
  auto& self = selfOf(s);
  std::lock_guard lock(self.mutex);
  if (self.destroyed) ++self.callbacksAfter;
  if (to != SHOUTSTREAMER_STATE_PLAYING) return;
  shoutstreamer_destroy(s);
  self.destroyed = true;
  self.done.notify_all();
}

void countAfter(shoutstreamer_t s, float, float**, int32_t) {
  auto& self = selfOf(s);
  std::lock_guard lock(self.mutex);
  if (self.destroyed) ++self.callbacksAfter;
}

}  // namespace

TEST(ShoutstreamerDestroy, MayBeCalledFromInsideACallback) {
  BELVANE_SKIP_WITHOUT_LAME();
  IcyTestServer server;
  IcyStreamScript live;
  live.audio = {belvane::test::stereoTone44k()};
  live.audioBytes = 100'000'000;
  server.serve("/live", {live});

  SelfDestroying self;
  shoutstreamer_t s = shoutstreamer_create();
  ASSERT_EQ(shoutstreamer_start(s, server.url("/live").c_str(), &self, destroyWhenPlaying, countAfter, nullptr, nullptr),
            0);
  std::unique_lock lock(self.mutex);
  ASSERT_TRUE(self.done.wait_for(lock, std::chrono::seconds(10), [&] { return self.destroyed; }));
  lock.unlock();
  std::this_thread::sleep_for(std::chrono::milliseconds(200));
  lock.lock();
  EXPECT_EQ(self.callbacksAfter, 0);
}
