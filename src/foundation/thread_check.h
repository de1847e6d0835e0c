// Checks of the thread rules, in debug and sanitizer builds: an object that
// must be used on the thread whose run loop it was made on keeps a
// ThreadCheck from its construction, and its entry points call
// check("Class::operation"). A call from another thread is logged with the
// operation's name and aborts, so a broken rule shows where it is broken
// instead of as a race much later. In other builds ThreadCheck is empty
// and check() compiles to nothing.
//
// Any thread (that is the point).
#pragma once

#if defined(BELVANE_THREAD_CHECKS) || !defined(NDEBUG)
#include <thread>
#endif

namespace belvane::detail {

#if defined(BELVANE_THREAD_CHECKS) || !defined(NDEBUG)
// Logs that `operation` was called off its thread, and aborts.
[[noreturn]] void failThreadCheck(const char* operation);

class ThreadCheck {
 public:
  void check(const char* operation) const {
    if (std::this_thread::get_id() != thread_) failThreadCheck(operation);
  }

 private:
  std::thread::id thread_ = std::this_thread::get_id();
};
#else
class ThreadCheck {
 public:
  void check(const char*) const {}
};
#endif

}  // namespace belvane::detail
