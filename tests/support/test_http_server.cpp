// The scripted loopback HTTP server: one accept thread, one thread per
// connection. A pipe that is written once at shutdown wakes every poll(), so
// no thread can outlive the server's destructor.
#include "support/test_http_server.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <poll.h>
#include <strings.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <chrono>
#include <list>
#include <map>
#include <mutex>
#include <stdexcept>
#include <thread>

namespace belvane::test {

namespace {

constexpr size_t kMaxRequestHead = 1 << 20;
constexpr size_t kMaxRequestBody = 16 << 20;
constexpr int kLingerMillis = 2000;

bool equalsIgnoringCase(std::string_view a, std::string_view b) {
  return a.size() == b.size() && strncasecmp(a.data(), b.data(), a.size()) == 0;
}

std::string reasonPhrase(int code) {
  static const std::map<int, const char*> phrases = {
      {200, "OK"}, {201, "Created"}, {204, "No Content"}, {206, "Partial Content"},
      {301, "Moved Permanently"}, {302, "Found"}, {303, "See Other"}, {304, "Not Modified"},
      {307, "Temporary Redirect"}, {308, "Permanent Redirect"}, {400, "Bad Request"},
      {401, "Unauthorized"}, {403, "Forbidden"}, {404, "Not Found"}, {405, "Method Not Allowed"},
      {410, "Gone"}, {500, "Internal Server Error"}, {502, "Bad Gateway"}, {503, "Service Unavailable"}};
  auto it = phrases.find(code);
  return it == phrases.end() ? "Status" : it->second;
}

// Waits for fd to become ready for events, or for the wake pipe; true when fd is ready.
bool waitFor(int fd, short events, int wakeFd, int timeoutMillis) {
  pollfd fds[2] = {{fd, events, 0}, {wakeFd, POLLIN, 0}};
  for (;;) {
    int n = poll(fds, 2, timeoutMillis);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0 || fds[1].revents) return false;
    return fds[0].revents != 0;
  }
}

}  // namespace

const std::string* ReceivedRequest::header(std::string_view name) const {
  for (const auto& [key, value] : headers)
    if (equalsIgnoringCase(key, name)) return &value;
  return nullptr;
}

bool ResponseWriter::write(std::string_view bytes) {
  while (!bytes.empty()) {
    if (!waitFor(fd_, POLLOUT, wakeFd_, -1)) return false;
    ssize_t n = send(fd_, bytes.data(), bytes.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
    if (n < 0) {
      if (errno == EINTR || errno == EAGAIN || errno == EWOULDBLOCK) continue;
      return false;
    }
    written_ += uint64_t(n);
    bytes.remove_prefix(size_t(n));
  }
  return true;
}

bool ResponseWriter::pause(double seconds) {
  pollfd wake = {wakeFd_, POLLIN, 0};
  auto deadline = std::chrono::steady_clock::now() + std::chrono::duration<double>(seconds);
  for (;;) {
    auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now());
    if (left.count() <= 0) return true;
    int n = poll(&wake, 1, int(left.count()));
    if (n > 0) return false;
  }
}

Response::Response(std::string statusLine) : statusLine_(std::move(statusLine)) {}

Response Response::ok(std::string contentType, std::string body) {
  Response r;
  r.header("Content-Type", std::move(contentType));
  if (!body.empty()) r.chunk(std::move(body));
  return r;
}

Response Response::file(const ReceivedRequest& request, const std::string& contentType, const std::string& body) {
  size_t from = 0;
  const std::string* range = request.header("range");
  if (range && range->rfind("bytes=", 0) == 0) from = std::min<size_t>(std::stoull(range->substr(6)), body.size());
  Response r(from > 0 ? "HTTP/1.1 206 Partial Content" : "HTTP/1.1 200 OK");
  r.header("Content-Type", contentType).header("Accept-Ranges", "bytes");
  r.header("Content-Length", std::to_string(body.size() - from));
  if (from > 0)
    r.header("Content-Range", "bytes " + std::to_string(from) + "-" + std::to_string(body.size() - 1) + "/" +
                                  std::to_string(body.size()));
  if (from < body.size()) r.chunk(body.substr(from));
  return r;
}

Response Response::status(int code, std::string contentType, std::string body) {
  Response r("HTTP/1.1 " + std::to_string(code) + " " + reasonPhrase(code));
  r.header("Content-Type", std::move(contentType));
  if (!body.empty()) r.chunk(std::move(body));
  return r;
}

Response Response::redirect(std::string location, int code) {
  Response r("HTTP/1.1 " + std::to_string(code) + " " + reasonPhrase(code));
  r.header("Location", std::move(location));
  return r;
}

Response Response::hang() {
  Response r;
  r.hang_ = true;
  return r;
}

Response Response::raw(std::string bytes) {
  Response r;
  r.writeHead_ = false;
  r.chunk(std::move(bytes));
  return r;
}

Response Response::rawStream(BodyGenerator generator) {
  Response r;
  r.writeHead_ = false;
  r.generator_ = std::move(generator);
  return r;
}

Response& Response::header(std::string name, std::string value) {
  headers_.emplace_back(std::move(name), std::move(value));
  return *this;
}

Response& Response::chunk(std::string bytes, double delayBefore) {
  chunks_.emplace_back(delayBefore, std::move(bytes));
  return *this;
}

Response& Response::generate(BodyGenerator generator) {
  generator_ = std::move(generator);
  return *this;
}

struct TestHTTPServer::Impl {
  struct Connection {
    int fd;
    std::thread thread;
    std::atomic<bool> done{false};
  };

  int listenFd = -1;
  int port = 0;
  int wakePipe[2] = {-1, -1};
  std::thread acceptThread;

  mutable std::mutex mutex;
  std::map<std::pair<std::string, std::string>, Handler> routes;  // (method or "", path)
  std::map<std::string, int> counts;
  std::vector<ReceivedRequest> received;
  std::list<std::unique_ptr<Connection>> connections;  // touched by the accept thread and the destructor

  void acceptLoop();
  void reap(bool all);
  void serve(Connection& connection);
  bool readRequest(int fd, ReceivedRequest& request);
  void answer(int fd, const ReceivedRequest& request, const Response& response);
  void waitForClientToLeave(int fd);
};

TestHTTPServer::TestHTTPServer(int port) : impl_(std::make_unique<Impl>()) {
  if (pipe2(impl_->wakePipe, O_CLOEXEC) != 0) throw std::runtime_error("test server: pipe failed");
  impl_->listenFd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  int on = 1;
  setsockopt(impl_->listenFd, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  address.sin_port = htons(uint16_t(port));
  socklen_t length = sizeof address;
  if (bind(impl_->listenFd, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0 ||
      listen(impl_->listenFd, 64) != 0 ||
      getsockname(impl_->listenFd, reinterpret_cast<sockaddr*>(&address), &length) != 0)
    throw std::runtime_error("test server: cannot listen on 127.0.0.1");
  impl_->port = ntohs(address.sin_port);
  impl_->acceptThread = std::thread([impl = impl_.get()] { impl->acceptLoop(); });
}

TestHTTPServer::~TestHTTPServer() {
  // Wake every poll for good, then cut every connection that still blocks.
  char byte = 1;
  (void)!::write(impl_->wakePipe[1], &byte, 1);
  impl_->acceptThread.join();
  for (auto& connection : impl_->connections) shutdown(connection->fd, SHUT_RDWR);
  impl_->reap(true);
  close(impl_->listenFd);
  close(impl_->wakePipe[0]);
  close(impl_->wakePipe[1]);
}

int TestHTTPServer::port() const { return impl_->port; }

std::string TestHTTPServer::url(std::string_view path) const {
  return "http://127.0.0.1:" + std::to_string(impl_->port) + std::string(path);
}

void TestHTTPServer::route(const std::string& path, Response response) { route("", path, std::move(response)); }

void TestHTTPServer::route(const std::string& method, const std::string& path, Response response) {
  route(method, path, Handler([response = std::move(response)](const ReceivedRequest&) { return response; }));
}

void TestHTTPServer::route(const std::string& path, Handler handler) { route("", path, std::move(handler)); }

void TestHTTPServer::route(const std::string& method, const std::string& path, Handler handler) {
  std::lock_guard<std::mutex> guard(impl_->mutex);
  impl_->routes[{method, path}] = std::move(handler);
}

int TestHTTPServer::requestCount(const std::string& path) const {
  std::lock_guard<std::mutex> guard(impl_->mutex);
  auto it = impl_->counts.find(path);
  return it == impl_->counts.end() ? 0 : it->second;
}

std::vector<ReceivedRequest> TestHTTPServer::requests() const {
  std::lock_guard<std::mutex> guard(impl_->mutex);
  return impl_->received;
}

bool TestHTTPServer::waitForRequests(const std::string& path, int count, double timeout) const {
  return waitUntil([&] { return requestCount(path) >= count; }, timeout);
}

int TestHTTPServer::refusedPort() {
  int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  socklen_t length = sizeof address;
  int port = 0;
  if (bind(fd, reinterpret_cast<sockaddr*>(&address), sizeof address) == 0 &&
      getsockname(fd, reinterpret_cast<sockaddr*>(&address), &length) == 0)
    port = ntohs(address.sin_port);
  close(fd);
  if (port == 0) throw std::runtime_error("test server: no free port");
  return port;
}

void TestHTTPServer::Impl::acceptLoop() {
  for (;;) {
    pollfd fds[2] = {{listenFd, POLLIN, 0}, {wakePipe[0], POLLIN, 0}};
    int n = poll(fds, 2, 200);
    if (fds[1].revents) return;
    reap(false);
    if (n <= 0 || !(fds[0].revents & POLLIN)) continue;
    int fd = accept4(listenFd, nullptr, nullptr, SOCK_CLOEXEC);
    if (fd < 0) continue;
    auto connection = std::make_unique<Connection>();
    connection->fd = fd;
    Connection* c = connection.get();
    connections.push_back(std::move(connection));
    c->thread = std::thread([this, c] {
      serve(*c);
      c->done = true;
    });
  }
}

// Joins finished connection threads (or all) and closes their sockets. A
// socket is closed only here, after its thread ended, so no descriptor is
// shut down after it was reused.
void TestHTTPServer::Impl::reap(bool all) {
  for (auto it = connections.begin(); it != connections.end();) {
    if (all || (*it)->done) {
      (*it)->thread.join();
      close((*it)->fd);
      it = connections.erase(it);
    } else {
      ++it;
    }
  }
}

void TestHTTPServer::Impl::serve(Connection& connection) {
  ReceivedRequest request;
  if (!readRequest(connection.fd, request)) return;
  Handler handler;
  {
    std::lock_guard<std::mutex> guard(mutex);
    ++counts[request.path];
    received.push_back(request);
    auto it = routes.find({request.method, request.path});
    if (it == routes.end()) it = routes.find({"", request.path});
    if (it == routes.end()) it = routes.find({"", "*"});
    if (it != routes.end()) handler = it->second;
  }
  Response response = handler ? handler(request) : Response::status(404, "text/plain", "not found\n");
  if (response.hang_) {
    waitForClientToLeave(connection.fd);
    return;
  }
  answer(connection.fd, request, response);
  // Let the client read everything before the socket goes.
  shutdown(connection.fd, SHUT_WR);
  char sink[4096];
  while (waitFor(connection.fd, POLLIN, wakePipe[0], kLingerMillis) && recv(connection.fd, sink, sizeof sink, 0) > 0) {
  }
}

bool TestHTTPServer::Impl::readRequest(int fd, ReceivedRequest& request) {
  std::string buffer;
  char block[8192];
  size_t headEnd;
  while ((headEnd = buffer.find("\r\n\r\n")) == std::string::npos) {
    if (buffer.size() > kMaxRequestHead || !waitFor(fd, POLLIN, wakePipe[0], -1)) return false;
    ssize_t n = recv(fd, block, sizeof block, 0);
    if (n <= 0) return false;
    buffer.append(block, size_t(n));
  }

  size_t lineEnd = buffer.find("\r\n");
  std::string requestLine = buffer.substr(0, lineEnd);
  size_t space1 = requestLine.find(' ');
  size_t space2 = requestLine.find(' ', space1 == std::string::npos ? space1 : space1 + 1);
  if (space1 == std::string::npos) return false;
  request.method = requestLine.substr(0, space1);
  request.target = requestLine.substr(space1 + 1, space2 == std::string::npos ? std::string::npos : space2 - space1 - 1);
  request.path = request.target.substr(0, request.target.find('?'));

  for (size_t start = lineEnd + 2; start < headEnd;) {
    size_t end = buffer.find("\r\n", start);
    std::string line = buffer.substr(start, end - start);
    start = end + 2;
    size_t colon = line.find(':');
    if (colon == std::string::npos) continue;
    size_t valueStart = line.find_first_not_of(" \t", colon + 1);
    request.headers.emplace_back(line.substr(0, colon),
                                 valueStart == std::string::npos ? std::string() : line.substr(valueStart));
  }

  if (const std::string* length = request.header("Content-Length")) {
    request.body = buffer.substr(headEnd + 4);
    size_t wanted = std::min<size_t>(std::strtoull(length->c_str(), nullptr, 10), kMaxRequestBody);
    while (request.body.size() < wanted) {
      if (!waitFor(fd, POLLIN, wakePipe[0], -1)) return false;
      ssize_t n = recv(fd, block, sizeof block, 0);
      if (n <= 0) return false;
      request.body.append(block, size_t(n));
    }
    request.body.resize(wanted);
  }
  return true;
}

void TestHTTPServer::Impl::answer(int fd, const ReceivedRequest& request, const Response& response) {
  ResponseWriter writer(fd, wakePipe[0]);
  std::string pending;
  if (response.writeHead_) {
    auto has = [&](std::string_view name) {
      for (const auto& header : response.headers_)
        if (equalsIgnoringCase(header.first, name)) return true;
      return false;
    };
    pending = response.statusLine_ + "\r\n";
    for (const auto& [name, value] : response.headers_) pending += name + ": " + value + "\r\n";
    if (response.statusLine_.rfind("HTTP/", 0) == 0) {
      if (!response.generator_ && !has("Content-Length") && !has("Transfer-Encoding")) {
        size_t length = 0;
        for (const auto& chunk : response.chunks_) length += chunk.second.size();
        pending += "Content-Length: " + std::to_string(length) + "\r\n";
      }
      if (!has("Connection")) pending += "Connection: close\r\n";
    }
    pending += "\r\n";
    if (request.method == "HEAD") {
      writer.write(pending);
      return;
    }
  }
  for (const auto& [delay, bytes] : response.chunks_) {
    if (delay > 0) {
      if (!pending.empty() && !writer.write(pending)) return;
      pending.clear();
      if (!writer.pause(delay)) return;
    }
    pending += bytes;
  }
  if (!pending.empty() && !writer.write(pending)) return;
  if (response.generator_) response.generator_(writer);
}

void TestHTTPServer::Impl::waitForClientToLeave(int fd) {
  char sink[4096];
  while (waitFor(fd, POLLIN, wakePipe[0], -1)) {
    ssize_t n = recv(fd, sink, sizeof sink, 0);
    if (n == 0 || (n < 0 && errno != EINTR && errno != EAGAIN)) return;
  }
}

BodyGenerator repeatBytes(std::string pattern, uint64_t totalBytes, std::shared_ptr<StreamStats> stats) {
  return [pattern = std::move(pattern), totalBytes, stats](ResponseWriter& writer) {
    std::string block;
    while (block.size() < 64 * 1024) block += pattern.empty() ? std::string(1, '\0') : pattern;
    uint64_t sent = 0;
    bool gone = false;
    while (sent < totalBytes) {
      std::string_view piece(block.data(), size_t(std::min<uint64_t>(block.size(), totalBytes - sent)));
      if (!writer.write(piece)) {
        gone = true;
        break;
      }
      sent += piece.size();
      if (stats) stats->bytesWritten = sent;
    }
    if (stats) {
      stats->clientGone = gone;
      stats->finished = true;
    }
  };
}

bool waitUntil(const std::function<bool()>& condition, double timeout) {
  auto deadline = std::chrono::steady_clock::now() + std::chrono::duration<double>(timeout);
  while (!condition()) {
    if (std::chrono::steady_clock::now() >= deadline) return condition();
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
  return true;
}

}  // namespace belvane::test
