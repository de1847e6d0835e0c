// HANDOFF_RELEASE / HANDOFF_ACQUIRE: GLib hands a source from the thread
// that attaches it to the thread that dispatches it under locks that
// ThreadSanitizer cannot see (futexes); a hand-off declared with these is
// ordered for it as it really is: what the sending thread did before the
// release happens before what the receiving thread does after the acquire.
// Nothing in other builds. BELVANE_THREAD_SANITIZER is defined in a
// ThreadSanitizer build, for whatever else must know it.
#pragma once

#if defined(__SANITIZE_THREAD__)
#define BELVANE_THREAD_SANITIZER 1
#elif defined(__has_feature)
#if __has_feature(thread_sanitizer)
#define BELVANE_THREAD_SANITIZER 1
#endif
#endif
#ifdef BELVANE_THREAD_SANITIZER
extern "C" void __tsan_acquire(void* addr);
extern "C" void __tsan_release(void* addr);
#define HANDOFF_RELEASE(p) __tsan_release(p)
#define HANDOFF_ACQUIRE(p) __tsan_acquire(p)
#else
#define HANDOFF_RELEASE(p) ((void)(p))
#define HANDOFF_ACQUIRE(p) ((void)(p))
#endif

namespace belvane::detail {
// A turn of a callback that a library runs on its own threads one at a
// time, ordered by its own locks (GStreamer's stream lock, its pads' and
// tasks' locks): declared as handed over from the turn before, and on to
// what follows it (the next turn, the owner's destruction after the
// library's threads stopped, which acquires the same address).
class HandoffTurn {
 public:
  explicit HandoffTurn(void* object) : object_(object) { HANDOFF_ACQUIRE(object_); }
  ~HandoffTurn() { HANDOFF_RELEASE(object_); }
  HandoffTurn(const HandoffTurn&) = delete;
  HandoffTurn& operator=(const HandoffTurn&) = delete;

 private:
  void* object_;
};
}  // namespace belvane::detail
