// Lock rules the compiler checks: clang's thread-safety analysis
// (-Wthread-safety) reads these attributes and reports a field read or
// written without the lock that guards it, a function called without the
// lock it needs, or a lock not released. Other compilers see nothing: the
// macros are empty.
//
// libstdc++'s std::mutex carries no attributes, so fields the analysis
// checks are guarded by a Mutex (a std::mutex that carries them) and locked
// with a MutexLock (a scoped lock, which can also wait on a condition
// variable). Lambdas are checked as functions of their own: a lambda that
// runs under a lock says so (REQUIRES), or the code checks its condition in
// a loop around MutexLock::wait instead of passing a predicate.
//
// Any thread: that is what a Mutex is for.
#pragma once

#include <chrono>
#include <condition_variable>
#include <mutex>

#if defined(__clang__)
#define BELVANE_THREAD_ATTRIBUTE(x) __attribute__((x))
#else
#define BELVANE_THREAD_ATTRIBUTE(x)
#endif

// On a class: it is a lock (a "mutex").
#define CAPABILITY(x) BELVANE_THREAD_ATTRIBUTE(capability(x))
// On a class: its objects hold a lock from construction to destruction.
#define SCOPED_CAPABILITY BELVANE_THREAD_ATTRIBUTE(scoped_lockable)
// On a field: read and written only with the lock held.
#define GUARDED_BY(x) BELVANE_THREAD_ATTRIBUTE(guarded_by(x))
// On a pointer field: what it points to is used only with the lock held.
#define PT_GUARDED_BY(x) BELVANE_THREAD_ATTRIBUTE(pt_guarded_by(x))
// On a function: called with the lock(s) held.
#define REQUIRES(...) BELVANE_THREAD_ATTRIBUTE(requires_capability(__VA_ARGS__))
// On a function: takes, gives up, or tries to take the lock(s).
#define ACQUIRE(...) BELVANE_THREAD_ATTRIBUTE(acquire_capability(__VA_ARGS__))
#define RELEASE(...) BELVANE_THREAD_ATTRIBUTE(release_capability(__VA_ARGS__))
#define TRY_ACQUIRE(...) BELVANE_THREAD_ATTRIBUTE(try_acquire_capability(__VA_ARGS__))
// On a function: called without the lock(s) (it takes them itself).
#define EXCLUDES(...) BELVANE_THREAD_ATTRIBUTE(locks_excluded(__VA_ARGS__))
// On a function: returns the lock named.
#define RETURN_CAPABILITY(x) BELVANE_THREAD_ATTRIBUTE(lock_returned(x))
// On a function: not checked (say why where it is used).
#define NO_THREAD_SAFETY_ANALYSIS BELVANE_THREAD_ATTRIBUTE(no_thread_safety_analysis)

namespace belvane::detail {

class CAPABILITY("mutex") Mutex {
 public:
  Mutex() = default;
  Mutex(const Mutex&) = delete;
  Mutex& operator=(const Mutex&) = delete;

  void lock() ACQUIRE() { mutex_.lock(); }
  void unlock() RELEASE() { mutex_.unlock(); }
  bool try_lock() TRY_ACQUIRE(true) { return mutex_.try_lock(); }

 private:
  friend class MutexLock;
  std::mutex mutex_;
};

// Holds a Mutex for its scope (unlock() and lock() may give it up for a
// while). wait() gives the lock up while it sleeps on a condition variable
// and holds it again when it returns (possibly without a notification:
// callers check their condition in a loop).
class SCOPED_CAPABILITY MutexLock {
 public:
  explicit MutexLock(Mutex& mutex) ACQUIRE(mutex) : lock_(mutex.mutex_) {}
  ~MutexLock() RELEASE() {}
  MutexLock(const MutexLock&) = delete;
  MutexLock& operator=(const MutexLock&) = delete;

  // Gives the lock up for a stretch of work without it, and takes it again.
  void unlock() RELEASE() { lock_.unlock(); }
  void lock() ACQUIRE() { lock_.lock(); }

  void wait(std::condition_variable& condition) { condition.wait(lock_); }
  template <class Clock, class Duration>
  std::cv_status waitUntil(std::condition_variable& condition,
                           const std::chrono::time_point<Clock, Duration>& deadline) {
    return condition.wait_until(lock_, deadline);
  }
  template <class Rep, class Period>
  std::cv_status waitFor(std::condition_variable& condition, const std::chrono::duration<Rep, Period>& time) {
    return condition.wait_for(lock_, time);
  }

 private:
  std::unique_lock<std::mutex> lock_;
};

}  // namespace belvane::detail
