// The stream the tuner finds is played from the tuner's own reply: one
// request to the server, with the titles still in place to the frame.
#include "streaming/shoutstreamer.h"
#include "support/icy_test_server.h"
#include "tuner/tuner_test_support.h"

#include <gtest/gtest.h>

#include <condition_variable>
#include <cstdlib>
#include <mutex>

using namespace belvane::test;

namespace {

constexpr int64_t kMpegFrame = 1152;

// Counts the frames the streamer delivers and places each title at the
// frame it announces.
struct Listener {
  std::mutex mutex;
  std::condition_variable changed;
  uint64_t frames = 0;
  std::vector<std::pair<std::string, uint64_t>> titles;

  static Listener& of(shoutstreamer_t s) { return *static_cast<Listener*>(shoutstreamer_delegate(s)->context); }
  static void onAudio(shoutstreamer_t s, float, float**, int32_t frames) {
    Listener& l = of(s);
    std::lock_guard lock(l.mutex);
    l.frames += uint64_t(frames);
    l.changed.notify_all();
  }
  static void onTitle(shoutstreamer_t s, const char* bytes, int32_t length, int32_t framesBuffered) {
    Listener& l = of(s);
    std::lock_guard lock(l.mutex);
    l.titles.emplace_back(std::string(bytes, size_t(length)), l.frames + uint64_t(framesBuffered));
  }
  bool waitForFrames(uint64_t count) {
    std::unique_lock lock(mutex);
    return changed.wait_for(lock, std::chrono::seconds(20), [&] { return frames >= count; });
  }
};

}  // namespace

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

    Listener listener;
    shoutstreamer_t streamer = shoutstreamer_create();
    RecordingTunerDelegate delegate;
    // Started inside the tuner's call, as the MP3 player does.
    delegate.onFound = [&] {
      ASSERT_EQ(shoutstreamer_start(streamer, delegate.found.back().url.c_str(), &listener, nullptr,
                                    &Listener::onAudio, nullptr, &Listener::onTitle),
                0);
    };
    auto tuner = QLStreamTuner::create(&delegate);
    tuner->setSourceURL(*BVURL::URLWithString(server.url("/live")));
    tuner->start();
    ASSERT_TRUE(runUntil([&] { return !delegate.found.empty(); }));
    ASSERT_TRUE(listener.waitForFrames(400'000 / 418 * kMpegFrame));
    shoutstreamer_destroy(streamer);

    EXPECT_EQ(server.connections("/live"), 1);
    auto sent = server.titles();
    ASSERT_GE(listener.titles.size(), 3u);
    for (size_t i = 0; i < listener.titles.size(); ++i) {
      ASSERT_LT(i, sent.size());
      EXPECT_EQ(listener.titles[i].first, sent[i].title);
      auto diff = int64_t(listener.titles[i].second) - int64_t(sent[i].samplesBefore);
      EXPECT_LE(std::llabs(diff), kMpegFrame) << sent[i].title;
    }
  }
}
