// Checks of the thread rules, in debug and sanitizer builds: an object that
// must be used on the thread whose run loop it was made on keeps the thread
// it was made on (a ThreadCheck, or the id itself where the layout must not
// depend on the build), and its entry points check the calling thread. A
// call from another thread is logged with the operation's name and aborts,
// so a broken rule shows where it is broken instead of as a race much
// later. In other builds the checks compile to nothing.
//
// Any thread (that is the point).
#pragma once

#include <thread>

namespace belvane::detail {

#if defined(BELVANE_THREAD_CHECKS) || !defined(NDEBUG)
// Logs that `operation` was called off its thread, and aborts.
[[noreturn]] void failThreadCheck(const char* operation);

inline void checkCalledOn(std::thread::id madeOn, const char* operation) {
  if (std::this_thread::get_id() != madeOn) failThreadCheck(operation);
}

class ThreadCheck {
 public:
  void check(const char* operation) const { checkCalledOn(thread_, operation); }

 private:
  std::thread::id thread_ = std::this_thread::get_id();
};
#else
inline void checkCalledOn(std::thread::id, const char*) {}

class ThreadCheck {
 public:
  void check(const char*) const {}
};
#endif

}  // namespace belvane::detail
