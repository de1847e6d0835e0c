// BVRunLoop and BVTimer over GLib main contexts.
#include <belvane/BVRunLoop.h>

#include <glib-unix.h>
#include <glib.h>

#include <algorithm>
#include <utility>
#include <mutex>
#include <unordered_map>
#include <vector>

#include "foundation/thread_annotations.h"
#include "foundation/tsan_handoff.h"

namespace {

// A queued call and, for a targeted one, the object it is for.
struct Call {
  std::function<void()> fn;
  std::weak_ptr<const void> target;
  bool targeted = false;
};

gboolean runCall(gpointer data) {
  HANDOFF_ACQUIRE(data);
  auto call = static_cast<Call*>(data);
  // What fn holds goes when the call ends, not when GLib frees the source.
  auto fn = std::move(call->fn);
  if (!call->targeted) {
    fn();
  } else if (auto target = call->target.lock()) {
    fn();
  }
  return G_SOURCE_REMOVE;
}

void deleteCall(gpointer data) { delete static_cast<Call*>(data); }

void attachCall(GSource* source, GMainContext* context, Call* call) {
  HANDOFF_RELEASE(call);
  g_source_set_callback(source, runCall, call, deleteCall);
  g_source_attach(source, context);
}

class GSourceHandle final : public BVRunLoopSource {
 public:
  explicit GSourceHandle(GSource* source) : source_(source) {}
  ~GSourceHandle() override {
    cancel();
    g_source_unref(source_);
  }
  void cancel() override {
    if (!g_source_is_destroyed(source_)) g_source_destroy(source_);
  }
  bool isActive() const override { return !g_source_is_destroyed(source_); }

 private:
  GSource* source_;
};

struct FDCallback {
  std::function<bool(int)> fn;
};

gboolean runFD(gint fd, GIOCondition condition, gpointer data) {
  return static_cast<FDCallback*>(data)->fn(int(condition)) ? G_SOURCE_CONTINUE : G_SOURCE_REMOVE;
}

struct ChildCallback {
  std::function<void(int, int)> fn;
};

void runChild(GPid pid, gint status, gpointer data) { static_cast<ChildCallback*>(data)->fn(int(pid), status); }

guint toMilliseconds(double seconds) { return seconds <= 0 ? 0 : guint(seconds * 1000.0 + 0.5); }

}  // namespace

BVRunLoop::BVRunLoop(GMainContext* context) : context_(g_main_context_ref(context)) {}
BVRunLoop::BVRunLoop(const BVRunLoop& o) : context_(g_main_context_ref(o.context_)) {}
BVRunLoop& BVRunLoop::operator=(const BVRunLoop& o) {
  if (this != &o) {
    GMainContext* old = context_;
    context_ = g_main_context_ref(o.context_);
    g_main_context_unref(old);
  }
  return *this;
}
BVRunLoop::~BVRunLoop() { g_main_context_unref(context_); }

BVRunLoop BVRunLoop::current() {
  GMainContext* ctx = g_main_context_get_thread_default();
  return BVRunLoop(ctx ? ctx : g_main_context_default());
}

BVRunLoop BVRunLoop::main() { return BVRunLoop(g_main_context_default()); }

BVRunLoop::ThreadScope::ThreadScope() : context_(g_main_context_new()) { g_main_context_push_thread_default(context_); }
BVRunLoop::ThreadScope::~ThreadScope() {
  g_main_context_pop_thread_default(context_);
  // Drop what is still queued so its callbacks' data is freed.
  while (g_main_context_pending(context_)) g_main_context_iteration(context_, FALSE);
  g_main_context_unref(context_);
}
BVRunLoop BVRunLoop::ThreadScope::loop() const { return BVRunLoop(context_); }

bool BVRunLoop::isCurrent() const { return current().context_ == context_; }

namespace {

// Queues a call to run on the context as soon as it is idle at default
// priority, or after a delay; the delayed source is returned referenced.
void queueNow(GMainContext* context, Call* call) {
  GSource* source = g_idle_source_new();
  g_source_set_priority(source, G_PRIORITY_DEFAULT);
  attachCall(source, context, call);
  g_source_unref(source);
}

GSource* queueLater(GMainContext* context, double seconds, Call* call) {
  GSource* source = g_timeout_source_new(toMilliseconds(seconds));
  attachCall(source, context, call);
  return source;
}

}  // namespace

void BVRunLoop::perform(std::function<void()> fn) const { queueNow(context_, new Call{std::move(fn), {}, false}); }

void BVRunLoop::perform(std::weak_ptr<const void> target, std::function<void()> fn) const {
  queueNow(context_, new Call{std::move(fn), std::move(target), true});
}

BVDelayedPerform BVRunLoop::performAfterDelay(double seconds, std::weak_ptr<const void> target,
                                              std::function<void()> fn) const {
  return BVDelayedPerform(queueLater(context_, seconds, new Call{std::move(fn), std::move(target), true}));
}

BVDelayedPerform BVRunLoop::performAfterDelay(double seconds, std::function<void()> fn) const {
  return BVDelayedPerform(queueLater(context_, seconds, new Call{std::move(fn), {}, false}));
}

// ---- BVDelayedPerform ----

BVDelayedPerform::BVDelayedPerform(GSource* source) : source_(source, g_source_unref) {}

// GLib destroys a source once under its context's lock, so a repeated or
// late cancel is harmless; a source destroyed before it is dispatched never
// runs its callback.
void BVDelayedPerform::cancel() const {
  if (source_ && !g_source_is_destroyed(source_.get())) g_source_destroy(source_.get());
}

bool BVDelayedPerform::isPending() const { return source_ && !g_source_is_destroyed(source_.get()); }

BVRunLoopSourceRef BVRunLoop::watchFD(int fd, int conditions, std::function<bool(int)> fn, bool mayRecurse) const {
  GSource* source = g_unix_fd_source_new(fd, GIOCondition(conditions));
  if (mayRecurse) g_source_set_can_recurse(source, TRUE);
  g_source_set_callback(source, G_SOURCE_FUNC(runFD), new FDCallback{std::move(fn)},
                        [](gpointer d) { delete static_cast<FDCallback*>(d); });
  g_source_attach(source, context_);
  return std::make_shared<GSourceHandle>(source);
}

BVRunLoopSourceRef BVRunLoop::watchChild(int pid, std::function<void(int, int)> fn) const {
  GSource* source = g_child_watch_source_new(GPid(pid));
  g_source_set_callback(source, G_SOURCE_FUNC(runChild), new ChildCallback{std::move(fn)},
                        [](gpointer d) { delete static_cast<ChildCallback*>(d); });
  g_source_attach(source, context_);
  return std::make_shared<GSourceHandle>(source);
}

namespace {
// One GMainLoop per context being run, so stop() from any thread ends the
// innermost run of that context.
// Never destroyed: threads may still run loops while the process exits.
struct RunningLoops {
  belvane::detail::Mutex mutex;
  std::unordered_map<GMainContext*, std::vector<GMainLoop*>> byContext GUARDED_BY(mutex);
};
RunningLoops& gLoops = *new RunningLoops;
}  // namespace

void BVRunLoop::run() const {
  GMainLoop* loop = g_main_loop_new(context_, FALSE);
  {
    belvane::detail::MutexLock lock(gLoops.mutex);
    gLoops.byContext[context_].push_back(loop);
  }
  g_main_context_push_thread_default(context_ == g_main_context_default() ? nullptr : context_);
  g_main_loop_run(loop);
  g_main_context_pop_thread_default(context_ == g_main_context_default() ? nullptr : context_);
  {
    belvane::detail::MutexLock lock(gLoops.mutex);
    auto& v = gLoops.byContext[context_];
    v.erase(std::find(v.begin(), v.end(), loop));
    if (v.empty()) gLoops.byContext.erase(context_);
  }
  g_main_loop_unref(loop);
}

void BVRunLoop::stop() const {
  belvane::detail::MutexLock lock(gLoops.mutex);
  auto it = gLoops.byContext.find(context_);
  if (it != gLoops.byContext.end() && !it->second.empty()) g_main_loop_quit(it->second.back());
  g_main_context_wakeup(context_);
}

bool BVRunLoop::runUntil(const std::function<bool()>& done, double timeoutSeconds) const {
  gint64 deadline = g_get_monotonic_time() + gint64(timeoutSeconds * 1e6);
  bool timedOut = false;
  GSource* timer = g_timeout_source_new(toMilliseconds(timeoutSeconds));
  g_source_set_callback(
      timer,
      [](gpointer d) -> gboolean {
        *static_cast<bool*>(d) = true;
        return G_SOURCE_REMOVE;
      },
      &timedOut, nullptr);
  g_source_attach(timer, context_);
  while (!done() && !timedOut && g_get_monotonic_time() < deadline) g_main_context_iteration(context_, TRUE);
  g_source_destroy(timer);
  g_source_unref(timer);
  return done();
}

void BVRunLoop::runFor(double seconds) const {
  runUntil([] { return false; }, seconds);
}

bool BVRunLoop::iterate() const { return g_main_context_iteration(context_, FALSE); }

// ---- BVTimer ----

BVTimer::BVTimer(double interval, bool repeats, Callback fn)
    : interval_(interval), repeats_(repeats), fn_(std::move(fn)) {}

// Still scheduled only when the loop's context went away without it being
// invalidated: the context dropped its reference, this one remains.
BVTimer::~BVTimer() {
  if (source_) g_source_unref(source_);
}

std::shared_ptr<BVTimer> BVTimer::scheduledTimer(double interval, bool repeats, Callback fn) {
  auto timer = std::make_shared<BVTimer>(interval, repeats, std::move(fn));
  GSource* source = g_timeout_source_new(std::max<guint>(1, toMilliseconds(interval)));
  timer->source_ = source;
  // The source's callback data is the loop's reference to the timer; GLib
  // frees it when the source is destroyed, that is, on invalidate().
  g_source_set_callback(
      source,
      [](gpointer d) -> gboolean {
        auto timer = *static_cast<std::shared_ptr<BVTimer>*>(d);  // held while it fires
        timer->fire();
        return timer->source_ ? G_SOURCE_CONTINUE : G_SOURCE_REMOVE;
      },
      new std::shared_ptr<BVTimer>(timer), [](gpointer d) { delete static_cast<std::shared_ptr<BVTimer>*>(d); });
  g_source_attach(source, BVRunLoop::current().context());
  return timer;
}

void BVTimer::fire() {
  if (fn_) fn_(*this);
  if (!repeats_) invalidate();
}

void BVTimer::invalidate() {
  GSource* source = std::exchange(source_, nullptr);
  if (!source) return;
  // May release the loop's reference, the last one: nothing of this object
  // is touched afterwards.
  g_source_destroy(source);
  g_source_unref(source);
}

bool BVTimer::isValid() const { return source_ != nullptr; }
