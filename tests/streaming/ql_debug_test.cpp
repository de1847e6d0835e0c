// The streaming library's log level and log file, and the exported
// wrappers that reach them.
#include "streaming/QLDebug.h"

#include <belvane/BVQLDebug.h>

#include "support/gst_media_files.h"
#include "support/log_capture.h"
#include "support/temp_dir.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <thread>
#include <vector>

TEST(QLDebug, LevelAndLogFileThroughTheWrappers) {
  belvane::test::TempDir dir;
  int original = BVQLDebugLogLevel();
  EXPECT_EQ(BVQLDebugSetLogLevel(QL_LOG_INFO), original);
  EXPECT_EQ(BVQLDebugLogLevel(), QL_LOG_INFO);
  EXPECT_EQ(QLDebugLogLevel(), QL_LOG_INFO);

  EXPECT_EQ(BVQLDebugLogFilePath(), nullptr);
  EXPECT_FALSE(BVQLDebugCloseLogFile());
  EXPECT_FALSE(BVQLDebugOpenLogFileAtPath((dir.path() + "/no/such/dir/log.txt").c_str()));
  std::string path = dir.path() + "/ql.log";
  ASSERT_TRUE(BVQLDebugOpenLogFileAtPath(path.c_str()));
  ASSERT_NE(BVQLDebugLogFilePath(), nullptr);
  EXPECT_EQ(std::string(BVQLDebugLogFilePath()), path);

  QLDebugLog(QL_LOG_INFO, "tuned %s", "station");
  QLDebugLog(QL_LOG_DEBUG, "too detailed");
  EXPECT_TRUE(BVQLDebugCloseLogFile());
  EXPECT_EQ(BVQLDebugLogFilePath(), nullptr);
  std::string log = belvane::test::readWholeFile(path);
  EXPECT_NE(log.find("[info] tuned station\n"), std::string::npos);
  EXPECT_EQ(log.find("too detailed"), std::string::npos);

  // Without a file, messages go to BVLog; level 0 silences them.
  belvane::test::LogCapture capture;
  QLDebugLog(QL_LOG_ERROR, "lost %d", 1);
  BVQLDebugSetLogLevel(QL_LOG_NONE);
  QLDebugLog(QL_LOG_ERROR, "silenced");
  EXPECT_EQ(capture.messages(), std::vector<std::string>{"lost 1"});
  BVQLDebugSetLogLevel(original);
}

TEST(QLDebug, LogsFromManyThreadsWhileTheFileChanges) {
  belvane::test::TempDir dir;
  int original = QLDebugSetLogLevel(QL_LOG_DEBUG);
  belvane::test::LogCapture capture;
  std::vector<std::thread> loggers;
  for (int t = 0; t < 4; ++t) {
    loggers.emplace_back([t] {
      for (int i = 0; i < 200; ++i) QLDebugLog(QL_LOG_DEBUG, "thread %d line %d", t, i);
    });
  }
  for (int i = 0; i < 20; ++i) {
    ASSERT_TRUE(QLDebugOpenLogFileAtPath((dir.path() + "/log" + std::to_string(i % 3)).c_str()));
    const char* path = QLDebugLogFilePath();
    EXPECT_NE(path, nullptr);
  }
  for (auto& t : loggers) t.join();
  EXPECT_TRUE(QLDebugCloseLogFile());
  QLDebugSetLogLevel(original);
  size_t lines = capture.messages().size();
  for (int i = 0; i < 3; ++i) {
    std::string log = belvane::test::readWholeFile(dir.path() + "/log" + std::to_string(i));
    lines += size_t(std::count(log.begin(), log.end(), '\n'));
  }
  EXPECT_EQ(lines, 800u);
}
