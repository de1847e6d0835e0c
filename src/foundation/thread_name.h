// Names the calling thread, as `top -H`, `ps -L` and debuggers show it, so
// that the CPU and wake-ups of a process can be told apart by job.
#pragma once

#include <pthread.h>

namespace belvane::detail {

// name: at most 15 characters (the kernel's limit); longer names are cut.
inline void nameThisThread(const char* name) {
  char cut[16] = {};
  for (int i = 0; i < 15 && name[i]; ++i) cut[i] = name[i];
  pthread_setname_np(pthread_self(), cut);
}

}  // namespace belvane::detail
