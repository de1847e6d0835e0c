// A live MP3 station paused for a minute (BELVANE_PAUSE_SECONDS, default
// 60) while its server goes on sending at the audio's pace: resumed, the
// playback goes on with the very next frame, and everything it wrote is,
// sample for sample, what an unbroken run of the same station wrote.
#include <belvane/BVMasterPlayer.h>
#include <belvane/BVRunLoop.h>

#include "long_outages/outage_length.h"
#include "support/icy_test_server.h"
#include "support/mp3_test_data.h"
#include "support/recording_owner.h"
#include "support/temp_dir.h"
#include "support/wav_samples.h"

#include <gtest/gtest.h>

using namespace belvane::test;

TEST(StationPause, ResumesWithNoFrameLostOrRepeated) {
  BELVANE_SKIP_WITHOUT_LAME();
  const double pause = pauseSeconds();
  IcyStreamScript station;
  station.statusLine = "HTTP/1.0 200 OK";
  station.contentLength = true;
  station.audio = {stereoTone44k()};
  station.audioBytes = uint64_t((pause + 8) * 16000);
  IcyTestServer server;
  server.serve("/plain", {station});
  station.pace = 1.0;
  server.serve("/paced", {station});
  TempDir dir;

  auto play = [&](const std::string& path, const std::function<void(BVMasterPlayer&, RecordingOwner&)>& meanwhile) {
    RecordingOwner owner;
    auto master = BVMasterPlayer::create();
    master->setOwner(&owner);
    EXPECT_EQ(master->setAudioOutput("wav:" + dir.path() + path + ".wav"), 0);
    master->playLink(linkTo(server.url(path)));
    meanwhile(*master, owner);
    EXPECT_TRUE(runUntilEnded(owner, pause + 60));
    EXPECT_EQ(owner.states.back().to, BVPlayerStateStopped);
    master->setOwner(nullptr);
  };
  play("/plain", [](BVMasterPlayer&, RecordingOwner&) {});
  play("/paced", [&](BVMasterPlayer& master, RecordingOwner& owner) {
    ASSERT_TRUE(owner.runUntil(BVPlayerStatePlaying));
    BVRunLoop::main().runUntil([] { return false; }, 2.0);
    ASSERT_TRUE(master.pause());
    BVRunLoop::main().runUntil([] { return false; }, pause);
    // The station went on into the ring meanwhile.
    EXPECT_GT(master.secondsBehindLive(), pause - 1.0);
    EXPECT_EQ(master.state(), BVPlayerStatePlaying);
    master.resume();
  });

  const std::vector<float> unbroken = wavSamples(dir.path() + "/plain.wav");
  const std::vector<float> paused = wavSamples(dir.path() + "/paced.wav");
  ASSERT_GT(unbroken.size(), size_t(2 * 44100 * (pause + 6)));
  EXPECT_EQ(paused.size(), unbroken.size());
  EXPECT_TRUE(paused == unbroken);
}
