// Loudness normalisation through the master player: two stations 12 dB
// apart end at matched loudness, and a station played again starts at the
// gain it settled on. The output is the unpaced WAV file, measured with
// libebur128 as a listener's meter would.
#include <gtest/gtest.h>

#include <belvane/BVMasterPlayer.h>

#include <ebur128.h>
#include <glib.h>

#include <vector>

#include "support/icy_test_server.h"
#include "support/recording_owner.h"
#include "support/scoped_env.h"
#include "support/temp_dir.h"
#include "support/wav_samples.h"

using namespace belvane::test;

namespace {
// The loudness (LUFS) of `seconds` of the file from `from` seconds on
// (negative: from the end).
double loudness(const std::vector<float>& samples, double from, double seconds) {
  size_t frames = samples.size() / 2, first = size_t((from < 0 ? frames / 44100.0 + from : from) * 44100);
  size_t count = size_t(seconds * 44100);
  if (first + count > frames) return -1000;
  ebur128_state* meter = ebur128_init(2, 44100, EBUR128_MODE_S);
  ebur128_add_frames_float(meter, samples.data() + 2 * first, count);
  double lufs = -1000;
  ebur128_loudness_window(meter, unsigned(seconds * 1000), &lufs);
  ebur128_destroy(&meter);
  return lufs;
}

std::vector<float> playToWav(BVMasterPlayer& master, const std::string& url, const std::string& path) {
  RecordingOwner owner;
  master.setOwner(&owner);
  EXPECT_EQ(master.setAudioOutput("wav:" + path), 0);
  master.playLink(linkTo(url));
  EXPECT_TRUE(runUntilEnded(owner));
  master.stop();
  master.setOwner(nullptr);
  return wavSamples(path);
}
}  // namespace

TEST(Loudness, StationsTwelveDecibelsApartEndMatchedAndAStationRestartsAtItsGain) {
  BELVANE_SKIP_WITHOUT_LAME();
  TempDir dir;
  ScopedEnv cache("XDG_CACHE_HOME", dir.path() + "/cache");
  Mp3Data loud = encodeTone(44100, 2, 128, 4.0, 440.0), quiet = encodeTone(44100, 2, 128, 4.0, 440.0, 0.25);
  IcyTestServer server;
  IcyStreamScript s;
  s.statusLine = "HTTP/1.0 200 OK";
  s.contentLength = true;
  s.audioBytes = 10 * 16'000 + 8'000;  // 10.5 s at 128 kbit/s
  s.audio = {&loud};
  server.serve("/loud", {s});
  s.audio = {&quiet};
  server.serve("/quiet", {s});

  auto master = BVMasterPlayer::create();
  master->setLoudnessNormalization(true);
  auto a = playToWav(*master, server.url("/loud"), dir.path() + "/loud.wav");
  auto b = playToWav(*master, server.url("/quiet"), dir.path() + "/quiet.wav");
  double endA = loudness(a, -3, 3), endB = loudness(b, -3, 3);
  EXPECT_NEAR(endA, endB, 1.0);
  EXPECT_NEAR(endA, -18.0, 1.5);
  // Unnormalised, they start 12 LU apart.
  EXPECT_NEAR(loudness(a, 0.2, 1) - loudness(b, 0.2, 1), 12.0, 1.0);

  // Played again, the loud station starts at the gain it settled on, and
  // the gain is in the cache folder once its player has gone.
  auto again = playToWav(*master, server.url("/loud"), dir.path() + "/again.wav");
  EXPECT_NEAR(loudness(again, 0.2, 1), endA, 1.0);
  master.reset();
  std::string file = dir.path() + "/cache/com.brambleside.ettd/loudness.ini";
  EXPECT_TRUE(BVRunLoop::main().runUntil([&] { return g_file_test(file.c_str(), G_FILE_TEST_EXISTS); }, 5.0));
}
