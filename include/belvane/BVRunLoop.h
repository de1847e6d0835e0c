// BVRunLoop: the run loop of a thread, a GLib GMainContext.
//
// The main run loop is GLib's default context, so a GTK or Qt (GLib event
// dispatcher) host already runs it. A worker thread that needs a loop of its
// own makes one with BVRunLoop::ThreadScope. Work hops threads only through
// perform().
//
// Outliving a callback: work queued for an object names that object as a
// weak target. The loop drops the call if the target is gone by then, and
// holds it for the length of the call, so the call may drop the last other
// reference. A delayed call returns a BVDelayedPerform that cancels it.
//
// Threads: a BVRunLoop handle may be copied and used from any thread for
// what it queues and watches (perform, performAfterDelay, watchFD,
// watchChild, stop, isCurrent); the callbacks run on the thread that runs
// the loop. run, runUntil, runFor and iterate run the loop on the calling
// thread, which GLib lets only one thread do at a time. A BVTimer belongs
// to the thread whose loop it was scheduled on.
#pragma once

#include <belvane/BVExport.h>

#include <functional>
#include <memory>

typedef struct _GMainContext GMainContext;
typedef struct _GSource GSource;

class BVRunLoopSource;
using BVRunLoopSourceRef = std::shared_ptr<BVRunLoopSource>;

// The handle of a delayed perform. Copies share the call; dropping them
// leaves it scheduled. cancel() is safe to repeat and does nothing once the
// call has run; from the loop's thread it guarantees the call never runs,
// from another thread a call already running finishes. Thread: any.
class BV_EXPORT BVDelayedPerform {
 public:
  BVDelayedPerform() = default;
  void cancel() const;
  bool isPending() const;

 private:
  friend class BVRunLoop;
  explicit BVDelayedPerform(GSource* source);  // adopts the caller's reference
  std::shared_ptr<GSource> source_;
};

class BV_EXPORT BVRunLoop {
 public:
  // The calling thread's loop: its thread-default context, or the main
  // loop. Thread: any (each thread its own answer).
  static BVRunLoop current();
  // GLib's default context. Thread: any.
  static BVRunLoop main();

  // Makes a fresh context the calling thread's default for the scope's
  // life. Thread: made and destroyed on the same thread.
  class ThreadScope {
   public:
    ThreadScope();
    ~ThreadScope();
    ThreadScope(const ThreadScope&) = delete;
    ThreadScope& operator=(const ThreadScope&) = delete;
    BVRunLoop loop() const;

   private:
    GMainContext* context_;
  };

  BVRunLoop(const BVRunLoop&);
  BVRunLoop& operator=(const BVRunLoop&);
  ~BVRunLoop();

  GMainContext* context() const { return context_; }
  // This loop's context is the calling thread's loop. Thread: any.
  bool isCurrent() const;
  bool operator==(const BVRunLoop& o) const { return context_ == o.context_; }

  // Queues fn to run on this loop, never inline. Thread: any.
  void perform(std::function<void()> fn) const;
  // The same for target: dropped if target is gone when its turn comes;
  // target is held while fn runs. Thread: any.
  void perform(std::weak_ptr<const void> target, std::function<void()> fn) const;
  // Runs fn on this loop after a delay, for target as perform() does.
  // Thread: any.
  BVDelayedPerform performAfterDelay(double seconds, std::weak_ptr<const void> target,
                                     std::function<void()> fn) const;
  BVDelayedPerform performAfterDelay(double seconds, std::function<void()> fn) const;

  // Watches a descriptor; the callback returns false to stop watching.
  // Thread: any; the callback runs on the loop's thread.
  // conditions are GIOCondition bits (G_IO_IN, G_IO_OUT, G_IO_HUP, ...).
  // mayRecurse: the watch stays in the poll set while its callback runs a
  // nested loop (the callback must guard against re-entry itself), which
  // spares GLib taking the descriptor out and putting it back each time.
  BVRunLoopSourceRef watchFD(int fd, int conditions, std::function<bool(int conditions)> fn,
                             bool mayRecurse = false) const;
  // Calls fn once with the wait status when the child process ends.
  // Thread: any; fn runs on the loop's thread.
  BVRunLoopSourceRef watchChild(int pid, std::function<void(int pid, int waitStatus)> fn) const;

  // Runs the loop on the calling thread until stop() is called from a
  // callback or another thread.
  void run() const;
  // Ends the innermost run() of this loop. Thread: any.
  void stop() const;
  // Runs the loop until done() holds or the timeout passes; returns done().
  bool runUntil(const std::function<bool()>& done, double timeoutSeconds) const;
  // Runs the loop for the given time.
  void runFor(double seconds) const;
  // Dispatches what is ready now without blocking; returns whether anything ran.
  bool iterate() const;

 private:
  explicit BVRunLoop(GMainContext* context);  // takes a new reference
  GMainContext* context_;
};

// A source attached to a run loop; cancel() detaches it (safe to repeat).
// Thread: any.
class BV_EXPORT BVRunLoopSource {
 public:
  virtual ~BVRunLoopSource() = default;
  virtual void cancel() = 0;
  virtual bool isActive() const = 0;
};

// BVTimer: a timer scheduled on the loop that made it. The loop keeps the
// timer (and its callback) alive until it is invalidated, as with a one-shot
// timer after it fired.
class BV_EXPORT BVTimer : public std::enable_shared_from_this<BVTimer> {
 public:
  using Callback = std::function<void(BVTimer&)>;
  static std::shared_ptr<BVTimer> scheduledTimer(double interval, bool repeats, Callback fn);
  ~BVTimer();

  void invalidate();
  bool isValid() const;
  double timeInterval() const { return interval_; }

  BVTimer(double interval, bool repeats, Callback fn);

 private:
  void fire();
  double interval_;
  bool repeats_;
  Callback fn_;
  GSource* source_ = nullptr;  // while scheduled; its callback data is the loop's reference
};

using BVTimerRef = std::shared_ptr<BVTimer>;
