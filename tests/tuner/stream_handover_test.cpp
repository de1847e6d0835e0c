// The stream the tuner finds is played from the tuner's own reply: one
// request to the server, with the titles still in place to the frame.
#include "streaming/stream_recorder.h"
#include "support/icy_test_server.h"
#include "tuner/tuner_test_support.h"

#include <gtest/gtest.h>

using namespace belvane::test;

TEST(StreamHandover, TheStreamerPlaysTheTunersReplyWithItsTitles) {
  BELVANE_SKIP_WITHOUT_LAME();
  for (const char* statusLine : {"ICY 200 OK", "HTTP/1.0 200 OK"}) {
    SCOPED_TRACE(statusLine);
    IcyTestServer server;
    IcyStreamScript script;
    script.statusLine = statusLine;
    script.audio = {stereoTone44k()};
    script.audioBytes = 600'000;
    script.end = IcyStreamScript::End::Stall;
    server.serve("/live", {script});

    // The streamer's own time-outs, so that no stall or reconnection adds a
    // connection of its own while the audio is counted.
    StreamRecorder recorder{belvane::detail::ShoutstreamerTuning{}};
    RecordingTunerDelegate delegate;
    // Started inside the tuner's call, as the MP3 player does.
    delegate.onFound = [&] { ASSERT_EQ(recorder.start(delegate.found.back().url), 0); };
    auto tuner = QLStreamTuner::create(&delegate);
    tuner->setSourceURL(*BVURL::URLWithString(server.url("/live")));
    tuner->start();
    ASSERT_TRUE(runUntil([&] { return !delegate.found.empty(); }));
    ASSERT_TRUE(recorder.waitForFrames(400'000 / 418 * 1152, 20.0));
    recorder.destroy();

    EXPECT_EQ(server.connections("/live"), 1);
    expectTitlesInPlace(recorder, server, 3);
  }
}
