// The master player's relay and swallow rules, and the life of players
// while the streaming threads deliver: owners that drop the player inside a
// callback and destruction mid-stream.
#include <gtest/gtest.h>

#include <thread>

#include <belvane/BVMP3StreamPlayer.h>
#include <belvane/BVMasterPlayer.h>
#include <belvane/BVPlayerEngineCenter.h>
#include <belvane/BVPlayerEngines.h>

#include <optional>

#include "support/icy_test_server.h"
#include "support/recording_owner.h"
#include "support/temp_dir.h"

using namespace belvane::test;

namespace {
IcyStreamScript liveStream() {
  IcyStreamScript s;
  s.audio = {stereoTone44k()};
  s.audioBytes = 400'000;
  return s;
}

std::shared_ptr<BVMasterPlayer> makeMaster(RecordingOwner& owner) {
  auto master = BVMasterPlayer::create();
  master->setOwner(&owner);
  auto* mp3 = dynamic_cast<BVMP3StreamPlayer*>(master->subPlayer().get());
  EXPECT_TRUE(mp3);
  if (mp3) mp3->setAudioOutput("null:fast");
  return master;
}

}  // namespace

// The master relays its sub-player's states and titles as its own. Asked
// while the first song's title is announced, the playback ends where the
// next song's title begins, at its first frame; a title sent again is no new
// song. A fade handed to the master reaches the output.
TEST(MasterPlayer, StopsAfterTheCurrentTitleAtTheNextTitlesFirstFrame) {
  BELVANE_SKIP_WITHOUT_LAME();
  IcyTestServer server;
  auto s = liveStream();
  s.titleForBlock = [](int b) { return b < 3 ? "Song A" : "Song B"; };
  server.serve("/live", {s});
  struct StoppingOwner : RecordingOwner {
    void playerAttributeChanged(BVBasePlayer& player, const BVDictionary& attributes) override {
      RecordingOwner::playerAttributeChanged(player, attributes);
      if (titles.size() == 1 && !player.stopsAfterCurrentTitle()) player.stopAfterCurrentTitle();
    }
  } owner;
  belvane::test::TempDir dir;
  auto master = makeMaster(owner);
  ASSERT_EQ(master->setAudioOutput("wav:" + dir.path() + "/out.wav"), 0);
  master->fadeVolumeTo(0.5f, 0.05);
  master->playLink(linkTo(server.url("/live")));
  ASSERT_TRUE(runUntilEnded(owner));
  EXPECT_EQ(owner.sequence(),
            (std::vector<BVPlayerState>{BVPlayerStateConnecting, BVPlayerStatePlaying, BVPlayerStateStopped}));
  for (auto& e : owner.states) EXPECT_EQ(e.player, master.get());
  EXPECT_EQ(owner.states.back().error, nullptr);
  EXPECT_FALSE(master->stopsAfterCurrentTitle());
  ASSERT_FALSE(owner.titles.empty());
  for (auto& title : owner.titles) EXPECT_EQ(title, "Song A");
  std::optional<IcyTitleMark> next;
  for (auto& m : server.titles())
    if (m.connection == server.connections("/live") - 1 && m.title == "Song B" && !next) next = m;
  ASSERT_TRUE(next);
  EXPECT_EQ(master->outputFramesWritten(), next->samplesBefore);
  EXPECT_FLOAT_EQ(master->volume(), 0.5f);
}

TEST(MasterPlayer, FailureWithFallbackStreamsButNoOtherPlayerIsRelayed) {
  BELVANE_SKIP_WITHOUT_LAME();
  IcyTestServer server;
  server.serve("/aac", {withPayload(liveStream(), IcyStreamScript::Payload::Noise, "text/plain")});
  // A link the host gave to the MP3 stream engine by its identifier: no
  // other engine claims it, nor the type its stream is served with.
  auto format = BVMediaMutableFormat::formatByInferringFromURL(*BVURL::URLWithString(server.url("/aac")));
  format->setEngineID(BVMP3StreamPlayerEngine::sharedEngine()->engineID());
  auto editable = linkTo(server.url("/aac"))->mutableCopy();
  editable->setFormat(format->copy());
  auto link = editable->copy();

  // The candidates are the link's engines without the MP3 stream engine.
  auto engines = BVPlayerEngineCenter::sharedCenter()->preferedEnginesForFormat(*link->format());
  ASSERT_FALSE(engines.empty());
  EXPECT_EQ(engines.front(), std::shared_ptr<BVBasePlayerEngine>(BVMP3StreamPlayerEngine::sharedEngine()));

  RecordingOwner owner;
  auto master = makeMaster(owner);
  auto* first = master->subPlayer().get();
  master->playLink(link);
  ASSERT_TRUE(runUntilEnded(owner));
  // No other engine makes a player yet: the error reaches the host as is.
  EXPECT_EQ(master->subPlayer().get(), first);
  EXPECT_FALSE(dynamic_cast<BVMP3StreamPlayer*>(first)->fallbackStreams().empty());
  ASSERT_EQ(owner.states.back().to, BVPlayerStateError);
  EXPECT_EQ(owner.states.back().player, master.get());
  EXPECT_TRUE(owner.states.back().error);
}

TEST(PlayerLifetime, OwnerMayDropThePlayerInsideStateChange) {
  BELVANE_SKIP_WITHOUT_LAME();
  IcyTestServer server;
  server.serve("/live", {liveStream()});
  RecordingOwner owner;
  auto master = makeMaster(owner);
  owner.onState = [&](BVBasePlayer&, BVPlayerState s) {
    if (s == BVPlayerStatePlaying) master.reset();
  };
  master->playLink(linkTo(server.url("/live")));
  EXPECT_TRUE(BVRunLoop::main().runUntil([&] { return !master; }, 20.0));
  BVRunLoop::main().runFor(0.2);  // late hand-offs find nobody
  EXPECT_EQ(owner.sequence().back(), BVPlayerStatePlaying);
}

#if defined(BELVANE_THREAD_CHECKS) || !defined(NDEBUG)
// The thread rules are checked where the sanitizers run: a player used from
// a thread other than its run loop's stops the process there, naming the
// operation, rather than racing unseen.
TEST(MasterPlayerThreads, ACallFromAnotherThreadStopsAtOnceNamingIt) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  auto master = BVMasterPlayer::create();
  EXPECT_DEATH(std::thread([&] { master->stop(); }).join(), "BVMasterPlayer::stop was called from a thread other");
}
#endif
