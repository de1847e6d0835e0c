// End to end: a RealMedia link that only the Helix engine claims plays
// through the master player, the Helix player and the built kit, found in
// the build tree's own RealPlayer bundle.
#include <belvane/BVConstants.h>
#include <belvane/BVMP3StreamPlayer.h>
#include <belvane/BVMasterPlayer.h>
#include <belvane/BVMediaLink.h>
#include <belvane/BVPlayerEngines.h>
#include <belvane/BVRunLoop.h>
#include <belvane/BVURL.h>

#include "kit_harness.h"
#include "support/temp_dir.h"
#include "support/test_http_server.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>

using namespace belvane::test;

namespace {

struct Host : BVPlayerOwner {
  std::vector<BVPlayerState> states;
  std::string title;
  void playerStateChanged(BVBasePlayer&, BVPlayerState, BVPlayerState to, const BVErrorRef& error) override {
    states.push_back(to);
    if (error) ADD_FAILURE() << "error: " << error->localizedDescription();
  }
  void playerAttributeChanged(BVBasePlayer&, const BVDictionary& attributes) override {
    auto it = attributes.find(BVPlayerAttributeTrackTitleKey);
    if (it != attributes.end()) title = it->second.stringOr();
  }
};

}  // namespace

TEST(KitThroughMasterPlayer, ARealMediaLinkConnectsPlaysAndStopsWithItsTitle) {
  // No RealPlayer in the user's folders: the built one is used. (The
  // system folders stay: GIO finds its settings schemas there.)
  TempDir home;
  const char* savedHome = std::getenv("XDG_DATA_HOME");
  std::string saved = savedHome ? savedHome : "";
  setenv("XDG_DATA_HOME", home.path().c_str(), 1);
  ScopedAudioOutput output("null:fast");
  auto helix = BVHelixPlayerEngine::sharedEngine();
  helix->recheckAvailablity();
  ASSERT_TRUE(helix->isAvailable()) << (helix->loadingError() ? helix->loadingError()->localizedDescription() : "");

  TestHTTPServer server;
  server.route("/clip.rm", Response::ok("audio/x-pn-realaudio", realAudioBytes()));
  Host host;
  auto master = BVMasterPlayer::create();
  master->setOwner(&host);
  if (auto* mp3 = dynamic_cast<BVMP3StreamPlayer*>(master->subPlayer().get())) mp3->setAudioOutput("null:fast");
  master->playLink(BVMediaLink::linkWithURL(*BVURL::URLWithString(server.url("/clip.rm"))));

  ASSERT_TRUE(BVRunLoop::main().runUntil(
      [&] { return !host.states.empty() && host.states.back() >= BVPlayerStateStopped; }, 30));
  EXPECT_EQ(master->subPlayer()->className(), "BVHelixPlayer");
  // The master relays the Helix player's own start as a second Connecting.
  std::vector<BVPlayerState> states = host.states;
  states.erase(std::unique(states.begin(), states.end()), states.end());
  EXPECT_EQ(states, (std::vector<BVPlayerState>{BVPlayerStateConnecting, BVPlayerStatePlaying, BVPlayerStateStopped}));
  EXPECT_EQ(host.title, "T");
  master->setOwner(nullptr);
  savedHome ? setenv("XDG_DATA_HOME", saved.c_str(), 1) : unsetenv("XDG_DATA_HOME");
}
