// Time-shift of a live station against the loopback ICY server, on each
// engine that plays from the ring (MP3 on the stream engine, AAC on the
// general engine): paused at once, the station goes on into the ring;
// skipping back, going live and skipping back again land where asked, to
// the frame; the audio written afterwards is, sample for sample, what an
// unbroken run wrote at that place (an AAC decoder, started afresh, needs
// its first frame to overlap the next), and every title is announced at
// the very frame an unbroken run announced it (the one in force where the
// skip landed first).
#include <gtest/gtest.h>

#include <belvane/BVMasterPlayer.h>

#include "foundation/tsan_handoff.h"
#include "support/gst_media_files.h"
#include "support/icy_test_server.h"
#include "support/mp3_test_data.h"
#include "support/recording_owner.h"
#include "support/temp_dir.h"
#include "support/test_http_server.h"
#include "support/wav_samples.h"

#include <algorithm>

using namespace belvane::test;

namespace {

constexpr uint64_t kStationBytes = 60 * 16000;

// GStreamer and FFmpeg are not built with ThreadSanitizer: the hand-overs
// between their own threads read as races there, so the general engine's
// cases run in the other builds only.
#ifdef BELVANE_THREAD_SANITIZER
constexpr bool kUnderThreadSanitizer = true;
#else
constexpr bool kUnderThreadSanitizer = false;
#endif

// A minute of station with a title every two seconds, that then sends
// nothing more (its live edge stays put).
IcyStreamScript minuteStation(const Mp3Data* audio, bool aac) {
  IcyStreamScript s;
  s.audio = {audio};
  if (aac) s.contentType = "audio/aacp";
  s.audioBytes = kStationBytes;
  s.end = IcyStreamScript::End::Stall;
  s.titleForBlock = [](int block) { return block % 4 == 0 ? "Song " + std::to_string(block / 4) : ""; };
  return s;
}

// The samples of the whole frames among the station's bytes.
uint64_t stationSamples(const Mp3Data& data) {
  uint64_t samples = 0;
  for (uint64_t at = 0;; ) {
    for (const auto& frame : data.frames) {
      if (at + frame.size > kStationBytes) return samples;
      at += frame.size;
      samples += uint64_t(frame.samples);
    }
  }
}

}  // namespace

// A station of each engine's codec: MP3 for the stream engine, AAC for the
// general engine.
class TimeShift : public ::testing::TestWithParam<IcyStreamScript::Payload> {
 protected:
  void SetUp() override {
    BELVANE_SKIP_WITHOUT_LAME();
    if (aac && kUnderThreadSanitizer) GTEST_SKIP() << "GStreamer is not built with ThreadSanitizer";
    if (aac) aacTone_ = splitAdtsFrames(readWholeFile(writeMediaFile(dir.path() + "/tone.aac", MediaKind::ADTS, 2.0)));
    ASSERT_FALSE(tone.frames.empty());
  }
  TempDir dir;
  const bool aac = GetParam() == IcyStreamScript::Payload::Adts;
  Mp3Data aacTone_;
  const Mp3Data& tone = aac ? aacTone_ : *stereoTone44k();
};

TEST_P(TimeShift, SkipsAndGoesLiveToTheFrameWithTitlesWhereTheyStart) {
  const uint64_t frameSamples = uint64_t(tone.frames.front().samples);
  const double kFrameSeconds = double(frameSamples) / 44100.0;
  // A decoder started afresh at a skip: the frames whose audio differs (an
  // AAC decoder's first output overlaps nothing; its noise substitution
  // then draws other noise, 50 dB down).
  const uint64_t settle = aac ? 2 * frameSamples : 0;
  IcyTestServer server;
  // The unbroken run plays the whole station (the MP3 one to its declared
  // end: at a stall the stream engine keeps its last frames for a refill);
  // the shifted one's station then sends nothing more (a reconnection after
  // the stall, on a slow machine, brings nothing new).
  IcyStreamScript ending = minuteStation(&tone, aac), silent = minuteStation(&tone, aac);
  if (!aac) {
    ending.statusLine = "HTTP/1.0 200 OK";
    ending.contentLength = true;
    ending.end = IcyStreamScript::End::Close;
  }
  silent.audioBytes = 0;
  server.serve("/plain", {ending, silent});
  server.serve("/shifted", {minuteStation(&tone, aac), silent});

  MasterRun plain("wav:" + dir.path() + "/plain.wav");
  plain.master->playLink(linkTo(server.url("/plain")));
  const uint64_t total = stationSamples(tone);
  ASSERT_TRUE(BVRunLoop::main().runUntil([&] { return plain.master->outputFramesWritten() >= total; }, 60));
  BVRunLoop::main().runUntil([] { return false; }, 0.3);
  EXPECT_EQ(plain.master->outputFramesWritten(), total);
  const std::vector<float> unbroken = wavSamples(dir.path() + "/plain.wav");
  ASSERT_GT(unbroken.size(), size_t(2 * 44100 * 50));

  MasterRun shifted("wav:" + dir.path() + "/shifted.wav");
  auto& master = *shifted.master;
  master.playLink(linkTo(server.url("/shifted")));
  ASSERT_TRUE(shifted.owner.runUntil(BVPlayerStatePlaying));
  ASSERT_TRUE(master.canTimeShift());
  ASSERT_TRUE(master.pause());
  EXPECT_TRUE(master.isPaused());
  EXPECT_EQ(master.state(), BVPlayerStatePlaying);
  // Paused, the connection reads the whole station into the ring.
  ASSERT_TRUE(BVRunLoop::main().runUntil([&] { return master.timeShiftSecondsHeld() > double(total) / 44100 - 0.5; }, 30));
  const double held = master.timeShiftSecondsHeld();
  const double behind = master.secondsBehindLive();
  EXPECT_GT(behind, held - 3.0);
  EXPECT_TRUE(master.skipBy(-30));
  EXPECT_NEAR(master.secondsBehindLive(), std::min(behind + 30, held), kFrameSeconds);
  EXPECT_TRUE(master.goLive());
  EXPECT_NEAR(master.secondsBehindLive(), 0.0, kFrameSeconds);
  // Let the feeder take the jump (it warms the decoder up before the live edge).
  BVRunLoop::main().runUntil([] { return false; }, 0.3);
  EXPECT_NEAR(master.secondsBehindLive(), 0.0, kFrameSeconds);
  // The title in force where a skip lands is announced at once, paused or not.
  const size_t titlesBefore = shifted.owner.titles.size();
  EXPECT_TRUE(master.skipBy(-20));
  EXPECT_NEAR(master.secondsBehindLive(), 20.0, kFrameSeconds / 2 + 1e-6);
  BVRunLoop::main().runUntil([] { return false; }, 0.3);
  const uint64_t resumedAt = master.outputFramesWritten();
  master.resume();
  EXPECT_FALSE(master.isPaused());
  // The station sends nothing more: the last half second may wait in the
  // buffer for a refill that never comes, when decoding fell behind the
  // unpaced output on a busy machine.
  const uint64_t last = resumedAt + uint64_t((20 - 0.5) / kFrameSeconds - 1) * frameSamples;
  ASSERT_TRUE(BVRunLoop::main().runUntil([&] { return master.outputFramesWritten() >= last; }, 60));
  BVRunLoop::main().runUntil([] { return false; }, 0.2);
  const uint64_t written = master.outputFramesWritten();
  master.stop();

  // Up to the pause, the unbroken run's audio; from the resume on, its
  // last twenty seconds from a frame boundary, sample for sample (a WAV file
  // may lack the last few frames the output took when it stopped).
  const std::vector<float> heard = wavSamples(dir.path() + "/shifted.wav");
  ASSERT_GT(heard.size(), 2 * resumedAt + 2 * 44100 * 19);
  EXPECT_TRUE(std::equal(heard.begin(), heard.begin() + 2 * resumedAt, unbroken.begin()));
  auto same = [&](float a, float b) { return aac ? std::abs(a - b) < 0.01f : a == b; };
  auto sameFrom = [&](uint64_t at, size_t samples) {
    return 2 * (at + samples) <= unbroken.size() && samples > settle &&
           std::equal(heard.begin() + 2 * (resumedAt + settle), heard.begin() + 2 * (resumedAt + samples),
                      unbroken.begin() + 2 * (at + settle), same);
  };
  const double wanted = double(total) - 20 * 44100.0;
  uint64_t landed = 0;
  for (uint64_t at = uint64_t(wanted / frameSamples - 1) * frameSamples; at <= wanted + frameSamples; at += frameSamples)
    if (sameFrom(at, 44100)) landed = at;
  ASSERT_NE(landed, 0u) << "lands on the frame asked for";
  const size_t rest = std::min(heard.size() / 2 - resumedAt, unbroken.size() / 2 - landed);
  EXPECT_GT(rest + 22050 + 4096, total - landed);
  EXPECT_TRUE(sameFrom(landed, rest));

  // The title in force where the skip landed, then each where it starts.
  // The general engine's unbroken run announces a title cut out of the
  // middle of a frame after that frame; the ring places it at the frame
  // that starts after its byte: the two may lie a frame apart.
  const uint64_t slack = aac ? frameSamples : 0;
  std::vector<std::pair<std::string, uint64_t>> expected;
  for (size_t i = 0; i < plain.owner.titles.size(); ++i) {
    const uint64_t at = plain.owner.titleFrames[i];
    if (at <= landed)
      expected.assign(1, {plain.owner.titles[i], resumedAt});
    else if (resumedAt + (at - landed) + slack < written)
      expected.push_back({plain.owner.titles[i], resumedAt + (at - landed)});
  }
  size_t announced = 0;
  for (size_t i = titlesBefore; i < shifted.owner.titles.size(); ++i)
    announced += shifted.owner.titleFrames[i] + 2 * slack < written ? 1 : 0;
  ASSERT_EQ(announced, expected.size());
  for (size_t i = 0; i < expected.size(); ++i) {
    EXPECT_EQ(shifted.owner.titles[titlesBefore + i], expected[i].first);
    const uint64_t at = shifted.owner.titleFrames[titlesBefore + i];
    EXPECT_LE(std::max(at, expected[i].second) - std::min(at, expected[i].second), slack) << expected[i].first;
  }
}

// Paused for longer than the ring reaches back, the station resumes at the
// oldest frame the ring still holds, and plays what it holds from there.
TEST_P(TimeShift, APauseLongerThanTheRingResumesAtItsOldestFrame) {
  IcyTestServer server;
  IcyStreamScript station = minuteStation(&tone, aac);
  station.audioBytes = 16 * 16000;  // Songs 0 to 7, two seconds each
  station.pace = 2.0;
  server.serve("/", {station});
  MasterRun run("wav:" + dir.path() + "/shifted.wav");
  auto& master = *run.master;
  master.setTimeShiftMinutes(0.05);  // three seconds
  master.playLink(linkTo(server.url("/")));
  ASSERT_TRUE(run.owner.runUntil(BVPlayerStatePlaying));
  ASSERT_TRUE(BVRunLoop::main().runUntil([&] { return master.canTimeShift(); }, 10));
  ASSERT_TRUE(master.pause());
  // The whole station comes while paused; the ring lets go of whole chunks
  // (a few seconds of audio) at a time, keeping at least its three seconds.
  BVRunLoop::main().runUntil([] { return false; }, 8.5);
  EXPECT_LT(master.timeShiftSecondsHeld(), 6.0);
  master.resume();
  // What the output held plays (the first seconds), then the station's
  // last seconds: the songs between went with the ring.
  const auto& titles = run.owner.titles;
  ASSERT_TRUE(BVRunLoop::main().runUntil([&] { return !titles.empty() && titles.back() == "Song 7"; }, 30));
  EXPECT_EQ(std::find(titles.begin(), titles.end(), "Song 3"), titles.end()) << ::testing::PrintToString(titles);
  master.stop();
}

INSTANTIATE_TEST_SUITE_P(Engines, TimeShift,
                         ::testing::Values(IcyStreamScript::Payload::Mp3, IcyStreamScript::Payload::Adts),
                         [](const auto& info) { return info.param == IcyStreamScript::Payload::Adts ? "AAC" : "MP3"; });

// A chained Ogg Vorbis station (a chain per song, titled in its comment
// header, as Icecast's Ogg mounts send them) on the general engine: paused
// once it has sent everything, a skip back into the first song (another
// chain than the one at the live edge) plays from there with that chain's
// headers given again, and each later song is announced where it starts.
TEST(TimeShiftOgg, ASkipBackIntoAnEarlierChainPlaysOnWithEachChainsTitle) {
  if (kUnderThreadSanitizer) GTEST_SKIP() << "GStreamer is not built with ThreadSanitizer";
  TempDir dir;
  std::string station;
  for (int i = 0; i < 3; ++i)
    station += readWholeFile(writeMediaFile(dir.path() + "/" + std::to_string(i) + ".ogg", MediaKind::OggVorbis, 4.0,
                                            {{"title", "Song " + std::to_string(i)}}));
  ASSERT_GT(station.size(), 3000u);
  TestHTTPServer server;
  server.route("/ogg", Response::ok("application/ogg").generate([station](ResponseWriter& writer) {
    // All of it at once, then nothing: the live edge stays put.
    if (writer.write(station)) writer.pause(60);
  }));

  MasterRun run("wav:" + dir.path() + "/shifted.wav");
  auto& master = *run.master;
  master.playLink(linkTo(server.url("/ogg")));
  ASSERT_TRUE(run.owner.runUntil(BVPlayerStatePlaying));
  ASSERT_TRUE(BVRunLoop::main().runUntil([&] { return master.canTimeShift(); }, 10));
  ASSERT_TRUE(master.pause());
  ASSERT_TRUE(BVRunLoop::main().runUntil([&] { return master.timeShiftSecondsHeld() > 11.5; }, 20));
  const size_t titlesBefore = run.owner.titles.size();
  const uint64_t resumedAt = master.outputFramesWritten();
  // Back to the middle of the first song: ten seconds before the live edge.
  EXPECT_TRUE(master.skipBy(-(10.0 - master.secondsBehindLive())));
  EXPECT_NEAR(master.secondsBehindLive(), 10.0, 0.1);
  master.resume();
  ASSERT_TRUE(BVRunLoop::main().runUntil([&] { return master.outputFramesWritten() >= resumedAt + 9 * 44100; }, 30));
  // The first song plays on to its end (it was announced already), then
  // the next two at their starts, four seconds apart.
  const std::vector<std::string> heard(run.owner.titles.begin() + long(titlesBefore), run.owner.titles.end());
  ASSERT_EQ(heard, (std::vector<std::string>{"Song 1", "Song 2"}));
  const auto seconds = [&](size_t i) { return double(run.owner.titleFrames[titlesBefore + i] - resumedAt) / 44100; };
  // A skip lands on a page: a few tenths of a second of Vorbis.
  EXPECT_NEAR(seconds(0), 2.0, 0.6);
  EXPECT_NEAR(seconds(1) - seconds(0), 4.0, 0.05);
  master.stop();
}
