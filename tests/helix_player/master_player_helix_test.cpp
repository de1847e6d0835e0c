// The master player hands a RealMedia stream, which the MP3 stream player
// declines, to the Helix engine's player without telling the host of the
// failure; the host then hears the Helix player's states. (That only the
// Helix engine claims RealMedia besides the streamer: the engine center's
// test.)
#include <belvane/BVMasterPlayer.h>
#include <belvane/BVMediaFormat.h>
#include <belvane/BVMediaLink.h>
#include <belvane/BVPlayerEngines.h>

#include "helix_player/scripted_kit_driver.h"
#include "support/test_http_server.h"

#include <gtest/gtest.h>

#include <algorithm>

using namespace belvane::test;

TEST(MasterPlayerWithHelix, SwitchesToHelixForAStreamOnlyHelixClaims) {
  ScriptedKit& kit = ScriptedKit::shared();
  ASSERT_TRUE(kit.reset);
  kit.reset();
  TestHTTPServer server;
  server.route("/station.ra", Response::ok("audio/x-pn-realaudio", std::string(16 * 1024, '.')));
  auto link = BVMediaLink::linkWithURL(*BVURL::URLWithString(server.url("/station.ra")));

  MasterRun run("null:fast");
  auto& master = run.master;
  auto& host = run.owner;
  master->setVolume(0.4f);
  master->playLink(link);
  ASSERT_TRUE(BVRunLoop::main().runUntil([&] { return master->subPlayer()->className() == "BVHelixPlayer"; }, 20.0));

  auto calls = kit.calls();
  EXPECT_NE(std::find(calls.begin(), calls.end(), "openWithURL " + server.url("/station.ra") + " audio/x-pn-realaudio"),
            calls.end());
  EXPECT_NE(std::find(calls.begin(), calls.end(), "setVolume 40"), calls.end());
  EXPECT_EQ(master->subPlayer()->owner(), master.get());

  kit.emitContentState(HXContentStateStopped, HXContentStatePlaying);
  deliverReports();
  EXPECT_EQ(master->state(), BVPlayerStatePlaying);
  ASSERT_FALSE(host.states.empty());
  EXPECT_EQ(host.states.back().to, BVPlayerStatePlaying);
  for (auto& s : host.states) EXPECT_NE(s.to, BVPlayerStateError);
}
