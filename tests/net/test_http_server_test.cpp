// The loopback test server itself: HEAD handling and a prompt shutdown with
// clients still connected.
#include "support/test_http_server.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <chrono>

using belvane::test::Response;
using belvane::test::TestHTTPServer;

namespace {

// A raw client: connects, sends the request, returns the socket.
int sendRequest(int port, const std::string& request) {
  int fd = socket(AF_INET, SOCK_STREAM, 0);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  address.sin_port = htons(uint16_t(port));
  EXPECT_EQ(connect(fd, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
  EXPECT_EQ(send(fd, request.data(), request.size(), 0), ssize_t(request.size()));
  return fd;
}

std::string readAll(int fd) {
  std::string out;
  char buffer[4096];
  for (ssize_t n; (n = recv(fd, buffer, sizeof buffer, 0)) > 0;) out.append(buffer, size_t(n));
  return out;
}

}  // namespace

TEST(TestHTTPServer, HeadGetsHeadersOnlyAndRequestsAreRecorded) {
  TestHTTPServer server;
  server.route("/a", Response::ok("text/plain", "hello"));
  server.route("POST", "/a", [](const belvane::test::ReceivedRequest& r) { return Response::ok("text/echo", r.body); });

  int fd = sendRequest(server.port(), "HEAD /a?x=1 HTTP/1.1\r\nHost: h\r\nX-Test: yes\r\n\r\n");
  EXPECT_EQ(readAll(fd),
            "HTTP/1.1 200 OK\r\nContent-Type: text/plain\r\nContent-Length: 5\r\nConnection: close\r\n\r\n");
  close(fd);
  fd = sendRequest(server.port(), "POST /a HTTP/1.1\r\nContent-Length: 3\r\n\r\nabc");
  std::string reply = readAll(fd);
  close(fd);
  EXPECT_EQ(reply.substr(reply.size() - 3), "abc");

  EXPECT_EQ(server.requestCount("/a"), 2);
  auto requests = server.requests();
  ASSERT_EQ(requests.size(), 2u);
  EXPECT_EQ(requests[0].target, "/a?x=1");
  ASSERT_NE(requests[0].header("x-test"), nullptr);
  EXPECT_EQ(*requests[0].header("x-test"), "yes");
  EXPECT_EQ(requests[1].method, "POST");
}

TEST(TestHTTPServer, StopsPromptlyWithClientsConnected) {
  int hanging, streaming, idle;
  auto stats = std::make_shared<belvane::test::StreamStats>();
  auto start = std::chrono::steady_clock::now();
  {
    TestHTTPServer server;
    server.route("/hang", Response::hang());
    server.route("/stream", Response::ok("audio/mpeg").generate(belvane::test::repeatBytes("x", UINT64_MAX, stats)));
    hanging = sendRequest(server.port(), "GET /hang HTTP/1.1\r\n\r\n");
    streaming = sendRequest(server.port(), "GET /stream HTTP/1.1\r\n\r\n");
    idle = sendRequest(server.port(), "GET /never-finished");
    ASSERT_TRUE(server.waitForRequests("/hang", 1, 10.0));
    // The streaming client reads nothing: the server blocks on a full socket.
    ASSERT_TRUE(belvane::test::waitUntil([&] { return stats->bytesWritten > 0; }, 10.0));
  }
  EXPECT_LT(std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count(), 10.0);
  EXPECT_TRUE(stats->finished);
  close(hanging);
  close(streaming);
  close(idle);
}
