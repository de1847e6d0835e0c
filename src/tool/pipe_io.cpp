#include "tool/pipe_io.h"

#include <poll.h>
#include <signal.h>
#include <sys/inotify.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/uio.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <thread>

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

using Clock = std::chrono::steady_clock;

// The deadline of one read or write, taken when it first has to wait.
class Deadline {
 public:
  explicit Deadline(double seconds) : seconds_(seconds) {}
  bool forever() const { return seconds_ < 0; }
  // Milliseconds left, or -1 once the time is up.
  long long left() {
    if (!started_) {
      end_ = Clock::now() + std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(seconds_));
      started_ = true;
    }
    auto ms = std::chrono::duration_cast<std::chrono::milliseconds>(end_ - Clock::now()).count();
    return ms > 0 ? ms : -1;
  }

 private:
  double seconds_;
  bool started_ = false;
  Clock::time_point end_;
};

// Waits until fd is ready for events; false when the process exited first,
// the descriptor failed, or the time ran out. The pidfd is polled with the
// pipe, so the death of the peer ends the wait at once; without one the
// process is looked at every 100 ms.
bool waitReady(int fd, short events, const PipeWait& wait, Deadline& deadline) {
  const bool watchPid = wait.pid > 0;
  const bool withPidfd = watchPid && wait.pidfd >= 0;
  while (true) {
    int waitMs = withPidfd ? -1 : 100;
    if (!deadline.forever()) {
      long long left = deadline.left();
      if (left < 0) return false;
      waitMs = int(waitMs < 0 ? left : std::min<long long>(left, waitMs));
    }
    pollfd fds[2] = {{fd, events, 0}, {wait.pidfd, POLLIN, 0}};
    int r = poll(fds, withPidfd ? 2 : 1, waitMs);
    if (r < 0 && errno != EINTR) return false;
    if (r > 0) {
      // Data that arrived before the peer died is still taken.
      if (fds[0].revents & (events | POLLERR | POLLHUP)) return true;
      if (fds[0].revents & POLLNVAL) return false;
      if (withPidfd && (fds[1].revents & (POLLIN | POLLHUP | POLLERR | POLLNVAL))) return false;
    }
    if (watchPid && !withPidfd && processHasExited(wait.pid, -1)) return false;
  }
}

}  // namespace

bool writeMessage(int fd, std::span<const uint8_t> header, std::span<const uint8_t> payload, const PipeWait& wait) {
  iovec parts[2] = {{const_cast<uint8_t*>(header.data()), header.size()},
                    {const_cast<uint8_t*>(payload.data()), payload.size()}};
  iovec* next = parts;
  int count = payload.empty() ? 1 : 2;
  Deadline deadline(wait.seconds);
  while (count > 0) {
    ssize_t w = writev(fd, next, count);
    if (w < 0) {
      if (errno == EINTR) continue;
      if (errno != EAGAIN || !waitReady(fd, POLLOUT, wait, deadline)) return false;
      continue;
    }
    // Skip what went out; a part written in full drops from the list.
    size_t done = size_t(w);
    while (count > 0 && done >= next->iov_len) {
      done -= next->iov_len;
      ++next;
      --count;
    }
    if (count > 0) {
      next->iov_base = static_cast<uint8_t*>(next->iov_base) + done;
      next->iov_len -= done;
    }
  }
  return true;
}

ssize_t readAtLeast(int fd, std::span<uint8_t> buffer, size_t minimum, bool waitFirst, const PipeWait& wait) {
  Deadline deadline(wait.seconds);
  size_t done = 0;
  if (waitFirst && !waitReady(fd, POLLIN, wait, deadline)) return -1;
  while (done < minimum) {
    ssize_t r = read(fd, buffer.data() + done, buffer.size() - done);
    if (r > 0) {
      done += size_t(r);
      continue;
    }
    if (r == 0) return -1;
    if (errno == EINTR) continue;
    if (errno != EAGAIN || !waitReady(fd, POLLIN, wait, deadline)) return -1;
  }
  return ssize_t(done);
}

bool waitForPaths(const std::string& folder, const std::vector<std::string>& paths, const PipeWait& wait) {
  auto allThere = [&] {
    struct stat st {};
    for (auto& path : paths)
      if (stat(path.c_str(), &st) != 0) return false;
    return true;
  };
  Deadline deadline(wait.seconds);
  int watch = inotify_init1(IN_NONBLOCK | IN_CLOEXEC);
  if (watch >= 0 && inotify_add_watch(watch, folder.c_str(), IN_CREATE | IN_MOVED_TO | IN_ATTRIB) < 0) {
    close(watch);
    watch = -1;
  }
  bool found = false;
  while (!(found = allThere())) {
    if (processHasExited(wait.pid, wait.pidfd)) break;
    if (watch >= 0) {
      if (!waitReady(watch, POLLIN, wait, deadline)) break;
      alignas(inotify_event) char events[4096];
      while (read(watch, events, sizeof events) > 0) {
      }
    } else {
      // No inotify instance left for us: look again every 20 ms.
      if (!deadline.forever() && deadline.left() < 0) break;
      std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
  }
  if (watch >= 0) close(watch);
  return found;
}

bool waitForExit(int pid, int pidfd, double seconds) {
  Deadline deadline(seconds);
  while (true) {
    pid_t r = waitpid(pid, nullptr, WNOHANG);
    if (r == pid || (r < 0 && errno == ECHILD)) return true;
    long long left = deadline.forever() ? -1 : deadline.left();
    if (!deadline.forever() && left < 0) return false;
    if (pidfd >= 0) {
      pollfd p{pidfd, POLLIN, 0};
      poll(&p, 1, int(left));
    } else {
      std::this_thread::sleep_for(std::chrono::milliseconds(left < 0 ? 10 : std::min<long long>(left, 10)));
    }
  }
}

}  // namespace belvane::detail
