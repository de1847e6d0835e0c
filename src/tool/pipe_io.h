// Blocking reads and writes on the player tool's pipes that also watch the
// tool process, so a dead tool fails the call instead of hanging it.
#pragma once

#include <cstddef>
#include <cstdint>

namespace belvane::detail {

// The process's pidfd (readable once it has exited), or -1 where the kernel
// has none; then the process is checked with kill(pid, 0).
int openProcessHandle(int pid);
bool processHasExited(int pid, int pidfd);

// Writes or reads exactly n bytes on a non-blocking descriptor. With a pid,
// gives up (false) when the process exits; timeoutSeconds < 0 waits forever.
bool writeAll(int fd, const uint8_t* bytes, size_t n, int pid, int pidfd, double timeoutSeconds);
bool readExactly(int fd, uint8_t* bytes, size_t n, int pid, int pidfd, double timeoutSeconds);

}  // namespace belvane::detail
