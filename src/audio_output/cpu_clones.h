// BELVANE_CPU_CLONES: marks a loop over every sample to be built also for
// AVX2 on x86-64, the best the processor runs being chosen when the library
// loads. Empty elsewhere, and under ThreadSanitizer: the loader runs the
// choosing function before the sanitizer's runtime is up, and its
// instrumented entry crashes the process.
#pragma once

#include "foundation/tsan_handoff.h"

#if defined(__x86_64__) && !defined(BELVANE_THREAD_SANITIZER)
#define BELVANE_CPU_CLONES __attribute__((target_clones("avx2", "default")))
#else
#define BELVANE_CPU_CLONES
#endif
