// End to end: a RealMedia link that only the Helix engine claims (the MP3
// streamer declines it without the host hearing of it) plays through the
// master player, the Helix player and the built kit, found in the build
// tree's own RealPlayer bundle, to the output the host chose.
#include <belvane/BVMP3StreamPlayer.h>
#include <belvane/BVMasterPlayer.h>
#include <belvane/BVPlayerEngines.h>

#include "kit_harness.h"
#include "support/recording_owner.h"
#include "support/temp_dir.h"
#include "support/test_http_server.h"

#include <gtest/gtest.h>

#include <algorithm>

using namespace belvane::test;

TEST(KitThroughMasterPlayer, ARealMediaLinkConnectsPlaysAndStopsWithItsTitle) {
  // No RealPlayer in the user's folders: the built one is used. (The
  // system folders stay: GIO finds its settings schemas there.)
  TempDir home;
  ScopedEnv xdg("XDG_DATA_HOME", home.path());
  auto helix = BVHelixPlayerEngine::sharedEngine();
  helix->recheckAvailablity();
  ASSERT_TRUE(helix->isAvailable()) << (helix->loadingError() ? helix->loadingError()->localizedDescription() : "");

  TestHTTPServer server;
  server.route("/clip.rm", Response::ok("audio/x-pn-realaudio", readWholeFile(realAudioFile())));
  RecordingOwner host;
  auto master = BVMasterPlayer::create();
  master->setOwner(&host);
  // The host's output reaches the kit through its table: a WAV file.
  const std::string wav = home.path() + "/kit.wav";
  ASSERT_EQ(master->setAudioOutput("wav:" + wav), 0);
  master->setVolume(0.4f);
  master->playLink(linkTo(server.url("/clip.rm")));

  ASSERT_TRUE(runUntilEnded(host, 30));
  EXPECT_EQ(master->subPlayer()->className(), "BVHelixPlayer");
  // The master's volume went with the hand-over (the Helix player's test
  // sees it reach the kit), and the master owns the Helix player.
  EXPECT_FLOAT_EQ(master->subPlayer()->volume(), 0.4f);
  EXPECT_EQ(master->subPlayer()->owner(), master.get());
  // The Helix player's own start is no second Connecting for the host.
  for (auto& event : host.states) EXPECT_FALSE(event.error) << event.error->localizedDescription();
  EXPECT_EQ(host.sequence(), (std::vector<BVPlayerState>{BVPlayerStateConnecting, BVPlayerStatePlaying, BVPlayerStateStopped}));
  auto titles = host.announced(BVPlayerAttributeTrackTitleKey);
  ASSERT_FALSE(titles.empty());
  EXPECT_EQ(titles.back(), BVValue("T"));
  master->setOwner(nullptr);
  master.reset();
  const std::string written = readWholeFile(wav);
  ASSERT_GT(written.size(), 44u + 8000u) << "a second of the clip at least";
  EXPECT_EQ(written.substr(0, 4), "RIFF");
}
