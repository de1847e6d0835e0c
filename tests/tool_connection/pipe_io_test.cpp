// The pipe reads and writes under the tool connection: reads that take what
// is there, time-outs, and a peer that dies. (Messages larger than the pipe
// are the tool connection's test, which sends them both ways.)
#include "tool/pipe_io.h"

#include <gtest/gtest.h>
#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <vector>

using namespace belvane::detail;

namespace {

struct Pipe {
  int fds[2] = {-1, -1};
  Pipe() {
    EXPECT_EQ(pipe2(fds, O_NONBLOCK | O_CLOEXEC), 0);
  }
  ~Pipe() {
    for (int fd : fds)
      if (fd >= 0) close(fd);
  }
  int readEnd() const { return fds[0]; }
  int writeEnd() const { return fds[1]; }
};

}  // namespace

TEST(PipeIO, ReadsTakeWhatIsThereAndGiveUpAtTheirDeadline) {
  Pipe p;
  std::vector<uint8_t> header(44, 1), payload(300, 2);
  ASSERT_TRUE(writeMessage(p.writeEnd(), header, payload, {}));
  uint8_t buffer[4096];
  EXPECT_EQ(readAtLeast(p.readEnd(), buffer, 44, false, {}), 344) << "header and payload in one read";

  auto start = std::chrono::steady_clock::now();
  EXPECT_EQ(readAtLeast(p.readEnd(), buffer, 1, true, {0, -1, 0.05}), -1);
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(5));

  // A reader that never drains: the writer stops at its deadline.
  fcntl(p.writeEnd(), F_SETPIPE_SZ, 4096);
  std::vector<uint8_t> big(1 << 20);
  EXPECT_FALSE(writeMessage(p.writeEnd(), header, big, {0, -1, 0.05}));

  close(p.fds[1]);
  p.fds[1] = -1;
  uint8_t drain[1 << 16];
  while (readAtLeast(p.readEnd(), drain, 1, false, {}) > 0) {
  }
  EXPECT_EQ(readAtLeast(p.readEnd(), buffer, 1, false, {}), -1) << "end of file";
}

TEST(PipeIO, AWaitEndsWhenThePeerProcessDies) {
  Pipe p;
  pid_t child = fork();
  if (child == 0) {
    usleep(100 * 1000);
    _exit(0);
  }
  ASSERT_GT(child, 0);
  int pidfd = openProcessHandle(child);
  uint8_t buffer[64];
  auto start = std::chrono::steady_clock::now();
  EXPECT_EQ(readAtLeast(p.readEnd(), buffer, 1, true, {child, pidfd, -1}), -1)
      << "a wait without a time-out still ends";
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(10));
  EXPECT_TRUE(processHasExited(child, pidfd));

  // Bytes the peer wrote before it died are still read.
  std::vector<uint8_t> header(44, 7);
  ASSERT_TRUE(writeMessage(p.writeEnd(), header, {}, {}));
  EXPECT_EQ(readAtLeast(p.readEnd(), buffer, 44, true, {child, pidfd, -1}), 44);
  if (pidfd >= 0) close(pidfd);
  waitpid(child, nullptr, 0);
}
