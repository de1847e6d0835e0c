// The forward proxy: the scripted server's catch-all route takes every
// absolute-form request and streams its server's reply back (see
// test_http_proxy.h).
#include "support/test_http_proxy.h"

#include <arpa/inet.h>
#include <netdb.h>
#include <poll.h>
#include <strings.h>
#include <sys/socket.h>
#include <unistd.h>

#include <memory>

namespace belvane::test {

namespace {

struct Target {
  std::string host, port, originForm;
};

// "http://host:port/path?query" split; false for anything else.
bool splitTarget(const std::string& target, Target& out) {
  const std::string scheme = "http://";
  if (target.compare(0, scheme.size(), scheme) != 0) return false;
  size_t slash = target.find('/', scheme.size());
  std::string authority = target.substr(scheme.size(), slash == std::string::npos ? std::string::npos
                                                                                     : slash - scheme.size());
  out.originForm = slash == std::string::npos ? "/" : target.substr(slash);
  size_t colon = authority.rfind(':');
  out.host = authority.substr(0, colon);
  out.port = colon == std::string::npos ? "80" : authority.substr(colon + 1);
  return !out.host.empty();
}

int connectTo(const Target& target) {
  addrinfo hints{};
  hints.ai_family = AF_INET;
  hints.ai_socktype = SOCK_STREAM;
  addrinfo* found = nullptr;
  if (getaddrinfo(target.host.c_str(), target.port.c_str(), &hints, &found) != 0) return -1;
  int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  if (fd >= 0 && connect(fd, found->ai_addr, found->ai_addrlen) != 0) {
    close(fd);
    fd = -1;
  }
  freeaddrinfo(found);
  return fd;
}

bool sendAll(int fd, const std::string& bytes) {
  for (size_t sent = 0; sent < bytes.size();) {
    ssize_t n = send(fd, bytes.data() + sent, bytes.size() - sent, MSG_NOSIGNAL);
    if (n <= 0) return false;
    sent += size_t(n);
  }
  return true;
}

Response forward(const ReceivedRequest& request, const std::shared_ptr<TestHTTPProxy::Replies>& replies) {
  Target target;
  if (!splitTarget(request.target, target)) return Response::status(400, "text/plain", "not a proxy request\n");
  int fd = connectTo(target);
  if (fd < 0) return Response::status(502, "text/plain", "server unreachable\n");
  std::string head = request.method + " " + target.originForm + " HTTP/1.1\r\n";
  for (const auto& [name, value] : request.headers)
    if (strcasecmp(name.c_str(), "Proxy-Connection") != 0 && strcasecmp(name.c_str(), "Connection") != 0)
      head += name + ": " + value + "\r\n";
  // Via tells the server (and a test reading what it received) the way the request came.
  head += "Via: 1.1 belvane-test-proxy\r\nConnection: close\r\n\r\n" + request.body;
  if (!sendAll(fd, head)) {
    close(fd);
    return Response::status(502, "text/plain", "server went away\n");
  }
  auto server = std::make_shared<int>(fd);
  size_t index;
  {
    std::lock_guard lock(replies->mutex);
    index = replies->received.size();
    replies->received.emplace_back();
  }
  return Response::rawStream([server, replies, index](ResponseWriter& writer) {
    char block[16384];
    for (;;) {
      pollfd ready{*server, POLLIN, 0};
      if (poll(&ready, 1, 100) > 0) {
        ssize_t n = recv(*server, block, sizeof block, 0);
        if (n <= 0) break;
        {
          std::lock_guard lock(replies->mutex);
          replies->received[index].append(block, size_t(n));
        }
        if (!writer.write(std::string_view(block, size_t(n)))) break;
      } else if (!writer.pause(0.001)) {
        break;  // the proxy stops
      }
    }
    close(*server);
  });
}

}  // namespace

TestHTTPProxy::TestHTTPProxy() {
  server_.route("*", [replies = replies_](const ReceivedRequest& request) { return forward(request, replies); });
}

std::string TestHTTPProxy::longestReply() const {
  std::lock_guard lock(replies_->mutex);
  std::string longest;
  for (const auto& reply : replies_->received)
    if (reply.size() > longest.size()) longest = reply;
  return longest;
}

std::string TestHTTPProxy::url() const { return "http://127.0.0.1:" + std::to_string(server_.port()); }

}  // namespace belvane::test
