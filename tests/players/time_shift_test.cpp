// Time-shift of a live MP3 station against the loopback ICY server: paused
// at once, the station goes on into the ring; skipping back, going live and
// skipping back again land where asked, to the frame; the audio written
// afterwards is, sample for sample, what an unbroken run wrote at that
// place, and every title is announced at the very frame an unbroken run
// announced it (the one in force where the skip landed first).
#include <gtest/gtest.h>

#include <belvane/BVMasterPlayer.h>

#include "support/icy_test_server.h"
#include "support/mp3_test_data.h"
#include "support/recording_owner.h"
#include "support/temp_dir.h"
#include "support/wav_samples.h"

#include <algorithm>

using namespace belvane::test;

namespace {

constexpr double kFrameSeconds = 1152.0 / 44100.0;

constexpr uint64_t kStationBytes = 60 * 16000;

// A minute of station with a title every two seconds, that then sends
// nothing more (its live edge stays put).
IcyStreamScript minuteStation() {
  IcyStreamScript s;
  s.audio = {stereoTone44k()};
  s.audioBytes = kStationBytes;
  s.end = IcyStreamScript::End::Stall;
  s.titleForBlock = [](int block) { return block % 4 == 0 ? "Song " + std::to_string(block / 4) : ""; };
  return s;
}

// The samples of the whole frames among the station's bytes.
uint64_t stationSamples() {
  const Mp3Data& data = *stereoTone44k();
  uint64_t samples = 0;
  for (uint64_t at = 0;; ) {
    for (const auto& frame : data.frames) {
      if (at + frame.size > kStationBytes) return samples;
      at += frame.size;
      samples += uint64_t(frame.samples);
    }
  }
}

struct Playback {
  RecordingOwner owner;
  std::shared_ptr<BVMasterPlayer> master = BVMasterPlayer::create();
  Playback(const std::string& wav) {
    master->setOwner(&owner);
    EXPECT_EQ(master->setAudioOutput("wav:" + wav), 0);
    owner.frames = [m = master.get()] { return m->outputFramesWritten(); };
  }
  ~Playback() { master->setOwner(nullptr); }
};

}  // namespace

TEST(TimeShift, SkipsAndGoesLiveToTheFrameWithTitlesWhereTheyStart) {
  BELVANE_SKIP_WITHOUT_LAME();
  IcyTestServer server;
  // The unbroken run plays the station to its declared end; the shifted
  // one's station then sends nothing more (a reconnection after the stall,
  // on a slow machine, brings nothing new).
  IcyStreamScript ending = minuteStation(), silent = minuteStation();
  ending.statusLine = "HTTP/1.0 200 OK";
  ending.contentLength = true;
  ending.end = IcyStreamScript::End::Close;
  silent.audioBytes = 0;
  server.serve("/plain", {ending});
  server.serve("/shifted", {minuteStation(), silent});
  TempDir dir;

  Playback plain(dir.path() + "/plain.wav");
  plain.master->playLink(linkTo(server.url("/plain")));
  const uint64_t total = stationSamples();
  ASSERT_TRUE(runUntilEnded(plain.owner, 60));
  EXPECT_EQ(plain.master->outputFramesWritten(), total);
  const std::vector<float> unbroken = wavSamples(dir.path() + "/plain.wav");
  ASSERT_GT(unbroken.size(), size_t(2 * 44100 * 50));

  Playback shifted(dir.path() + "/shifted.wav");
  auto& master = *shifted.master;
  master.playLink(linkTo(server.url("/shifted")));
  ASSERT_TRUE(shifted.owner.runUntil(BVPlayerStatePlaying));
  ASSERT_TRUE(master.canTimeShift());
  ASSERT_TRUE(master.pause());
  EXPECT_TRUE(master.isPaused());
  EXPECT_EQ(master.state(), BVPlayerStatePlaying);
  // Paused, the connection reads the whole station into the ring.
  ASSERT_TRUE(BVRunLoop::main().runUntil([&] { return master.timeShiftSecondsHeld() > 59.5; }, 30));
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
  const uint64_t last = resumedAt + uint64_t((20 - 0.5) / kFrameSeconds - 1) * 1152;
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
  auto sameFrom = [&](uint64_t at, size_t samples) {
    return 2 * (at + samples) <= unbroken.size() &&
           std::equal(heard.begin() + 2 * resumedAt, heard.begin() + 2 * (resumedAt + samples), unbroken.begin() + 2 * at);
  };
  const double wanted = double(total) - 20 * 44100.0;
  uint64_t landed = 0;
  for (uint64_t at = uint64_t(wanted / 1152 - 1) * 1152; at <= wanted + 1152; at += 1152)
    if (sameFrom(at, 44100)) landed = at;
  ASSERT_NE(landed, 0u) << "lands on the frame asked for";
  const size_t rest = std::min(heard.size() / 2 - resumedAt, unbroken.size() / 2 - landed);
  EXPECT_GT(rest + 22050 + 4096, total - landed);
  EXPECT_TRUE(sameFrom(landed, rest));

  // The title in force where the skip landed, then each where it starts.
  std::vector<std::pair<std::string, uint64_t>> expected;
  for (size_t i = 0; i < plain.owner.titles.size(); ++i) {
    const uint64_t at = plain.owner.titleFrames[i];
    if (at <= landed)
      expected.assign(1, {plain.owner.titles[i], resumedAt});
    else if (resumedAt + (at - landed) < written)
      expected.push_back({plain.owner.titles[i], resumedAt + (at - landed)});
  }
  std::vector<std::pair<std::string, uint64_t>> announced;
  for (size_t i = titlesBefore; i < shifted.owner.titles.size(); ++i)
    announced.push_back({shifted.owner.titles[i], shifted.owner.titleFrames[i]});
  EXPECT_EQ(announced, expected);
}
