// Threads and open descriptors of this process, for tests that check that
// many create / destroy cycles give back what they took.
#pragma once

#include <filesystem>

namespace belvane::test {

inline int entriesIn(const char* folder) {
  std::error_code ec;
  int n = 0;
  for (auto it = std::filesystem::directory_iterator(folder, ec); !ec && it != std::filesystem::directory_iterator();
       it.increment(ec))
    ++n;
  return n;
}
inline int threadCount() { return entriesIn("/proc/self/task"); }
inline int openDescriptorCount() { return entriesIn("/proc/self/fd"); }

}  // namespace belvane::test
