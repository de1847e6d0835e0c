// A host switches stations by calling playLink again on one master player:
// whatever the last playback came to, the new link is played afresh on the
// engine it needs, its own states are reported, and the old audio stops.
#include <belvane/BVMasterPlayer.h>
#include <belvane/BVMP3StreamPlayer.h>
#include <belvane/BVQuickTimePlayer.h>

#include "quicktime_test_support.h"
#include "support/icy_test_server.h"
#include "support/mp3_test_data.h"
#include "support/temp_dir.h"

#include <gtest/gtest.h>

using namespace belvane::test;

namespace {

enum class Engine { MP3, General };

struct Station {
  std::string url;
  BVPlayerState ends;  // the state the playback reaches (Playing for a live station)
  Engine engine;
};

}  // namespace

TEST(StationSwitching, EveryPairOfEnginesAndEndStatesOnOneMasterPlayer) {
  BELVANE_SKIP_WITHOUT_LAME();
  TempDir dir;
  IcyTestServer server;
  IcyStreamScript mp3;
  mp3.audio = {stereoTone44k()};
  server.serve("/mp3", {mp3});
  Mp3Data adts = aacTone(dir, 2.0);
  IcyStreamScript aac;
  aac.contentType = "audio/aacp";
  aac.audio = {&adts};
  server.serve("/aac", {aac});
  server.http().route("/gone", Response::status(404));
  std::string ogg = writeMediaFile(dir.path() + "/short.ogg", MediaKind::OggVorbis, 0.5);

  const Station live{server.url("/mp3"), BVPlayerStatePlaying, Engine::MP3};
  const Station aacLive{server.url("/aac"), BVPlayerStatePlaying, Engine::General};
  const Station missing{server.url("/gone"), BVPlayerStateError, Engine::MP3};
  const Station finished{BVURL::fileURLWithPath(ogg).absoluteString(), BVPlayerStateStopped, Engine::General};
  // Each engine and each end state followed by each other.
  const std::vector<Station> order{live, aacLive, live, missing, live, finished, live,    missing, aacLive,
                                   missing, missing, finished, aacLive, finished, finished, missing, live};

  MasterRun run("null");
  auto& master = run.master;
  auto& owner = run.owner;
  for (size_t i = 0; i < order.size(); ++i) {
    const Station& station = order[i];
    SCOPED_TRACE("switch " + std::to_string(i) + " to " + station.url);
    owner.states.clear();
    owner.titles.clear();
    master->playLink(linkTo(station.url));
    bool reached = owner.runUntil(station.ends, 20.0);
    auto states = owner.sequence();
    std::string seen;
    for (auto s : states) seen += std::to_string(int(s)) + " ";
    ASSERT_TRUE(reached) << "states: " << seen << (owner.states.empty() || !owner.states.back().error ? "" : owner.states.back().error->description());
    EXPECT_EQ(states.front(), BVPlayerStateConnecting);
    EXPECT_EQ(states.back(), station.ends);
    if (station.ends != BVPlayerStatePlaying) continue;
    // The new station's audio and titles flow; the old one is silent (the
    // frames counted are the new sub-player's only).
    uint64_t before = master->outputFramesWritten();
    EXPECT_TRUE(BVRunLoop::main().runUntil([&] { return master->outputFramesWritten() > before + 4096; }, 5.0));
    EXPECT_TRUE(BVRunLoop::main().runUntil([&] { return !owner.titles.empty(); }, 10.0));
  }
  // A switch while the last link is still connecting.
  owner.states.clear();
  master->playLink(linkTo(aacLive.url));
  master->playLink(linkTo(live.url));
  ASSERT_TRUE(owner.runUntil(BVPlayerStatePlaying, 20.0));
  EXPECT_EQ(master->link()->url().absoluteString(), live.url);
}
