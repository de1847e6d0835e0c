// Request settings through the public player: the user agent and an extra
// header field on every request of a playback (the station's playlist and
// the station itself), a link's title encoding over detection, and the
// proxy: an explicit one for a station of each engine, the environment's by
// default, none when asked.
#include <belvane/BVMasterPlayer.h>
#include <belvane/BVQuickTimePlayer.h>
#include <belvane/BVRequestSettings.h>

#include "quicktime_test_support.h"
#include "support/icy_test_server.h"
#include "support/mp3_test_data.h"
#include "support/scoped_env.h"
#include "support/temp_dir.h"
#include "support/test_http_proxy.h"

#include <gtest/gtest.h>

#include <algorithm>

using namespace belvane::test;

namespace {

// A master player playing link with settings.
struct Playback : MasterRun {
  Playback(const BVRequestSettingsRef& settings, const std::shared_ptr<BVMediaLink>& link) : MasterRun("null:fast") {
    master->setRequestSettings(settings);
    master->playLink(link);
  }
};

// Requests the server had that came through the test proxy.
size_t viaProxy(const std::vector<ReceivedRequest>& requests) {
  return size_t(std::count_if(requests.begin(), requests.end(), [](const ReceivedRequest& r) {
    return r.header("Via") && r.header("Via")->find("belvane-test-proxy") != std::string::npos;
  }));
}

}  // namespace

TEST(RequestSettings, UserAgentAndHeaderGoWithThePlaylistAndTheStationAndTitlesTakeTheLinksEncoding) {
  BELVANE_SKIP_WITHOUT_LAME();
  IcyTestServer server;
  IcyStreamScript script;
  script.audio = {stereoTone44k()};
  // "Привет" in Windows-1251, which the link says is KOI8-R.
  script.titleForBlock = [](int) { return std::string("\xCF\xF0\xE8\xE2\xE5\xF2"); };
  server.serve("/live", {script});
  server.http().route("/list.pls", Response::ok("audio/x-scpls", "[playlist]\nNumberOfEntries=1\nFile1=" +
                                                                     server.url("/live") + "\n"));
  auto link = linkTo(server.url("/list.pls"))->mutableCopy();
  link->setTitleEncoding("KOI8-R");
  Playback run(BVRequestSettings::defaultSettings()->withUserAgent("TestRadio/2.0")->withHeader("X-Listener", " 42 "),
          link->copy());
  ASSERT_TRUE(run.owner.runUntil(BVPlayerStatePlaying));
  BVRunLoop::main().runUntil([&] { return !run.owner.titles.empty(); }, 20.0);

  auto requests = server.http().requests();
  EXPECT_GE(server.http().requestCount("/list.pls"), 1);
  EXPECT_GE(server.http().requestCount("/live"), 1);
  for (const auto& request : requests) {
    ASSERT_TRUE(request.header("User-Agent")) << request.method << " " << request.path;
    EXPECT_EQ(*request.header("User-Agent"), "TestRadio/2.0") << request.method << " " << request.path;
    ASSERT_TRUE(request.header("X-Listener")) << request.method << " " << request.path;
    EXPECT_EQ(*request.header("X-Listener"), "42");
  }
  ASSERT_FALSE(run.owner.titles.empty());
  EXPECT_EQ(run.owner.titles.front(), "оПХБЕР");
}

TEST(RequestSettings, AProxyCarriesStationsOfBothEnginesAndTheEnvironmentsIsTheDefault) {
  BELVANE_SKIP_WITHOUT_LAME();
  TempDir dir;
  Mp3Data aac = aacTone(dir, 2.0);
  ASSERT_FALSE(aac.frames.empty());
  IcyTestServer server;
  IcyStreamScript mp3;
  mp3.audio = {stereoTone44k()};
  server.serve("/mp3", {mp3});
  server.serve("/aac", {{.contentType = "audio/aacp", .audio = {&aac}}});
  TestHTTPProxy proxy;
  auto throughProxy = BVRequestSettings::defaultSettings()->withProxyURL(proxy.url());
  ASSERT_TRUE(throughProxy);

  {
    Playback run(throughProxy, linkTo(server.url("/mp3")));
    ASSERT_TRUE(run.owner.runUntil(BVPlayerStatePlaying));
  }
  EXPECT_GE(proxy.requestsFor(server.url("/mp3")), 1);
  {
    Playback run(throughProxy, linkTo(server.url("/aac")));
    ASSERT_TRUE(run.owner.runUntil(BVPlayerStatePlaying, 30.0));
    EXPECT_NE(dynamic_cast<BVQuickTimePlayer*>(run.master->subPlayer().get()), nullptr);
  }
  EXPECT_GE(proxy.requestsFor(server.url("/aac")), 1);
  auto requests = server.http().requests();
  EXPECT_EQ(viaProxy(requests), requests.size()) << "every request of both stations came through the proxy";

  // No proxy of the player's own: the environment's; none: straight to the server.
  ScopedEnv httpProxy("http_proxy", proxy.url());
  ScopedEnv noProxy("no_proxy", "");
  {
    Playback run(nullptr, linkTo(server.url("/mp3")));
    ASSERT_TRUE(run.owner.runUntil(BVPlayerStatePlaying));
  }
  EXPECT_EQ(viaProxy(server.http().requests()), server.http().requests().size());
  const size_t before = server.http().requests().size();
  {
    Playback run(BVRequestSettings::defaultSettings()->withProxy(BVRequestSettings::Proxy::None),
            linkTo(server.url("/mp3")));
    ASSERT_TRUE(run.owner.runUntil(BVPlayerStatePlaying));
  }
  requests = server.http().requests();
  ASSERT_GT(requests.size(), before);
  EXPECT_EQ(viaProxy(requests), before) << "no request of the last playback came through the proxy";
}
