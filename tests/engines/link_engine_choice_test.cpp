// A link's engine choice: the first available candidate, and the HEAD
// fallback to the general engine when no engine claims the format.
#include <belvane/BVMediaLink.h>
#include <belvane/BVPlayerEngines.h>
#include <belvane/BVURLConnection.h>

#include "engines/stub_engine.h"
#include "support/test_http_server.h"

#include <gtest/gtest.h>

using belvane::test::Response;
using belvane::test::StubEngine;
using belvane::test::TestHTTPServer;

namespace {

// A link whose format gives no clue, so no request happens before the choice.
std::shared_ptr<BVMediaLink> linkTo(const std::string& url) {
  return BVMediaLink::create(BVURL::URLWithString(url), std::nullopt, nullptr, nullptr);
}

}  // namespace

TEST(LinkEngineChoice, TakesTheFirstAvailableCandidateWithoutTheNetwork) {
  TestHTTPServer server;
  auto link = linkTo(server.url("/stream"));
  auto off = std::make_shared<StubEngine>(false);
  auto on = std::make_shared<StubEngine>(true);
  auto alsoOn = std::make_shared<StubEngine>(true);

  EXPECT_EQ(link->defaultEngineFromEngines({off, on, alsoOn}), on);
  EXPECT_EQ(link->defaultEngineFromEngines({off, off}), nullptr);
  EXPECT_FALSE(link->lastError());
  EXPECT_TRUE(server.requests().empty());
}

TEST(LinkEngineChoice, FallsBackToTheGeneralEngineWhenTheServerAnswers) {
  if (!BVQuicktimePlayerEngine::canInitWithURL(*BVURL::URLWithString("http://127.0.0.1/"))) {
    GTEST_SKIP() << "no GStreamer HTTP source installed";
  }
  TestHTTPServer server;
  server.route("/ok", Response::status(200, "text/plain"));
  server.route("/redirect-class", Response::status(399, "text/plain"));
  server.route("/no-head", Response::status(501, "text/plain"));
  auto quickTime = BVQuicktimePlayerEngine::sharedEngine();

  for (const char* path : {"/ok", "/redirect-class", "/no-head"}) {
    auto link = linkTo(server.url(path));
    EXPECT_EQ(link->defaultEngineFromEngines({}), quickTime) << path;
    EXPECT_EQ(server.requestCount(path), 1) << path;
    EXPECT_EQ(server.requests().back().method, "HEAD");
    EXPECT_FALSE(link->lastError()) << path;
  }
}

TEST(LinkEngineChoice, KeepsTheReasonWhenTheServerRefuses) {
  TestHTTPServer server;
  server.route("/gone", Response::status(404));

  auto link = linkTo(server.url("/gone"));
  EXPECT_EQ(link->defaultEngineFromEngines({}), nullptr);
  ASSERT_TRUE(link->lastError());
  EXPECT_EQ(link->lastError()->domain(), "BVHTTPErrorDomain");
  EXPECT_EQ(link->lastError()->code(), 404);
  EXPECT_EQ(link->lastError()->localizedDescription(), BVLocalizedStringForHTTPStatusCode(404));

  // A failed connection leaves the request's own error.
  auto refused = linkTo("http://127.0.0.1:" + std::to_string(TestHTTPServer::refusedPort()) + "/stream");
  EXPECT_EQ(refused->defaultEngineFromEngines({}), nullptr);
  ASSERT_TRUE(refused->lastError());
  EXPECT_NE(refused->lastError()->domain(), "BVHTTPErrorDomain");

  // An available candidate leaves the last error as it was.
  auto on = std::make_shared<StubEngine>(true);
  EXPECT_EQ(link->defaultEngineFromEngines({on}), on);
  EXPECT_EQ(link->lastError()->code(), 404);
}

TEST(LinkEngineChoice, DefaultEngineRanksTheLinksFormat) {
  TestHTTPServer server;
  server.route("/show.ogg", Response::ok("audio/ogg"));
  auto link = BVMediaLink::linkWithURL(*BVURL::URLWithString(server.url("/show.ogg")));
  EXPECT_EQ(link->defaultEngine(), BVQuicktimePlayerEngine::sharedEngine());
  // The MIME type was asked once (by the stream engine, which does not list
  // "ogg"); the fallback's HEAD request did not happen.
  EXPECT_EQ(server.requestCount("/show.ogg"), 1);
}
