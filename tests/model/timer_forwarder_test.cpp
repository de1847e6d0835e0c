// BVTimerForwarder: a repeating timer calls its target without owning it.
#include <belvane/BVTimerForwarder.h>

#include <gtest/gtest.h>

namespace {

class Poller {
 public:
  explicit Poller(int* calls) : calls_(calls) { timer_ = timerWithNonretainedTarget(this, &Poller::tick, 0.01); }
  ~Poller() { timer_->invalidate(); }  // the tear-down every polling player does
  void tick(BVTimer& timer) {
    EXPECT_EQ(&timer, timer_.get());
    ++*calls_;
  }

 private:
  int* calls_;
  BVTimerRef timer_;
};

}  // namespace

TEST(TimerForwarder, FiresRepeatedlyAndStopsWithItsTarget) {
  int calls = 0;
  auto poller = std::make_unique<Poller>(&calls);
  BVRunLoop loop = BVRunLoop::current();
  EXPECT_TRUE(loop.runUntil([&] { return calls >= 3; }, 10.0));

  poller.reset();
  int seen = calls;
  loop.runFor(0.1);
  EXPECT_EQ(calls, seen);
}
