// TestHTTPServer: a scripted HTTP server on 127.0.0.1 for network tests.
//
// Each test starts its own server (an ephemeral port), scripts a reply per
// path and points the code under test at server.url(path):
//
//   belvane::test::TestHTTPServer server;
//   server.route("/a.pls", Response::ok("audio/x-scpls", "[playlist]\n"));
//   server.route("/old", Response::redirect(server.url("/a.pls")));
//   server.route("/icy", Response("ICY 200 OK").header("content-type", "audio/mpeg"));
//   server.route("/slow", Response::ok("text/plain").chunk("a").chunk("b", 0.5));
//   server.route("/hang", Response::hang());
//   server.route("/radio", Response::ok("audio/mpeg").generate(repeatBytes("x", 100'000'000)));
//   server.route("POST", "/echo", [](const ReceivedRequest& r) { return Response::ok("text/plain", r.body); });
//
// Every connection is served on its own thread and closed after one reply
// (HTTP replies carry "Connection: close"). Unrouted paths answer
// "HTTP/1.1 404 Not Found". A "HEAD" request gets the status line and header
// block only (with the Content-Length a GET would have). The destructor stops
// promptly, also with clients connected, hanging or reading a stream.
#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace belvane::test {

// One request as the server received it.
struct ReceivedRequest {
  std::string method;
  std::string target;  // as sent, query included
  std::string path;    // the target without its query
  std::vector<std::pair<std::string, std::string>> headers;  // in order, as spelt
  std::string body;    // read by Content-Length

  // The first header of that name (case-insensitive), or nullptr.
  const std::string* header(std::string_view name) const;
};

// Handed to body generators: writes to the client of one connection.
class ResponseWriter {
 public:
  // Writes all bytes; false once the client has gone or the server stops.
  bool write(std::string_view bytes);
  // Waits; false (early) when the server stops.
  bool pause(double seconds);
  uint64_t bytesWritten() const { return written_; }

  ResponseWriter(int fd, int wakeFd) : fd_(fd), wakeFd_(wakeFd) {}

 private:
  int fd_;
  int wakeFd_;
  uint64_t written_ = 0;
};

// Writes a reply body (or, for Response::rawStream, the whole reply) until it
// returns. It should stop when write() returns false.
using BodyGenerator = std::function<void(ResponseWriter&)>;

// A scripted reply: status line, header fields, body chunks, then an
// optional generator.
class Response {
 public:
  // Any status line, sent as it stands: "HTTP/1.1 200 OK", "ICY 404 Not Found".
  explicit Response(std::string statusLine = "HTTP/1.1 200 OK");

  static Response ok(std::string contentType, std::string body = {});
  // A file as a server that takes Range requests serves it: the whole body,
  // or from the byte a "Range: bytes=N-" asks for (206 Partial Content).
  static Response file(const ReceivedRequest& request, const std::string& contentType, const std::string& body);
  // "HTTP/1.1 <code> <reason>" with a Content-Type and body.
  static Response status(int code, std::string contentType = "text/html", std::string body = {});
  // 301, 302, 303, 307 or 308 with a Location header and an empty body.
  static Response redirect(std::string location, int code = 302);
  // Accepts the request and never answers (until the client or server goes).
  static Response hang();
  // Writes exactly these bytes, nothing added (malformed replies).
  static Response raw(std::string bytes);
  // The generator writes the whole reply, status line included.
  static Response rawStream(BodyGenerator generator);

  Response& header(std::string name, std::string value);
  // A body chunk, sent after waiting delayBefore seconds. Chunks without a
  // delay go out in one write with what precedes them.
  Response& chunk(std::string bytes, double delayBefore = 0);
  // Streams the rest of the body after the chunks; HTTP replies then carry
  // no Content-Length unless one was scripted.
  Response& generate(BodyGenerator generator);

 private:
  friend class TestHTTPServer;
  std::string statusLine_;
  std::vector<std::pair<std::string, std::string>> headers_;
  std::vector<std::pair<double, std::string>> chunks_;
  BodyGenerator generator_;
  bool hang_ = false;
  bool writeHead_ = true;
};

// Builds the reply for one request; runs on that connection's thread and
// should return promptly (delays belong in chunks or generators).
using Handler = std::function<Response(const ReceivedRequest&)>;

class TestHTTPServer {
 public:
  // Listening at once, on a free port or on the one given (a server that
  // comes back where it was).
  explicit TestHTTPServer(int port = 0);
  ~TestHTTPServer();
  TestHTTPServer(const TestHTTPServer&) = delete;
  TestHTTPServer& operator=(const TestHTTPServer&) = delete;

  int port() const;
  // "http://127.0.0.1:<port><path>"; path starts with "/".
  std::string url(std::string_view path = "/") const;

  // Routes by exact path (the query is ignored), for any method or for one
  // method; a method route wins over an any-method route. The path "*"
  // answers requests no other route takes (any target, such as RTSP's
  // absolute URLs). Re-routing a path replaces its reply. Safe to call while
  // the server runs.
  void route(const std::string& path, Response response);
  void route(const std::string& method, const std::string& path, Response response);
  void route(const std::string& path, Handler handler);
  void route(const std::string& method, const std::string& path, Handler handler);

  // Requests received for a path (routed or not), and all requests in order.
  int requestCount(const std::string& path) const;
  std::vector<ReceivedRequest> requests() const;
  // Waits up to timeout seconds until count requests for path have arrived.
  bool waitForRequests(const std::string& path, int count, double timeout) const;

  // A loopback port nobody listens on (bound, then closed): connections to it
  // are refused.
  static int refusedPort();

 private:
  struct Impl;
  std::unique_ptr<Impl> impl_;
};

// What a repeatBytes() generator did, readable from the test thread.
struct StreamStats {
  std::atomic<uint64_t> bytesWritten{0};
  std::atomic<bool> finished{false};    // the generator returned
  std::atomic<bool> clientGone{false};  // it stopped because a write failed
};

// Writes pattern over and over until totalBytes are out or the client goes.
BodyGenerator repeatBytes(std::string pattern, uint64_t totalBytes, std::shared_ptr<StreamStats> stats = nullptr);

// Polls condition every 10 ms for up to timeout seconds; its last value.
bool waitUntil(const std::function<bool()>& condition, double timeout);

}  // namespace belvane::test
