// BVTimerForwarder: lets a repeating timer call an object without keeping
// it alive. The timer owns only the forwarder, and the forwarder only points
// at its target, so polling players can be destroyed while their timer is
// scheduled. The target must invalidate the timer in its own tear-down,
// because the forwarder would otherwise call a destroyed object.
#pragma once

#include <belvane/BVExport.h>

#include <belvane/BVObject.h>
#include <belvane/BVRunLoop.h>

#include <functional>
#include <memory>
#include <string>

class BV_EXPORT BVTimerForwarder : public BVObject {
 public:
  template <class T>
  using Action = void (T::*)(BVTimer&);

  // A forwarder calling action on target; the target is not kept alive.
  template <class T>
  static std::shared_ptr<BVTimerForwarder> forwarderWithTarget(T* target, Action<T> action) {
    return std::shared_ptr<BVTimerForwarder>(new BVTimerForwarder(
        target, [action](void* t, BVTimer& timer) { (static_cast<T*>(t)->*action)(timer); }));
  }
  // Same as forwarderWithTarget.
  template <class T>
  static std::shared_ptr<BVTimerForwarder> create(T* target, Action<T> action) {
    return forwarderWithTarget(target, action);
  }

  // Calls the action on the target with the timer as its argument.
  void timerAction(BVTimer& timer);
  void* target() const { return mTarget; }

  std::string className() const override { return "BVTimerForwarder"; }

 private:
  BVTimerForwarder(void* target, std::function<void(void*, BVTimer&)> action)
      : mTarget(target), mAction(std::move(action)) {}
  void* mTarget;  // not owned
  std::function<void(void*, BVTimer&)> mAction;
};

// A repeating timer on the current run loop that calls target's action every
// interval seconds. The timer owns a forwarder, never the target.
template <class T>
BVTimerRef timerWithNonretainedTarget(T* target, BVTimerForwarder::Action<T> action, double interval) {
  auto forwarder = BVTimerForwarder::forwarderWithTarget(target, action);
  return BVTimer::scheduledTimer(interval, true, [forwarder](BVTimer& timer) { forwarder->timerAction(timer); });
}
