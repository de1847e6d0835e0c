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
  server.serve("/trickle", {belvane::test::toneScript(4000, IcyStreamScript::End::Stall)});  // less than the prebuffer
  server.serve("/live", {belvane::test::toneScript(100'000'000, IcyStreamScript::End::Stall)});
  auto slowTuning = belvane::test::fastTuning();
  slowTuning.stallTimeout = slowTuning.connectTimeout = 30;

  {
    StreamRecorder never;
    EXPECT_LT(never.destroy(), kPrompt);
  }
  // Connecting to a server that never answers; buffering a stream that
  // stalls before the prebuffer is full.
  for (auto [path, state] : {std::pair<const char*, int>{"/silent", SHOUTSTREAMER_STATE_CONNECTING},
                             {"/trickle", SHOUTSTREAMER_STATE_BUFFERING}}) {
    SCOPED_TRACE(path);
    StreamRecorder recorder(slowTuning);
    ASSERT_EQ(recorder.start(server.url(path)), 0);
    ASSERT_TRUE(recorder.waitForState(state));
    EXPECT_LT(recorder.destroy(), kPrompt);
    EXPECT_EQ(recorder.lastState(), state);
    expectQuietAfterDestroy(recorder);
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
  server.serve("/live", {belvane::test::toneScript(100'000'000)});

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
