// The synchronous HEAD status request.
#include <belvane/BVURLAdditions.h>
#include <belvane/BVURLConnection.h>

#include "support/test_http_server.h"

#include <gtest/gtest.h>

#include <chrono>

using belvane::test::Response;
using belvane::test::TestHTTPServer;

namespace {

int status(const std::string& url, BVErrorRef* error) {
  return HTTPStatusCodeFromSynchronousHEADReturningError(*BVURL::URLWithString(url), error);
}

}  // namespace

TEST(StatusRequest, ReportsTheFinalStatusOfAHEADRequest) {
  TestHTTPServer server;
  server.route("/live", Response::ok("audio/mpeg", "not sent for HEAD"));
  server.route("/moved", Response::redirect(server.url("/live"), 302));
  server.route("/gone", Response::status(410));

  BVErrorRef error;
  EXPECT_EQ(status(server.url("/moved"), &error), 200);
  EXPECT_EQ(error, nullptr);
  EXPECT_EQ(status(server.url("/gone"), &error), 410);
  EXPECT_EQ(status(server.url("/unrouted"), nullptr), 404);
  for (const auto& request : server.requests()) EXPECT_EQ(request.method, "HEAD") << request.path;
  EXPECT_EQ(server.requestCount("/live"), 1);
}

TEST(StatusRequest, NoResponseGivesZeroAndAnErrorWithinTheTimeOut) {
  BVErrorRef error;
  EXPECT_EQ(status("http://127.0.0.1:" + std::to_string(TestHTTPServer::refusedPort()) + "/", &error), 0);
  ASSERT_NE(error, nullptr);
  EXPECT_EQ(error->domain(), BVURLErrorDomain);

  TestHTTPServer server;
  server.route("/hang", Response::hang());
  error = nullptr;
  auto start = std::chrono::steady_clock::now();
  EXPECT_EQ(status(server.url("/hang"), &error), 0);
  EXPECT_LT(std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count(), 40.0);
  ASSERT_NE(error, nullptr);
  EXPECT_EQ(error->code(), BVURLErrorTimedOut);
  // Without an error slot the answer is the same.
  EXPECT_EQ(status("http://127.0.0.1:" + std::to_string(TestHTTPServer::refusedPort()) + "/", nullptr), 0);
}
