// Forwarded calls between two real processes: every argument and return
// type code, unknown selectors, server exceptions, unarchivable returns, a
// tool killed mid-call, two tools at once, pipe folders of our own.
#include <belvane/BVKitOwner.h>
#include <belvane/BVToolConnection.h>
#include "tool/message_format.h"

#include "echo_interface.h"
#include "support/log_capture.h"
#include "support/scoped_env.h"
#include "support/temp_dir.h"

#include <gtest/gtest.h>
#include <glib.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cmath>
#include <cstring>
#include <thread>

namespace {

struct Signatures : BVVendable {
  const BVRemoteInterface& remoteInterface() override { return belvane::test::echoInterface(); }
};

std::string echoTool() { return std::string(BELVANE_BUILD_DIR) + "/bin/fixture_echo_tool"; }

class ToolConnection : public ::testing::Test {
 protected:
  void SetUp() override {
    connection.setServerToolPath(echoTool());
    connection.setVendedObject(&signatures);
    ASSERT_EQ(connection.connect(), nullptr);
  }
  Signatures signatures;
  BVToolConnection connection;
};

}  // namespace

TEST_F(ToolConnection, EveryScalarTypeCodeRoundTrips) {
  EXPECT_FLOAT_EQ(float(connection.forwardInvocation("echoFloat:", {BVValue(0.505f)}).doubleValue()), 0.505f);
  EXPECT_DOUBLE_EQ(connection.forwardInvocation("echoDouble:", {BVValue(1.0 / 3.0)}).doubleValue(), 1.0 / 3.0)
      << "all 8 bytes of a double travel";
  EXPECT_EQ(connection.forwardInvocation("echoChar:", {BVValue(-5)}).integerValue(), -5);
  EXPECT_EQ(connection.forwardInvocation("echoUChar:", {BVValue(250)}).integerValue(), 250);
  EXPECT_EQ(connection.forwardInvocation("echoInt:", {BVValue(-123456)}).integerValue(), -123456);
  EXPECT_EQ(connection.forwardInvocation("echoUInt:", {BVValue(4000000000u)}).integerValue(), 4000000000);
  EXPECT_EQ(connection.forwardInvocation("echoLong:", {BVValue(-7)}).integerValue(), -7);
  EXPECT_EQ(connection.forwardInvocation("echoULong:", {BVValue(7)}).integerValue(), 7);
}

TEST_F(ToolConnection, ObjectsTravelArchivedAndOtherTypesAsNull) {
  BVDictionary d{{"title", BVValue("Night Jazz")}, {"n", BVValue(3)}, {"list", BVValue(BVArray{BVValue(1.5)})}};
  EXPECT_EQ(connection.forwardInvocation("echoObject:", {BVValue(d)}), BVValue(d));
  auto error = BVError::withDescription("X", -43, "missing");
  auto back = connection.forwardInvocation("echoObject:", {BVValue(error)}).objectAs<const BVError>();
  ASSERT_TRUE(back);
  EXPECT_TRUE(back->isEqual(*error));
  EXPECT_EQ(connection.forwardInvocation("nullFor:", {BVValue(42)}).integerValue(), 1)
      << "an argument of an unlisted type code arrives as the null object";
  EXPECT_EQ(connection.forwardInvocation("environment:", {BVValue("ECHOTRAP_TARGET_NAME")}), BVValue("NO_XCS"));
}

TEST_F(ToolConnection, FailuresOnTheServerGiveNothingAndAreLogged) {
  belvane::test::LogCapture log;
  bv_player_tool_msg_header_s header{};
  BVValue reply(1);
  ASSERT_TRUE(connection.invokeOnServer(BVDictionary{{kBVPlayerToolMsgSelector, BVValue("noSuchOperation")}}, &header,
                                        &reply));
  bv_player_tool_msg_header_s zero{};
  EXPECT_EQ(std::memcmp(&header, &zero, sizeof header), 0) << "an unknown selector gets an all-zero reply";
  EXPECT_TRUE(reply.isNone());

  EXPECT_TRUE(connection.forwardInvocation("raise:", {BVValue("volume out of range")}).isNone());
  EXPECT_TRUE(log.contains("(Note: this exception originated on the server) volume out of range"));

  ASSERT_TRUE(connection.invokeOnServer(BVDictionary{{kBVPlayerToolMsgSelector, BVValue("unarchivable")}}, &header,
                                        &reply));
  EXPECT_EQ(header.type, 0);
  EXPECT_EQ(header.returnType, '@');
  EXPECT_EQ(header.length, 0);
  EXPECT_TRUE(reply.isNone());
  EXPECT_TRUE(connection.isConnected());
}

TEST_F(ToolConnection, LargePayloadsAndRepeatedCallsWithoutArguments) {
  // Larger than a pipe holds and than one read takes, in both directions.
  std::string text(300 * 1000, 'x');
  for (size_t i = 0; i < text.size(); i += 997) text[i] = char('a' + i % 26);
  EXPECT_EQ(connection.forwardInvocation("echoObject:", {BVValue(text)}), BVValue(text));

  // Argument-free calls send the same bytes every time; each must still be
  // answered by its own operation, through either way of calling.
  int pid = connection.serverProcessID();
  bv_player_tool_msg_header_s header{};
  BVValue reply;
  for (int i = 0; i < 3; ++i) {
    EXPECT_EQ(connection.forwardInvocation("pid", {}).integerValue(), pid);
    EXPECT_EQ(connection.invokeOnServer("pid", BVArray{}).integerValue(), pid);
    EXPECT_TRUE(connection.forwardInvocation("unarchivable", {}).isNone());
    ASSERT_TRUE(connection.invokeOnServer(BVDictionary{{kBVPlayerToolMsgSelector, BVValue("pid")}}, &header, &reply));
    EXPECT_EQ(header.returnType, 'i');
    EXPECT_EQ(header.values[0].i, pid);
    EXPECT_EQ(connection.forwardInvocation("echoInt:", {BVValue(i)}).integerValue(), i);
  }
}

TEST_F(ToolConnection, TwoToolsUseTheirOwnPipesAndDisconnectEndsTheTool) {
  Signatures s2;
  BVToolConnection second;
  second.setServerToolPath(echoTool());
  second.setVendedObject(&s2);
  ASSERT_EQ(second.connect(), nullptr);
  int pid1 = connection.serverProcessID(), pid2 = second.serverProcessID();
  EXPECT_NE(pid1, pid2);
  EXPECT_EQ(connection.forwardInvocation("pid", {}).integerValue(), pid1);
  EXPECT_EQ(second.forwardInvocation("pid", {}).integerValue(), pid2);
  std::string pipe = BVToolConnection::pipeDirectory() + "/bpt_input_" + std::to_string(pid2);
  EXPECT_TRUE(g_file_test(pipe.c_str(), G_FILE_TEST_EXISTS));
  second.disconnect();
  EXPECT_EQ(second.serverProcessID(), 0);
  EXPECT_NE(kill(pid2, 0), 0) << "the tool ended";
  EXPECT_FALSE(g_file_test(pipe.c_str(), G_FILE_TEST_EXISTS)) << "the tool removed its pipes";
}

TEST_F(ToolConnection, AToolKilledMidCallFailsTheCallAndDisconnects) {
  belvane::test::LogCapture log;
  int pid = connection.serverProcessID();
  std::thread killer([pid] {
    std::this_thread::sleep_for(std::chrono::milliseconds(300));
    kill(pid, SIGKILL);
  });
  auto start = std::chrono::steady_clock::now();
  BVValue result = connection.forwardInvocation("sleep:", {BVValue(30.0)});
  killer.join();
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(10));
  EXPECT_EQ(result.integerValue(), 0);
  EXPECT_FALSE(connection.isConnected());
  EXPECT_TRUE(log.contains("Exception in"));
  EXPECT_EQ(connection.forwardInvocation("pid", {}).integerValue(), 0) << "later calls give zero";
  std::string pipe = BVToolConnection::pipeDirectory() + "/bpt_input_" + std::to_string(pid);
  EXPECT_FALSE(g_file_test(pipe.c_str(), G_FILE_TEST_EXISTS)) << "the host removed the killed tool's pipes";
}

TEST_F(ToolConnection, AToolThatDoesNotAnswerInTimeIsEndedLikeOneThatDied) {
  connection.setTimeout(1.0);
  auto bounded = [&](const char* selector) {
    int pid = connection.serverProcessID();
    auto start = std::chrono::steady_clock::now();
    BVValue result = connection.forwardInvocation(selector, {});
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(2500)) << selector;
    EXPECT_EQ(result.integerValue(), 0);
    EXPECT_FALSE(connection.isConnected());
    EXPECT_TRUE(connection.terminationError() &&
                connection.terminationError()->localizedDescription().find("stopped answering") != std::string::npos);
    EXPECT_NE(kill(pid, 0), 0) << "the tool was killed and reaped";
    std::string pipe = BVToolConnection::pipeDirectory() + "/bpt_output_" + std::to_string(pid);
    EXPECT_FALSE(g_file_test(pipe.c_str(), G_FILE_TEST_EXISTS));
  };
  bounded("headerOnly");  // a reply header whose payload never arrives
  ASSERT_EQ(connection.connect(), nullptr);
  EXPECT_FALSE(connection.terminationError());
  kill(connection.serverProcessID(), SIGSTOP);  // a frozen tool
  bounded("pid");
}

TEST(ToolConnectionSetup, ConnectGivesUpOnAToolThatNeverMakesItsPipes) {
  belvane::test::TempDir tmp;
  std::string tool = tmp.write("silent-tool", "#!/bin/sh\nexec sleep 60\n");
  chmod(tool.c_str(), 0755);
  BVToolConnection connection;
  connection.setServerToolPath(tool);
  connection.setTimeout(0.5);
  auto start = std::chrono::steady_clock::now();
  auto error = connection.connect();
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(2));
  ASSERT_TRUE(error);
  EXPECT_EQ(error->code(), 5602);
  EXPECT_EQ(connection.serverProcessID(), 0);
}

TEST(ToolConnectionSetup, RefusesBadToolPathsAndLeavesAPipeFolderOthersCanEnter) {
  BVToolConnection connection;
  belvane::test::TempDir tmp;
  // No tool path at all, then a tool that is not executable.
  for (const std::string& path : {std::string(), tmp.write("tool", "#!/bin/sh\n")}) {
    if (!path.empty()) connection.setServerToolPath(path);
    auto error = connection.connect();
    ASSERT_TRUE(error) << path;
    EXPECT_EQ(error->code(), 5601);
    EXPECT_EQ(error->userInfo().at(BVFilePathErrorKey), BVValue(path));
    EXPECT_EQ(connection.serverProcessID(), 0);
  }

  // A pipe folder that others can enter is not used: a private one made in
  // its place is.
  belvane::test::ScopedEnv tmpdir("TMPDIR", tmp.path()), runtime("XDG_RUNTIME_DIR", "");
  std::string folder = tmp.path() + "/com.brambleside.ettd-" + std::to_string(geteuid());
  ASSERT_EQ(BVToolConnection::pipeDirectory(), folder);
  mkdir(folder.c_str(), 0700);
  chmod(folder.c_str(), 0777);
  Signatures signatures;
  connection.setVendedObject(&signatures);
  connection.setServerToolPath(echoTool());
  ASSERT_EQ(connection.connect(), nullptr);
  EXPECT_NE(BVToolConnection::pipeDirectory(), folder);
  EXPECT_EQ(connection.forwardInvocation("pid", {}).integerValue(), connection.serverProcessID());
  connection.disconnect();
}

TEST(ToolConnectionSetup, EachUserHasAPipeFolderOfItsOwnAndStalePipesGo) {
  belvane::test::TempDir tmp;
  {
    belvane::test::ScopedEnv runtime("XDG_RUNTIME_DIR", tmp.path());
    EXPECT_EQ(BVToolConnection::pipeDirectory(), tmp.path() + "/com.brambleside.ettd");
  }
  belvane::test::ScopedEnv tmpdir("TMPDIR", tmp.path()), noRuntime("XDG_RUNTIME_DIR", "");
  std::string ours = tmp.path() + "/com.brambleside.ettd-" + std::to_string(geteuid());
  Signatures signatures;
  BVToolConnection connection;
  connection.setVendedObject(&signatures);
  connection.setServerToolPath(echoTool());

  // A killed host left the pipes of a tool that is gone.
  ASSERT_EQ(mkdir(ours.c_str(), 0700), 0);
  pid_t gone = fork();
  if (gone == 0) _exit(0);
  waitpid(gone, nullptr, 0);
  std::string stale = ours + "/bpt_output_" + std::to_string(gone);
  ASSERT_EQ(mkfifo(stale.c_str(), 0660), 0);
  ASSERT_EQ(connection.connect(), nullptr);
  EXPECT_FALSE(g_file_test(stale.c_str(), G_FILE_TEST_EXISTS)) << "stale pipes are removed";
  connection.disconnect();

  // Another user made the shared folder name: it does not stop ours. Nor
  // does another user taking our own folder's name first: the host and its
  // tool then meet in a private folder of their own, which nobody else can
  // enter, and the other user's folder is left alone.
  std::string shared = tmp.path() + "/com.brambleside.ettd";
  mkdir(shared.c_str(), 0700);
  if (chown(shared.c_str(), geteuid() + 4242, getegid()) != 0)
    GTEST_SKIP() << "giving a folder to another user needs root";
  ASSERT_EQ(connection.connect(), nullptr);
  EXPECT_EQ(connection.forwardInvocation("pid", {}).integerValue(), connection.serverProcessID());
  connection.disconnect();
  ASSERT_EQ(chown(ours.c_str(), geteuid() + 4242, getegid()), 0);
  ASSERT_EQ(connection.connect(), nullptr);
  EXPECT_EQ(connection.forwardInvocation("pid", {}).integerValue(), connection.serverProcessID());
  std::string used = BVToolConnection::pipeDirectory();
  struct stat st {};
  ASSERT_EQ(lstat(used.c_str(), &st), 0);
  EXPECT_NE(used, ours);
  EXPECT_TRUE(S_ISDIR(st.st_mode) && st.st_uid == geteuid() && (st.st_mode & 0777) == 0700) << used;
  GDir* left = g_dir_open(ours.c_str(), 0, nullptr);
  ASSERT_TRUE(left);
  EXPECT_EQ(g_dir_read_name(left), nullptr) << "nothing is put in the other user's folder";
  g_dir_close(left);
  connection.disconnect();
}
