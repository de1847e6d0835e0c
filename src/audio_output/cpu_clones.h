// BELVANE_CPU_CLONES: marks a loop over every sample to be built also for
// AVX2 on x86-64, the best the processor runs being chosen when the library
// loads. Empty elsewhere, and under ThreadSanitizer: the loader runs the
// choosing function before the sanitizer's runtime is up, and its
// instrumented entry crashes the process.
#pragma once

#if defined(__has_feature)
#if __has_feature(thread_sanitizer)
#define BELVANE_NO_CPU_CLONES 1
#endif
#endif

#if defined(__x86_64__) && !defined(BELVANE_NO_CPU_CLONES)
#define BELVANE_CPU_CLONES __attribute__((target_clones("avx2", "default")))
#else
#define BELVANE_CPU_CLONES
#endif
