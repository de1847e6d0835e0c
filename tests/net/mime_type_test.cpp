// MIME types of local files and of http URLs (HEAD on a worker thread), and
// the synchronous HEAD status request: both ask the same HEAD of a server.
#include <belvane/BVURLAdditions.h>
#include <belvane/BVURLConnection.h>

#include "support/temp_dir.h"
#include "support/test_http_server.h"

#include <gtest/gtest.h>

#include <chrono>

using belvane::test::Response;
using belvane::test::TestHTTPServer;

namespace {

std::optional<std::string> mimeType(const std::string& url, double timeout = 2.0) {
  return bvRequestMIMETypeWithTimeout(*BVURL::URLWithString(url), timeout);
}

int status(const std::string& url, BVErrorRef* error) {
  return HTTPStatusCodeFromSynchronousHEADReturningError(*BVURL::URLWithString(url), error);
}

double secondsSince(std::chrono::steady_clock::time_point start) {
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

}  // namespace

TEST(HEADRequest, MIMETypeAndStatusAreThoseOfTheFinalResponseWhateverItsStatus) {
  TestHTTPServer server;
  server.route("/station.pls", Response::ok("audio/x-scpls; charset=utf-8", "[playlist]\n"));
  server.route("/old", Response::redirect(server.url("/station.pls"), 301));
  server.route("/moved", Response::redirect(server.url("/station.pls"), 302));
  server.route("/missing", Response::status(404, "text/html", "<html>gone</html>"));
  server.route("/gone", Response::status(410));

  EXPECT_EQ(mimeType(server.url("/old")), "audio/x-scpls");
  EXPECT_EQ(server.requestCount("/station.pls"), 1);
  // An error page's type is returned like any other.
  EXPECT_EQ(mimeType(server.url("/missing")), "text/html");
  BVErrorRef error;
  EXPECT_EQ(status(server.url("/moved"), &error), 200);
  EXPECT_EQ(error, nullptr);
  EXPECT_EQ(server.requestCount("/station.pls"), 2);
  EXPECT_EQ(status(server.url("/gone"), &error), 410);
  EXPECT_EQ(status(server.url("/unrouted"), nullptr), 404);
  for (const auto& request : server.requests()) EXPECT_EQ(request.method, "HEAD") << request.path;

  // A Shoutcast server answers HEAD as it answers GET.
  server.route("/icy", Response("ICY 200 OK").header("content-type", "audio/aacp"));
  EXPECT_EQ(mimeType(server.url("/icy")), "audio/aacp");

  // A reply without a Content-Type has no MIME type.
  server.route("/untyped", Response());
  EXPECT_EQ(mimeType(server.url("/untyped")), std::nullopt);
}

TEST(HEADRequest, FailuresEndWithinTheTimeOut) {
  TestHTTPServer server;
  server.route("/hang", Response::hang());
  // (A header block that never ends: the probe's test; both meet the same
  // cap in the shared transfer.)

  auto start = std::chrono::steady_clock::now();
  EXPECT_EQ(mimeType(server.url("/hang"), 2.0), std::nullopt);
  EXPECT_LT(secondsSince(start), 15.0);
  EXPECT_EQ(server.requestCount("/hang"), 1);

  const std::string refused = "http://127.0.0.1:" + std::to_string(TestHTTPServer::refusedPort());
  start = std::chrono::steady_clock::now();
  EXPECT_EQ(mimeType(refused + "/x.mp3"), std::nullopt);
  EXPECT_LT(secondsSince(start), 15.0);

  // The status request gives 0 and says why, with or without an error slot.
  BVErrorRef error;
  EXPECT_EQ(status(refused + "/", &error), 0);
  ASSERT_NE(error, nullptr);
  EXPECT_EQ(error->domain(), BVURLErrorDomain);
  EXPECT_EQ(status(refused + "/", nullptr), 0);
  error = nullptr;
  start = std::chrono::steady_clock::now();
  EXPECT_EQ(status(server.url("/hang"), &error), 0);
  EXPECT_LT(secondsSince(start), 40.0);
  ASSERT_NE(error, nullptr);
  EXPECT_EQ(error->code(), BVURLErrorTimedOut);
}

TEST(HEADRequest, OtherSchemesGiveNothingWithoutARequest) {
  TestHTTPServer server;
  const std::string port = std::to_string(server.port());
  EXPECT_EQ(mimeType("ftp://127.0.0.1:" + port + "/a.mp3"), std::nullopt);
  EXPECT_EQ(mimeType("rtsp://127.0.0.1:" + port + "/a.mp3"), std::nullopt);
  EXPECT_EQ(mimeType("mms://127.0.0.1:" + port + "/a.asf"), std::nullopt);
  // The scheme is compared as written.
  EXPECT_EQ(mimeType("HTTP://127.0.0.1:" + port + "/a.mp3"), std::nullopt);
  EXPECT_EQ(mimeType("/a.mp3"), std::nullopt);
  EXPECT_TRUE(server.requests().empty());
}

TEST(HEADRequest, MIMETypesOfLocalFilesByContentAndName) {
  belvane::test::TempDir dir;
  auto file = [&](const std::string& name) { return BVURL::fileURLWithPath(dir.path() + "/" + name); };
  dir.write("notes.txt", "plain words\n");
  dir.write("blob", std::string("\x01\x02\x03\xfe\xff\x00\x10", 7));
  EXPECT_EQ(bvRequestMIMETypeWithTimeout(file("notes.txt"), 2.0), "text/plain");
  // Directories, missing files and unknown content have no MIME type.
  EXPECT_EQ(bvRequestMIMETypeWithTimeout(BVURL::fileURLWithPath(dir.path()), 2.0), std::nullopt);
  EXPECT_EQ(bvRequestMIMETypeWithTimeout(file("none.mp3"), 2.0), std::nullopt);
  EXPECT_EQ(bvRequestMIMETypeWithTimeout(file("blob"), 2.0), std::nullopt);
}
