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

TEST(ShoutstreamerDestroy, MayBeCalledFromInsideACallback) {
  BELVANE_SKIP_WITHOUT_LAME();
  IcyTestServer server;
  server.serve("/live", {belvane::test::toneScript(100'000'000)});
  StreamRecorder recorder;
  recorder.destroyOnPlaying();
  ASSERT_EQ(recorder.start(server.url("/live")), 0);
  ASSERT_TRUE(recorder.waitForDestroyInCallback());
  expectQuietAfterDestroy(recorder);
}
