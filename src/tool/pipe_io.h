// Reads and writes on the player tool's non-blocking pipes that also watch
// the tool process, so a dead tool fails the call instead of hanging it, and
// a silent one fails it when its time is up.
// A message goes out in one write when the pipe has room, and a reply comes
// in with as few reads as the bytes allow.
#pragma once

#include <sys/types.h>

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

namespace belvane::detail {

// The process's pidfd (readable once it has exited), or -1 where the kernel
// has none; then the process is checked with kill(pid, 0).
int openProcessHandle(int pid);
bool processHasExited(int pid, int pidfd);

// How long a pipe operation may wait, and for whom: with pid > 0 it gives up
// when that process exits; seconds < 0 waits forever.
struct PipeWait {
  int pid = 0;
  int pidfd = -1;
  double seconds = -1;
};

// Writes the header and then the payload, in one writev() when the pipe has
// room for both; false when the descriptor fails, the process ends or the
// time runs out.
bool writeMessage(int fd, std::span<const uint8_t> header, std::span<const uint8_t> payload, const PipeWait& wait);

// Reads at least `minimum` and at most `buffer.size()` bytes; the count read,
// or -1 on end of file, failure, the process's end or time-out. With
// waitFirst it polls before the first read: use it when the peer cannot have
// written yet (a reply right after its request), which saves a read that
// would only find the pipe empty.
ssize_t readAtLeast(int fd, std::span<uint8_t> buffer, size_t minimum, bool waitFirst, const PipeWait& wait);

// Waits until every path exists (inotify on their folder wakes the wait when
// a file appears); false when the process ends or the time runs out.
bool waitForPaths(const std::string& folder, const std::vector<std::string>& paths, const PipeWait& wait);

// Waits for the process to exit and reaps it; true once it is reaped (also
// when someone else reaped it), false when it still runs after `seconds`.
bool waitForExit(int pid, int pidfd, double seconds);

}  // namespace belvane::detail
