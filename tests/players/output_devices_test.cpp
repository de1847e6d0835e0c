// Output devices on a PulseAudio server of the test's own: the sinks are
// listed with their descriptions, a station plays to the sink it is given,
// moves to another while it plays, when its sink goes away plays on from
// the default, with no sink named follows the default as it changes, and
// changes to ALSA while it plays; the state unchanged and the owner told
// each time.
#include <gtest/gtest.h>

#include <belvane/BVAudioOutputs.h>
#include <belvane/BVMasterPlayer.h>
#include <belvane/belvane.h>

#include <algorithm>
#include <chrono>

#include "support/icy_test_server.h"
#include "support/pulse_server.h"
#include "support/recording_owner.h"

using namespace belvane::test;

namespace {

struct OutputOwner : RecordingOwner {
  std::vector<std::string> outputs;
  void playerOutputChanged(BVBasePlayer&, const std::string& output) override { outputs.push_back(output); }
};

// Runs the main loop until `done`, asking it every 100 ms (it may start pactl).
bool runUntil(const std::function<bool()>& done, double seconds = 10.0) {
  auto next = std::chrono::steady_clock::now();
  bool result = false;
  return BVRunLoop::main().runUntil(
      [&] {
        if (result || std::chrono::steady_clock::now() < next) return result;
        next = std::chrono::steady_clock::now() + std::chrono::milliseconds(100);
        return result = done();
      },
      seconds);
}

}  // namespace

TEST(OutputDevices, PlaysToTheSinkNamedMovesWhilePlayingAndFollowsTheDefault) {
  if (!PulseServer::available()) GTEST_SKIP() << "pulseaudio is not installed";
  BELVANE_SKIP_WITHOUT_LAME();
  PulseServer pulse({"a", "b"});
  ASSERT_TRUE(pulse.ready());

  auto outputs = BVAudioOutputs();
  auto find = [&](const std::string& name) {
    return std::find_if(outputs.begin(), outputs.end(), [&](const BVAudioOutput& o) { return o.name == name; });
  };
  ASSERT_NE(find("pulse:a"), outputs.end());
  ASSERT_NE(find("pulse:b"), outputs.end());
  EXPECT_EQ(find("pulse:a")->description, "Sink_a");
  EXPECT_EQ(find("pulse:b")->description, "Sink_b");
  EXPECT_TRUE(find("pulse:a")->isDefault);
  EXPECT_FALSE(find("pulse:b")->isDefault);
  // The C interface's list is the same.
  bv_audio_output* list = nullptr;
  size_t count = 0;
  ASSERT_EQ(bv_audio_outputs(&list, &count), BV_OK);
  ASSERT_EQ(count, outputs.size());
  EXPECT_STREQ(list[1].name, "pulse:b");
  EXPECT_STREQ(list[1].description, "Sink_b");
  bv_audio_outputs_free(list, count);

  IcyTestServer server;
  IcyStreamScript script;
  script.audio = {stereoTone44k()};
  server.serve("/live", {script});
  OutputOwner owner;
  auto master = BVMasterPlayer::create();
  master->setOwner(&owner);
  ASSERT_EQ(master->setAudioOutput("pulse:a"), 0);
  master->playLink(linkTo(server.url("/live")));
  ASSERT_TRUE(owner.runUntil(BVPlayerStatePlaying));
  ASSERT_TRUE(runUntil([&] { return pulse.sinkOfStream() == "a"; }));
  EXPECT_EQ(master->audioOutputName(), "pulse");
  EXPECT_EQ(master->audioOutputDevice(), "pulse:a");
  const size_t states = owner.states.size();

  // Another sink while playing: the same stream moves there.
  ASSERT_EQ(master->setAudioOutput("pulse:b"), 0);
  ASSERT_TRUE(runUntil([&] { return pulse.sinkOfStream() == "b" && !owner.outputs.empty(); }));
  EXPECT_EQ(owner.outputs.back(), "pulse:b");

  // Its sink goes away: the server's default takes the stream, which plays on.
  ASSERT_TRUE(pulse.removeSink("b"));
  ASSERT_TRUE(runUntil([&] { return pulse.sinkOfStream() == "a" && owner.outputs.back() == "pulse:a"; }));
  EXPECT_EQ(master->audioOutputDevice(), "pulse:a");
  const uint64_t frames = master->outputFramesWritten();
  ASSERT_TRUE(runUntil([&] { return master->outputFramesWritten() > frames + 22050; }));

  // No sink named: the stream follows the system default as it changes.
  ASSERT_EQ(master->setAudioOutput("pulse"), 0);
  pulse.pactl("load-module module-null-sink sink_name=c");
  pulse.pactl("set-default-sink c");
  ASSERT_TRUE(runUntil([&] { return pulse.sinkOfStream() == "c" && owner.outputs.back() == "pulse:c"; }));

  // Another kind of output while playing: opened and swapped in (ALSA's
  // null plug-in), the sound server's stream gone.
  ASSERT_EQ(master->setAudioOutput("alsa:null"), 0);
  ASSERT_TRUE(runUntil([&] { return owner.outputs.back() == "alsa:null" && pulse.sinkOfStream().empty(); }));
  EXPECT_EQ(master->audioOutputName(), "alsa");
  EXPECT_EQ(owner.states.size(), states);
  EXPECT_EQ(master->state(), BVPlayerStatePlaying);
  master->setOwner(nullptr);
}
