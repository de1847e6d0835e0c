#include "tool/pipe_io.h"

#include <poll.h>
#include <signal.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>

namespace belvane::detail {

int openProcessHandle(int pid) {
#ifdef SYS_pidfd_open
  int fd = int(syscall(SYS_pidfd_open, pid, 0));
  return fd >= 0 ? fd : -1;
#else
  return -1;
#endif
}

bool processHasExited(int pid, int pidfd) {
  if (pidfd >= 0) {
    pollfd p{pidfd, POLLIN, 0};
    return poll(&p, 1, 0) > 0;
  }
  return pid > 0 && kill(pid, 0) != 0 && errno == ESRCH;
}

namespace {

// Waits until fd is ready for events; false when the process exited first
// or the time ran out.
bool waitReady(int fd, short events, int pid, int pidfd, std::chrono::steady_clock::time_point deadline,
               bool forever) {
  while (true) {
    pollfd fds[2] = {{fd, events, 0}, {pidfd, POLLIN, 0}};
    int count = (pid > 0 && pidfd >= 0) ? 2 : 1;
    int waitMs = 100;
    if (!forever) {
      auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now());
      if (left.count() <= 0) return false;
      waitMs = int(std::min<long long>(left.count(), 100));
    }
    int r = poll(fds, nfds_t(count), waitMs);
    if (r < 0 && errno != EINTR) return false;
    if (r > 0 && (fds[0].revents & (events | POLLERR | POLLHUP))) return true;
    if (pid > 0 && processHasExited(pid, pidfd)) return false;
  }
}

std::chrono::steady_clock::time_point deadlineAfter(double seconds) {
  return std::chrono::steady_clock::now() +
         std::chrono::duration_cast<std::chrono::steady_clock::duration>(std::chrono::duration<double>(std::max(seconds, 0.0)));
}

}  // namespace

bool writeAll(int fd, const uint8_t* bytes, size_t n, int pid, int pidfd, double timeoutSeconds) {
  auto deadline = deadlineAfter(timeoutSeconds);
  size_t done = 0;
  while (done < n) {
    ssize_t w = write(fd, bytes + done, n - done);
    if (w > 0) {
      done += size_t(w);
      continue;
    }
    if (w < 0 && errno != EAGAIN && errno != EINTR) return false;
    if (!waitReady(fd, POLLOUT, pid, pidfd, deadline, timeoutSeconds < 0)) return false;
  }
  return true;
}

bool readExactly(int fd, uint8_t* bytes, size_t n, int pid, int pidfd, double timeoutSeconds) {
  auto deadline = deadlineAfter(timeoutSeconds);
  size_t done = 0;
  while (done < n) {
    ssize_t r = read(fd, bytes + done, n - done);
    if (r > 0) {
      done += size_t(r);
      continue;
    }
    if (r == 0) return false;
    if (errno != EAGAIN && errno != EINTR) return false;
    if (!waitReady(fd, POLLIN, pid, pidfd, deadline, timeoutSeconds < 0)) return false;
  }
  return true;
}

}  // namespace belvane::detail
