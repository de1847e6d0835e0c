// BVPlayerToolClient driving the real belvane-player-tool process.
#include <belvane/BVMediaLink.h>
#include <belvane/BVPlayerToolClient.h>
#include <belvane/BVURLConnection.h>

#include "support/test_http_server.h"

#include <gtest/gtest.h>
#include <signal.h>

#include <chrono>
#include <thread>

namespace {

std::string playerTool() { return std::string(BELVANE_BUILD_DIR) + "/bin/belvane-player-tool"; }

bool waitForState(BVPlayerToolClient& client, int state, double seconds) {
  auto end = std::chrono::steady_clock::now() + std::chrono::duration<double>(seconds);
  while (std::chrono::steady_clock::now() < end) {
    if (client.state() == state) return true;
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
  }
  return client.state() == state;
}

}  // namespace

TEST(PlayerToolClient, ForwardsPlayerOperationsToTheToolsPlayer) {
  setenv("BELVANE_AUDIO_OUTPUT", "null:fast", 1);
  BVPlayerToolClient client;
  client.disconnect();  // harmless before connect
  client.setServerToolPath(playerTool());
  ASSERT_EQ(client.connect(), nullptr);
  EXPECT_GT(client.serverProcessID(), 0);

  EXPECT_EQ(client.state(), 0);
  EXPECT_TRUE(client.attributes().empty());
  EXPECT_FALSE(client.lastError());
  client.setVolume(0.5f);
  EXPECT_FLOAT_EQ(client.volume(), 0.5f);
  client.setMuted(true);
  EXPECT_TRUE(client.isMuted());
  EXPECT_FLOAT_EQ(client.volume(), 0.5f) << "muting keeps the volume to restore";
  client.setMuted(false);
  EXPECT_FALSE(client.isMuted());
  EXPECT_TRUE(client.loadPatchLibrary(BVValue("/nonexistent/patch.so"), BVValue("Patch")).isNone());

  // A station that cannot be reached ends in the error state with a readable error.
  auto link = BVMediaLink::linkWithURL(
      *BVURL::URLWithString("http://127.0.0.1:" + std::to_string(belvane::test::TestHTTPServer::refusedPort()) + "/live"));
  client.playMediaLink(link);
  ASSERT_TRUE(waitForState(client, 4, 20));
  auto error = client.lastError();
  ASSERT_TRUE(error);
  EXPECT_FALSE(error->localizedDescription().empty());
  EXPECT_GE(client.elapsedTime(), 0.0f);

  int pid = client.serverProcessID();
  client.disconnect();
  EXPECT_EQ(client.serverProcessID(), 0);
  EXPECT_NE(kill(pid, 0), 0) << "the tool ends when the host disconnects";
  EXPECT_EQ(client.state(), 0) << "calls after disconnect give zero";
}

TEST(PlayerToolClient, ADeadOrFrozenToolIsReportedAsThePlayersError) {
  BVPlayerToolClient client;
  client.setServerToolPath(playerTool());
  client.setTimeout(1.0);
  for (int signal : {SIGKILL, SIGSTOP}) {
    ASSERT_EQ(client.connect(), nullptr);
    EXPECT_EQ(client.state(), 0);
    kill(client.serverProcessID(), signal);
    auto start = std::chrono::steady_clock::now();
    EXPECT_FLOAT_EQ(client.volume(), 0.0f);
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(2500));
    EXPECT_FALSE(client.isConnected());
    EXPECT_EQ(client.state(), 4);
    auto error = client.lastError();
    ASSERT_TRUE(error);
    EXPECT_EQ(error->code(), 5602);
    EXPECT_EQ(error->localizedDescription(), signal == SIGKILL ? "The player tool ended unexpectedly."
                                                               : "The player tool stopped answering and was ended.");
  }
}
