// The stream probe against scripted HTTP and Shoutcast servers.
#include <belvane/BVURLProbe.h>

#include "support/test_http_server.h"

#include <gtest/gtest.h>

#include <chrono>

using belvane::test::Response;
using belvane::test::StreamStats;
using belvane::test::TestHTTPServer;

namespace {

std::optional<std::string> probe(const std::string& url) {
  return BVURLProbe::create(*BVURL::URLWithString(url))->contentType();
}

}  // namespace

TEST(URLProbe, ShoutcastRepliesAreReadFromTheirRawHeaderBlock) {
  TestHTTPServer server;
  server.route("/live", Response("ICY 200 OK")
                            .header("content-type", "audio/mpeg")
                            .header("icy-name", "X")
                            .chunk(std::string(4096, '\xff'), 0.2));
  server.route("/offline", Response("ICY 404 Resource Not Found"));

  auto live = BVURLProbe::create(*BVURL::URLWithString(server.url("/live")));
  EXPECT_EQ(live->contentType(), "audio/mpeg");
  ASSERT_TRUE(live->data());
  EXPECT_EQ(std::string(live->data()->begin(), live->data()->begin() + 12), "ICY 200 OK\r\n");
  EXPECT_EQ(probe(server.url("/offline")), std::nullopt);
  EXPECT_EQ(server.requests().at(0).method, "GET");
}

TEST(URLProbe, HTTPHeaderFieldsWinOverTheBody) {
  TestHTTPServer server;
  server.route("/list.pls", Response::ok("audio/x-scpls", "content-type: audio/mpeg\r\n\r\n[playlist]\r\n"));
  server.route("/moved", Response::redirect(server.url("/list.pls")));
  // No Content-Type field: a raw block at the start of the body answers.
  server.route("/bare", Response().chunk("Content-Type: video/x-ms-asf\r\n\r\n<ASX>"));
  server.route("/nothing", Response().chunk("[playlist]\r\nFile1=http://x/\r\n"));

  EXPECT_EQ(probe(server.url("/list.pls")), "audio/x-scpls");
  EXPECT_EQ(probe(server.url("/moved")), "audio/x-scpls");
  EXPECT_EQ(probe(server.url("/bare")), "video/x-ms-asf");
  EXPECT_EQ(probe(server.url("/nothing")), std::nullopt);
  // Header names are case-insensitive: Python's http.server writes
  // "Content-type".
  server.route("/python.mp3", Response().header("Content-type", "audio/mpeg").chunk("ID3"));
  server.route("/shouting", Response().header("CONTENT-TYPE", "audio/aacp").chunk("x"));
  EXPECT_EQ(probe(server.url("/python.mp3")), "audio/mpeg");
  EXPECT_EQ(probe(server.url("/shouting")), "audio/aacp");
  // An empty body finishes the load without data.
  server.route("/empty", Response::status(204, "text/plain"));
  EXPECT_EQ(probe(server.url("/empty")), "text/plain");
}

TEST(URLProbe, HostileServersCannotHoldIt) {
  TestHTTPServer server;
  // 100 MB of body: only the first chunk is kept and the stream is cut.
  auto stats = std::make_shared<StreamStats>();
  server.route("/huge", Response().chunk("ICY-like: no\r\n").generate(belvane::test::repeatBytes("x", 100'000'000, stats)));
  // A header block that never ends.
  server.route("/endless-head", Response::rawStream([](belvane::test::ResponseWriter& w) {
    if (!w.write("HTTP/1.1 200 OK\r\n")) return;
    while (w.write("X-Filler: aaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaa\r\n")) {
    }
  }));

  auto start = std::chrono::steady_clock::now();
  auto huge = BVURLProbe::create(*BVURL::URLWithString(server.url("/huge")));
  EXPECT_EQ(huge->contentType(), std::nullopt);
  ASSERT_TRUE(huge->data());
  EXPECT_GT(huge->data()->size(), 0u);
  EXPECT_LE(huge->data()->size(), 4u << 20);
  EXPECT_TRUE(belvane::test::waitUntil([&] { return stats->finished.load(); }, 20.0));
  EXPECT_TRUE(stats->clientGone);
  EXPECT_LT(stats->bytesWritten, 100'000'000u);

  EXPECT_EQ(probe(server.url("/endless-head")), std::nullopt);
  EXPECT_LT(std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count(), 60.0);

  // Refused connections give nothing, with no bytes.
  auto refused = BVURLProbe::create(
      *BVURL::URLWithString("http://127.0.0.1:" + std::to_string(TestHTTPServer::refusedPort()) + "/"));
  EXPECT_EQ(refused->contentType(), std::nullopt);
  EXPECT_TRUE(refused->data() && refused->data()->empty());
}
