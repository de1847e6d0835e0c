// BVRunLoop and BVTimer: performs across threads, cancellable delayed
// performs, timers that the loop keeps alive until invalidated.
#include <belvane/BVRunLoop.h>

#include <gtest/gtest.h>

#include <atomic>
#include <thread>

TEST(RunLoop, PerformFromAnotherThreadRunsOnTheLoopThread) {
  BVRunLoop loop = BVRunLoop::current();
  std::thread::id ranOn;
  std::atomic<bool> done{false};
  std::thread t([&] {
    loop.perform([&] {
      ranOn = std::this_thread::get_id();
      done = true;
    });
  });
  t.join();
  EXPECT_FALSE(done) << "perform never runs inline";
  ASSERT_TRUE(loop.runUntil([&] { return done.load(); }, 5));
  EXPECT_EQ(ranOn, std::this_thread::get_id());
}

TEST(RunLoop, DelayedPerformsCanBeCancelledByTarget) {
  BVRunLoop loop = BVRunLoop::current();
  int a = 0, b = 0;
  int targetA = 0, targetB = 0;
  loop.performAfterDelay(0.02, &targetA, [&] { ++a; });
  loop.performAfterDelay(0.02, &targetA, [&] { ++a; });
  loop.performAfterDelay(0.02, &targetB, [&] { ++b; });
  BVRunLoop::cancelPerforms(&targetA);
  loop.runUntil([&] { return b == 1; }, 5);
  loop.runFor(0.05);
  EXPECT_EQ(a, 0);
  EXPECT_EQ(b, 1);
  // Cancelling after the perform ran is harmless.
  BVRunLoop::cancelPerforms(&targetB);
}

TEST(RunLoop, WorkerThreadsRunTheirOwnLoop) {
  std::atomic<int> value{0};
  std::thread worker([&] {
    BVRunLoop::ThreadScope scope;
    BVRunLoop loop = BVRunLoop::current();
    EXPECT_TRUE(loop == scope.loop());
    EXPECT_FALSE(loop == BVRunLoop::main());
    loop.perform([&] {
      value = 1;
      BVRunLoop::current().stop();
    });
    loop.run();
  });
  worker.join();
  EXPECT_EQ(value, 1);
}

TEST(Timer, RepeatsUntilInvalidatedOneShotsFireOnceAndTheLoopKeepsThemAlive) {
  int fired = 0, once = 0;
  std::weak_ptr<BVTimer> weak;
  {
    auto timer = BVTimer::scheduledTimer(0.01, true, [&](BVTimer& t) {
      if (++fired == 3) t.invalidate();
    });
    weak = timer;
  }
  auto oneShot = BVTimer::scheduledTimer(0.01, false, [&](BVTimer&) { ++once; });
  EXPECT_FALSE(weak.expired()) << "the loop owns a scheduled timer";
  BVRunLoop::current().runUntil([&] { return fired >= 3 && once == 1; }, 5);
  BVRunLoop::current().runFor(0.05);
  EXPECT_EQ(fired, 3);
  EXPECT_EQ(once, 1);
  EXPECT_FALSE(oneShot->isValid());
  EXPECT_TRUE(weak.expired()) << "an invalidated timer is released";
}
