// TestHTTPProxy: a plain HTTP forward proxy on 127.0.0.1 that counts what
// passes through it, for tests of the way requests take.
//
// A client sends it requests in absolute form ("GET http://127.0.0.1:N/x
// HTTP/1.1"); it records each one, sends it on to its server in origin form
// with "Connection: close" and "Via: 1.1 belvane-test-proxy" (a server
// can tell what came this way), and relays the reply, whatever it is (HTTP or
// "ICY 200 OK", a whole file or an endless stream), byte for byte until
// either side goes, keeping a copy of each reply. A server it cannot reach
// is a 502. CONNECT (HTTPS) is not offered.
//
//   TestHTTPProxy proxy;
//   player->setRequestSettings(BVRequestSettings::defaultSettings()->withProxyURL(proxy.url()));
//   ... proxy.requestsFor(server.url("/live")) ...
#pragma once

#include "support/test_http_server.h"

#include <memory>
#include <mutex>
#include <string>
#include <vector>

namespace belvane::test {

class TestHTTPProxy {
 public:
  TestHTTPProxy();  // listening at once

  // "http://127.0.0.1:<port>"
  std::string url() const;
  // Every request that came through, in order (targets in absolute form).
  std::vector<ReceivedRequest> requests() const { return server_.requests(); }
  // How many of them asked for this absolute URL (the query ignored).
  int requestsFor(const std::string& url) const { return server_.requestCount(url); }
  // The longest reply relayed so far, as its server sent it (the
  // connection that played a stream).
  std::string longestReply() const;

  struct Replies {
    std::mutex mutex;
    std::vector<std::string> received;
  };

 private:
  std::shared_ptr<Replies> replies_ = std::make_shared<Replies>();
  TestHTTPServer server_;  // last: its connections end before the replies go
};

}  // namespace belvane::test
