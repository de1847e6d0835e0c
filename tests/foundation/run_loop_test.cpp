// BVRunLoop and BVTimer: performs across threads, cancellable delayed
// performs, performs for a weak target, timers that the loop keeps alive
// until invalidated.
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

TEST(RunLoop, DelayedPerformsCanBeCancelledByTheirHandle) {
  BVRunLoop loop = BVRunLoop::current();
  int a = 0, b = 0, c = 0;
  BVDelayedPerform a1 = loop.performAfterDelay(0.02, [&] { ++a; });
  BVDelayedPerform a2 = loop.performAfterDelay(0.02, [&] { ++a; });
  BVDelayedPerform toB = loop.performAfterDelay(0.02, [&] { ++b; });
  a1.cancel();
  BVDelayedPerform(a2).cancel();  // a copy cancels the same call
  EXPECT_FALSE(a2.isPending());
  // Due together: the first to run cancels the other before its turn.
  BVDelayedPerform toC;
  loop.performAfterDelay(0.01, [&] { toC.cancel(); });
  toC = loop.performAfterDelay(0.01, [&] { ++c; });
  loop.runUntil([&] { return b == 1; }, 5);
  loop.runFor(0.05);
  EXPECT_EQ(a, 0);
  EXPECT_EQ(b, 1);
  EXPECT_EQ(c, 0);
  // Cancelling after the perform ran, or again, is harmless.
  EXPECT_FALSE(toB.isPending());
  toB.cancel();
  a1.cancel();
  BVDelayedPerform().cancel();
}

TEST(RunLoop, TargetedPerformsAreDroppedWhenTheTargetIsGoneAndHoldItWhileTheyRun) {
  BVRunLoop loop = BVRunLoop::current();
  int dropped = 0;
  auto gone = std::make_shared<int>(0);
  loop.perform(gone, [&] { ++dropped; });
  loop.performAfterDelay(0.01, gone, [&] { ++dropped; });
  gone.reset();

  auto target = std::make_shared<int>(0);
  std::weak_ptr<int> weak = target;
  bool heldDuringCall = false;
  loop.perform(target, [&] {
    target.reset();  // the owner lets go inside the call
    heldDuringCall = !weak.expired();
  });
  loop.runUntil([&] { return weak.expired(); }, 5);
  loop.runFor(0.05);
  EXPECT_EQ(dropped, 0);
  EXPECT_TRUE(heldDuringCall);
  EXPECT_TRUE(weak.expired()) << "released once the call ends";
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
