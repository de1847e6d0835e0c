// Playing RealAudio through the kit's C tables: content states, length,
// position, statistics, seeking and stopping, and RAM metafiles served from
// files and over HTTP. The waits are generous: under load (sanitizers, a
// shared machine) a decoder can take many times its real time to start,
// and the waits end as soon as the awaited state comes.
#include "kit_harness.h"

#include "support/test_http_server.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>

using namespace belvane::test;

namespace {

constexpr int32_t kContacting = 1;

bool contains(const std::vector<std::string>& list, const std::string& item) {
  return std::find(list.begin(), list.end(), item) != list.end();
}

// The states ran from contacting, through playing, to stopped, in that
// order, and the conclusion came after the stop.
void expectPlayedThrough(const KitRecorder& events) {
  std::vector<int32_t> sequence = events.stateSequence();
  ASSERT_FALSE(sequence.empty());
  EXPECT_EQ(sequence.front(), kContacting);
  EXPECT_EQ(sequence.back(), HXContentStateStopped);
  auto playing = std::find(sequence.begin(), sequence.end(), HXContentStatePlaying);
  EXPECT_NE(playing, sequence.end());
  EXPECT_EQ(std::find(sequence.begin(), playing, HXContentStateStopped), playing) << "stopped before playing";
  EXPECT_EQ(events.concluded, 1);
  EXPECT_EQ(events.statesAtConclusion, events.states.size());
  for (const auto& [from, to] : events.states) EXPECT_NE(from, to);
}

}  // namespace

TEST(KitPlayback, AFilePlaysToItsEndReportingLengthPositionAndStatistics) {
  ScopedEnv output("BELVANE_AUDIO_OUTPUT", "null");
  KitSession s;
  ASSERT_TRUE(s.open(realAudioFile()));
  EXPECT_EQ(s.kit.contentState(s.player), kContacting);
  s.kit.setVolume(s.player, 250);
  EXPECT_EQ(s.kit.volume(s.player), 100);
  s.kit.setVolume(s.player, 40);
  s.kit.mute(s.player, true);
  EXPECT_EQ(s.kit.volume(s.player), 40);
  EXPECT_TRUE(s.kit.isMuted(s.player));
  s.kit.play(s.player);

  ASSERT_TRUE(s.runUntil([&] { return s.kit.contentState(s.player) == HXContentStatePlaying; }, 30));
  EXPECT_NEAR(double(s.kit.length(s.player)), 3000.0, 100.0);
  EXPECT_FALSE(s.kit.isLive(s.player));
  ASSERT_FALSE(s.events.lengths.empty());
  EXPECT_EQ(s.events.lengths.back(), s.kit.length(s.player));
  uint32_t early = s.kit.position(s.player);
  s.runFor(1.0);
  EXPECT_GT(s.kit.position(s.player), early);

  ASSERT_TRUE(s.runUntil([&] { return s.events.finished(); }, 30));
  EXPECT_TRUE(s.events.errors.empty());
  expectPlayedThrough(s.events);
  EXPECT_EQ(s.kit.position(s.player), s.kit.length(s.player));

  EXPECT_TRUE(contains(s.events.notices, "added title=T"));
  EXPECT_TRUE(contains(s.events.notices, "added author=A"));
  EXPECT_TRUE(contains(s.events.notices, "added copyright=C"));
  for (const std::string& n : s.events.notices) EXPECT_EQ(n.rfind("added ", 0), 0u) << n;
  EXPECT_EQ(s.statistic("Title"), "T");
  EXPECT_EQ(s.statistic("author"), "A");
  EXPECT_EQ(s.statistic("copyright"), "C");
  EXPECT_NE(s.statistic("codec").find("RealAudio"), std::string::npos) << s.statistic("codec");
  EXPECT_EQ(s.statistic("abstract"), "<none>");
}

TEST(KitPlayback, SeeksStopsPlaysAgainAndIsSilentAfterRelease) {
  ScopedEnv output("BELVANE_AUDIO_OUTPUT", "null");
  KitSession s;
  ASSERT_TRUE(s.open("file://" + realAudioFile()));
  s.kit.play(s.player);
  ASSERT_TRUE(s.runUntil([&] { return s.kit.contentState(s.player) == HXContentStatePlaying; }, 30));

  ASSERT_TRUE(s.kit.startSeeking(s.player));
  s.kit.setPosition(s.player, 2000);
  s.kit.stopSeeking(s.player);
  ASSERT_TRUE(s.runUntil([&] { return s.kit.position(s.player) >= 2000; }, 30));

  s.kit.stop(s.player);
  EXPECT_EQ(s.kit.contentState(s.player), HXContentStateStopped);
  EXPECT_EQ(s.kit.position(s.player), 0u);
  s.runFor(0.3);
  EXPECT_EQ(s.events.concluded, 0);
  EXPECT_TRUE(s.events.errors.empty());

  s.kit.play(s.player);
  ASSERT_TRUE(s.runUntil([&] { return s.kit.contentState(s.player) == HXContentStatePlaying; }, 30));
  s.kit.pause(s.player);
  ASSERT_TRUE(s.runUntil([&] { return s.kit.contentState(s.player) == 5; }, 30));
  s.kit.play(s.player);
  ASSERT_TRUE(s.runUntil([&] { return s.kit.contentState(s.player) == HXContentStatePlaying; }, 30));

  // Released while playing: nothing is reported any more.
  size_t reports = s.events.states.size() + s.events.notices.size() + s.events.lengths.size();
  s.release();
  s.runFor(0.5);
  EXPECT_EQ(s.events.states.size() + s.events.notices.size() + s.events.lengths.size(), reports);
  EXPECT_EQ(s.events.concluded, 0);
}

TEST(KitMetafiles, PlayTheirStreamsInOrderSkippingOnesThatFail) {
  ScopedEnv output("BELVANE_AUDIO_OUTPUT", "null:fast");
  TestHTTPServer server;
  server.route("/clip.rm", Response::ok("audio/x-pn-realaudio", readWholeFile(realAudioFile())));
  // Found by its extension: a missing stream first, then the clip; nothing
  // after the stop line is played.
  server.route("/list.ram", Response::ok("text/plain", "# two streams\n\n" + server.url("/missing.rm") +
                                                           "\r\n  clip.rm  \n--stop--\n" + server.url("/never.rm") +
                                                           "\n"));
  // Found by its content type.
  server.route("/station", Response::ok("audio/x-pn-realaudio-plugin", server.url("/clip.rm") + "\n"));
  // A local metafile with an entry relative to it.
  std::string local = std::filesystem::path(realAudioFile()).parent_path() / "local.ram";
  std::ofstream(local) << "tone.rm\n";

  for (const std::string& url : {server.url("/list.ram"), server.url("/station"), "file://" + local}) {
    SCOPED_TRACE(url);
    KitSession s;
    ASSERT_TRUE(s.open(url));
    s.kit.play(s.player);
    ASSERT_TRUE(s.runUntil([&] { return s.events.finished(); }, 20));
    EXPECT_TRUE(s.events.errors.empty()) << (s.events.errors.empty() ? "" : s.events.errors[0].failure);
    expectPlayedThrough(s.events);
    EXPECT_EQ(s.statistic("title"), "T");
  }
  EXPECT_EQ(server.requestCount("/missing.rm"), 1);
  EXPECT_EQ(server.requestCount("/never.rm"), 0);
  EXPECT_GE(server.requestCount("/clip.rm"), 2);
}
