/* BV_EXPORT marks what the shared library exports: the public classes,
 * functions and constants declared in these headers. The library is built
 * with hidden visibility, so everything else stays inside it. Plain C, so
 * that the C interface can use it too. */
#pragma once

#if defined(__GNUC__) || defined(__clang__)
#define BV_EXPORT __attribute__((visibility("default")))
#else
#define BV_EXPORT
#endif
