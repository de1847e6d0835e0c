// Streams that cannot be played end in state 4 with the right code, a text
// for the listener, and no audio callback after the report.
#include "streaming/shoutstreamer.h"
#include "streaming/stream_recorder.h"
#include "support/icy_test_server.h"

#include <gtest/gtest.h>

#include <cstdlib>

using belvane::test::IcyStreamScript;
using belvane::test::IcyTestServer;
using belvane::test::Response;
using belvane::test::StreamRecorder;
using belvane::test::TestHTTPServer;

namespace {

// Plays url until it fails; returns the error code (0 if it did not fail).
int32_t failureOf(const std::string& url, double timeout = 10.0) {
  StreamRecorder recorder;
  EXPECT_EQ(recorder.start(url), 0);
  if (!recorder.waitForState(SHOUTSTREAMER_STATE_FAILED, timeout)) return 0;
  int32_t code = 0;
  EXPECT_EQ(shoutstreamer_status(recorder.streamer(), &code), code);
  auto states = recorder.states();
  EXPECT_EQ(states.front(), std::make_pair(0, 1));
  EXPECT_EQ(states.back().second, SHOUTSTREAMER_STATE_FAILED);
  EXPECT_FALSE(recorder.reached(SHOUTSTREAMER_STATE_PLAYING)) << url;
  char* text = shoutstreamer_error_as_string(code);
  EXPECT_NE(text, nullptr);
  std::free(text);
  return code;
}

IcyStreamScript scriptWith(IcyStreamScript::Payload payload, std::string contentType = "audio/mpeg") {
  return belvane::test::withPayload(belvane::test::toneScript(200'000, IcyStreamScript::End::Stall), payload,
                                    std::move(contentType));
}

}  // namespace

TEST(ShoutstreamerFailure, ConnectionAndStatusErrors) {
  IcyTestServer server;
  server.http().route("/icy404", Response("ICY 404 Resource Not Available"));
  server.http().route("/full", Response("ICY 503 Server Full"));
  server.http().route("/forbidden", Response::status(403));
  EXPECT_EQ(failureOf("http://127.0.0.1:" + std::to_string(TestHTTPServer::refusedPort()) + "/"),
            SHOUTSTREAMER_ERROR_CONNECTION_REFUSED);
  EXPECT_EQ(failureOf(server.url("/missing")), SHOUTSTREAMER_ERROR_NOT_FOUND);
  EXPECT_EQ(failureOf(server.url("/icy404")), SHOUTSTREAMER_ERROR_NOT_FOUND);
  EXPECT_EQ(failureOf(server.url("/full")), SHOUTSTREAMER_ERROR_HTTP_STATUS(503));
  EXPECT_EQ(failureOf(server.url("/forbidden")), SHOUTSTREAMER_ERROR_HTTP_STATUS(403));
  EXPECT_EQ(failureOf("gopher://127.0.0.1/"), SHOUTSTREAMER_ERROR_BAD_URL);

  StreamRecorder twice;
  EXPECT_EQ(twice.start(server.url("/missing")), 0);
  EXPECT_EQ(twice.start(server.url("/missing")), SHOUTSTREAMER_ERROR_ALREADY_STARTED);
  StreamRecorder empty;
  EXPECT_EQ(empty.start(""), SHOUTSTREAMER_ERROR_BAD_URL);
}

TEST(ShoutstreamerFailure, ServersThatStallTimeOut) {
  IcyTestServer server;
  server.http().route("/silent", Response::hang());  // never answers
  IcyStreamScript headOnly;
  headOnly.audioBytes = 0;
  headOnly.end = IcyStreamScript::End::Stall;  // answers, then sends nothing
  server.serve("/stalled", {headOnly});
  EXPECT_EQ(failureOf(server.url("/silent")), SHOUTSTREAMER_ERROR_TIMED_OUT);
  EXPECT_EQ(failureOf(server.url("/stalled")), SHOUTSTREAMER_ERROR_TIMED_OUT);
}

// (AAC frames and noise under an MP3 type: the pipeline's test, which runs
// the same sync search on the bytes.)
TEST(ShoutstreamerFailure, AacAndDataThatIsNotMpegAudio) {
  BELVANE_SKIP_WITHOUT_LAME();
  IcyTestServer server;
  server.serve("/aacp", {scriptWith(IcyStreamScript::Payload::Mp3, "audio/aacp")});
  EXPECT_EQ(failureOf(server.url("/aacp")), SHOUTSTREAMER_ERROR_AAC);
  server.http().route("/empty", Response::ok("audio/mpeg", ""));
  EXPECT_EQ(failureOf(server.url("/empty")), SHOUTSTREAMER_ERROR_NO_AUDIO);
  server.http().route("/page", Response::ok("text/html; charset=utf-8", "\n<!DOCTYPE html><html><body>Listen live!</body></html>"));
  EXPECT_EQ(failureOf(server.url("/page")), SHOUTSTREAMER_ERROR_WEB_PAGE);
}
