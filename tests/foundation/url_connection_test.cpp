// BVURLConnection against the loopback server: delegate call order on the
// starting thread, redirects, header names, Shoutcast replies as body bytes,
// time-outs, refused ports, malformed replies, untrusted certificates,
// back-pressure and cancellation.
#include <belvane/BVURLConnection.h>

#include "support/temp_dir.h"
#include "support/test_http_server.h"

#include <glib.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>

#include <chrono>
#include <thread>

using belvane::test::Response;
using belvane::test::TestHTTPServer;

namespace {

struct Recorder : BVURLConnectionDelegate {
  std::vector<std::string> calls;
  std::vector<std::shared_ptr<BVURLResponse>> responses;
  std::string body;
  BVErrorRef error;
  bool done = false;
  std::thread::id thread;
  size_t stopAfterBytes = SIZE_MAX;
  BVURLConnectionRef* holder = nullptr;

  void connectionWillSendRequest(BVURLConnection&, const BVURLRequest& r, const BVURLResponse*) override {
    calls.push_back("redirect " + r.url.absoluteString());
  }
  void connectionDidReceiveResponse(BVURLConnection&, const BVURLResponse& r) override {
    thread = std::this_thread::get_id();
    calls.push_back("response " + std::to_string(r.statusCode()));
    responses.push_back(std::make_shared<BVURLResponse>(r));
  }
  void connectionDidReceiveData(BVURLConnection& c, std::span<const uint8_t> d) override {
    body.append(reinterpret_cast<const char*>(d.data()), d.size());
    if (body.size() >= stopAfterBytes) {
      c.cancel();
      done = true;
    }
  }
  void connectionDidFinishLoading(BVURLConnection&) override {
    calls.push_back("finish");
    done = true;
    if (holder) holder->reset();  // dropping the connection inside its own callback is allowed
  }
  void connectionDidFailWithError(BVURLConnection&, const BVErrorRef& e) override {
    calls.push_back("fail");
    error = e;
    done = true;
  }
};

BVURL url(const std::string& s) { return *BVURL::URLWithString(s); }

// A TLS server on loopback with a freshly made self-signed certificate
// (openssl and Python), answering every handshake and then closing.
class SelfSignedTLSServer {
 public:
  explicit SelfSignedTLSServer(const std::string& dir) {
    std::string cert = dir + "/cert.pem", key = dir + "/key.pem";
    std::string make = "openssl req -x509 -newkey rsa:2048 -nodes -days 2 -subj /CN=127.0.0.1 -keyout " + key +
                       " -out " + cert + " 2>/dev/null";
    if (std::system(make.c_str()) != 0) return;
    std::string script =
        "import socket, ssl\n"
        "ctx = ssl.SSLContext(ssl.PROTOCOL_TLS_SERVER)\n"
        "ctx.load_cert_chain('" + cert + "', '" + key + "')\n"
        "s = socket.socket(); s.bind(('127.0.0.1', 0)); s.listen()\n"
        "print(s.getsockname()[1], flush=True)\n"
        "while True:\n"
        "  c, _ = s.accept()\n"
        "  try: ctx.wrap_socket(c, server_side=True).close()\n"
        "  except Exception: c.close()\n";
    const char* argv[] = {"python3", "-c", script.c_str(), nullptr};
    int out = -1;
    if (!g_spawn_async_with_pipes(nullptr, const_cast<char**>(argv), nullptr, GSpawnFlags(G_SPAWN_SEARCH_PATH | G_SPAWN_DO_NOT_REAP_CHILD), nullptr, nullptr,
                                  &pid_, nullptr, &out, nullptr, nullptr))
      return;
    char line[32] = {};
    FILE* f = fdopen(out, "r");
    if (fgets(line, sizeof line, f)) port_ = std::atoi(line);
    fclose(f);
  }
  ~SelfSignedTLSServer() {
    if (pid_ <= 0) return;
    kill(pid_, SIGTERM);
    waitpid(pid_, nullptr, 0);
    g_spawn_close_pid(pid_);
  }
  int port() const { return port_; }

 private:
  GPid pid_ = 0;
  int port_ = 0;
};

bool runUntilDone(Recorder& r, double timeout = 10) {
  return BVRunLoop::current().runUntil([&] { return r.done; }, timeout);
}

}  // namespace

TEST(URLConnection, FollowsRedirectsAndCallsBackOnTheStartingThread) {
  TestHTTPServer server;
  server.route("/final", Response::ok("audio/x-scpls; charset=utf-8", "[playlist]\n"));
  server.route("/start", Response::redirect(server.url("/final"), 301));
  Recorder r;
  BVURLConnectionRef connection = BVURLConnection::start(BVURLRequest(url(server.url("/start"))), &r);
  r.holder = &connection;
  ASSERT_TRUE(runUntilDone(r));
  EXPECT_EQ(r.calls, (std::vector<std::string>{"redirect " + server.url("/final"), "response 200", "finish"}));
  EXPECT_EQ(r.thread, std::this_thread::get_id());
  EXPECT_EQ(r.body, "[playlist]\n");
  EXPECT_EQ(r.responses[0]->mimeType(), "audio/x-scpls");
  // Header names come in canonical form, whatever case the server wrote.
  server.route("/python", Response().header("Content-type", "audio/mpeg").header("icy-NAME", "X"));
  std::shared_ptr<BVURLResponse> response;
  ASSERT_TRUE(BVURLConnection::sendSynchronousRequest(BVURLRequest(url(server.url("/python"))), &response, nullptr));
  EXPECT_EQ(response->allHeaderFields().at("Content-Type"), "audio/mpeg");
  EXPECT_EQ(response->allHeaderFields().at("Icy-Name"), "X");
  EXPECT_EQ(r.responses[0]->url().absoluteString(), server.url("/final"));
  EXPECT_FALSE(connection) << "the delegate released the connection in its callback";
}

TEST(URLConnection, ShoutcastReplyArrivesAsBodyBytes) {
  TestHTTPServer server;
  server.route("/icy", Response::raw("ICY 200 OK\r\ncontent-type:audio/mpeg\r\nicy-name:X\r\n\r\nAUDIO"));
  Recorder r;
  auto connection = BVURLConnection::start(BVURLRequest(url(server.url("/icy"))), &r);
  ASSERT_TRUE(runUntilDone(r));
  ASSERT_EQ(r.responses.size(), 1u);
  EXPECT_EQ(r.responses[0]->statusCode(), 0);
  EXPECT_TRUE(r.responses[0]->headerFields().empty());
  EXPECT_EQ(r.body, "ICY 200 OK\r\ncontent-type:audio/mpeg\r\nicy-name:X\r\n\r\nAUDIO");
}

TEST(URLConnection, FailuresAreReportedWithReadableErrors) {
  TestHTTPServer server;
  server.route("/hang", Response::hang());
  {
    Recorder r;
    auto start = std::chrono::steady_clock::now();
    auto c = BVURLConnection::start(BVURLRequest(url(server.url("/hang")), 0.5), &r);
    ASSERT_TRUE(runUntilDone(r));
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(5));
    ASSERT_TRUE(r.error);
    EXPECT_EQ(r.error->code(), BVURLErrorTimedOut);
    EXPECT_EQ(r.error->localizedDescription(), "The request timed out.");
  }
  {
    Recorder r;
    auto c = BVURLConnection::start(
        BVURLRequest(url("http://127.0.0.1:" + std::to_string(TestHTTPServer::refusedPort()) + "/")), &r);
    ASSERT_TRUE(runUntilDone(r));
    ASSERT_TRUE(r.error);
    EXPECT_EQ(r.error->domain(), BVURLErrorDomain);
    EXPECT_EQ(r.error->code(), BVURLErrorCannotConnectToHost);
  }
  // A header line too long for libcurl: the server's fault, not memory.
  server.route("/long-line", Response::raw("HTTP/1.1 200 OK\r\nX-Long: " + std::string(200'000, 'a') + "\r\n\r\n"));
  BVErrorRef error;
  EXPECT_FALSE(BVURLConnection::sendSynchronousRequest(BVURLRequest(url(server.url("/long-line"))), nullptr, &error));
  ASSERT_TRUE(error);
  EXPECT_EQ(error->code(), BVURLErrorBadServerResponse);
  EXPECT_EQ(error->localizedDescription(), "The server's reply was malformed: one of its header lines is too long.");

  belvane::test::TempDir dir;
  SelfSignedTLSServer tls(dir.path());
  ASSERT_GT(tls.port(), 0) << "openssl and python3 make the TLS server";
  std::string https = "https://127.0.0.1:" + std::to_string(tls.port()) + "/";
  EXPECT_FALSE(BVURLConnection::sendSynchronousRequest(BVURLRequest(url(https)), nullptr, &error));
  ASSERT_TRUE(error);
  EXPECT_EQ(error->code(), BVURLErrorSecureConnectionFailed);
  EXPECT_EQ(error->localizedDescription(),
            "A secure connection to 127.0.0.1 could not be made: the server's certificate is not trusted.");
}

TEST(URLConnection, HugeBodiesDoNotPileUpAndCancelStopsDelivery) {
  TestHTTPServer server;
  auto stats = std::make_shared<belvane::test::StreamStats>();
  server.route("/stream", Response::ok("audio/mpeg").generate(belvane::test::repeatBytes("0123456789", 100'000'000, stats)));
  Recorder r;
  r.stopAfterBytes = 64 * 1024;
  auto c = BVURLConnection::start(BVURLRequest(url(server.url("/stream"))), &r);
  // Without running the loop nothing is delivered; the transfer pauses once
  // about a megabyte waits, far from the hundred the server would send.
  std::this_thread::sleep_for(std::chrono::milliseconds(500));
  EXPECT_LT(stats->bytesWritten.load(), 20'000'000u);
  ASSERT_TRUE(runUntilDone(r));
  size_t seen = r.body.size();
  BVRunLoop::current().runFor(0.2);
  EXPECT_EQ(r.body.size(), seen) << "no data after cancel";
}

TEST(URLConnection, SynchronousSendReturnsBodyResponseAndHonoursTheCap) {
  TestHTTPServer server;
  server.route("/a.m3u", Response::ok("audio/x-mpegurl", "http://x/1\n"));
  server.route("/big", Response::ok("audio/mpeg").generate(belvane::test::repeatBytes("x", 10'000'000)));
  std::shared_ptr<BVURLResponse> response;
  BVErrorRef error;
  auto body = BVURLConnection::sendSynchronousRequest(BVURLRequest(url(server.url("/a.m3u"))), &response, &error);
  ASSERT_TRUE(body);
  EXPECT_EQ(std::string(body->begin(), body->end()), "http://x/1\n");
  EXPECT_EQ(response->statusCode(), 200);
  EXPECT_FALSE(error);

  body = BVURLConnection::sendSynchronousRequest(BVURLRequest(url(server.url("/big"))), &response, &error, 4096);
  EXPECT_FALSE(body);
  ASSERT_TRUE(error);
  EXPECT_EQ(error->code(), BVURLErrorDataLengthExceedsMaximum);
}

TEST(URLConnection, HTTPStatusPhrases) {
  EXPECT_EQ(BVLocalizedStringForHTTPStatusCode(404), "not found");
  EXPECT_EQ(BVLocalizedStringForHTTPStatusCode(499), "client error");
  EXPECT_EQ(BVLocalizedStringForHTTPStatusCode(700), "");
}
