// Failures reach the observer as one error with a readable message and the
// kit's result code, without hanging; URLs that cannot be played at all are
// refused at once; players come and go without leaving threads or
// descriptors behind.
#include "kit_harness.h"

#include "support/temp_dir.h"
#include "support/test_http_server.h"

#include <gtest/gtest.h>

using namespace belvane::test;

namespace {

struct Case {
  std::string url;
  std::string id;  // the kit's result code, signed decimal
  std::string message;
};

const std::string kFileNotFound = "-2147221247";
const std::string kInvalidFile = "-2147221246";
const std::string kConnectionRefused = "-2147221245";
const std::string kServerUnreachable = "-2147221244";

}  // namespace

TEST(KitFailures, EndInOneErrorWithAMessageAndAResultCode) {
  ScopedEnv output("BELVANE_AUDIO_OUTPUT", "null:fast");
  TempDir dir;
  std::string corrupt = dir.write("corrupt.rm", ".RMF" + std::string(4, '\0') + std::string(6000, '\xab'));
  TestHTTPServer http;
  RefusingRTSPServer rtsp;
  const int closedPort = TestHTTPServer::refusedPort();
  const std::string closed = "127.0.0.1:" + std::to_string(closedPort);

  const Case cases[] = {
      {"file://" + corrupt, kInvalidFile, "The file is damaged or is not in a format that can be played."},
      {"file://" + dir.path() + "/absent.rm", kFileNotFound, "The file could not be found."},
      {http.url("/absent.ram"), kFileNotFound, "The file could not be found."},
      {http.url("/absent.rm"), kFileNotFound, "The file could not be found."},
      {"http://" + closed + "/list.ram", kConnectionRefused, "The server refused the connection."},
      {rtsp.url("/live.rm"), kConnectionRefused, "The server refused the connection."},
      {"rtsp://" + closed + "/live.rm", kServerUnreachable, "The server could not be reached."},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.url);
    KitSession s;
    ASSERT_TRUE(s.open(c.url));
    s.kit.play(s.player);
    ASSERT_TRUE(s.runUntil([&] { return s.events.finished(); }, 30));
    s.runFor(0.2);  // nothing else follows
    ASSERT_EQ(s.events.errors.size(), 1u);
    EXPECT_EQ(s.events.concluded, 0);
    const KitError& e = s.events.errors[0];
    EXPECT_EQ(e.message, c.message);
    EXPECT_EQ(e.params.at("ID"), c.id) << e.failure;
    EXPECT_EQ(e.params.at("HX_RESULT_KEY").rfind("0x8004", 0), 0u);
    EXPECT_FALSE(e.params.at("MI").empty());
    EXPECT_EQ(e.params.count("UC"), 1u);
    EXPECT_EQ(e.params.count("MU"), 1u);
    EXPECT_EQ(s.kit.contentState(s.player), HXContentStateStopped);
    EXPECT_TRUE(s.kit.isLive(s.player));  // no length was ever known
  }
}

TEST(KitFailures, RefusesURLsItCannotPlayAtOnce) {
  KitSession s;
  EXPECT_FALSE(s.open(""));
  EXPECT_FALSE(s.open("no scheme at all"));
  EXPECT_FALSE(s.open("gopher-not-a-source://host/x.rm"));
  EXPECT_EQ(s.kit.contentState(s.player), HXContentStateNotLoaded);
  EXPECT_TRUE(s.events.states.empty());
}

TEST(KitLifecycle, OpenReleaseCyclesLeaveNoThreadsOrDescriptorsBehind) {
  ScopedEnv output("BELVANE_AUDIO_OUTPUT", "null:fast");
  auto cycle = [](int i) {
    KitSession s;
    ASSERT_TRUE(s.open(realAudioFile()));
    s.kit.play(s.player);
    // Some players are released at once, some while they play.
    if (i % 10 == 0) s.runUntil([&] { return s.kit.contentState(s.player) == HXContentStatePlaying; }, 5);
  };
  for (int i = 0; i < 20; ++i) cycle(i);
  waitUntil([] { return false; }, 0.5);
  const int threads = threadCount(), descriptors = openDescriptorCount();
  for (int i = 0; i < 500; ++i) cycle(i);
  // GStreamer's thread pool may keep a few idle threads for a while.
  waitUntil([&] { return threadCount() <= threads + 2; }, 20);
  EXPECT_LE(threadCount(), threads + 4);
  EXPECT_LE(openDescriptorCount(), descriptors + 4);
}
