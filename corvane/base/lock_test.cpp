// On Linux these are the standard library's own, which must keep to the same contract.
#include "corvane/base/lock.h"

#include "tests/support/joined_thread.h"

#include <chrono>
#include <gtest/gtest.h>
#include <vector>

namespace {

using corvane::Condition;
using corvane::Lock;
using Clock = std::chrono::steady_clock;

TEST(LockTest, AnotherThreadDoesNotGetWhatIsHeld) {
  Lock lock;
  bool gotHeld = true, gotFree = false;
  {
    const std::lock_guard guard(lock);
    JoinedThread other([&] { gotHeld = lock.try_lock(); });
  }
  JoinedThread other([&] {
    gotFree = lock.try_lock();
    if (gotFree) lock.unlock();
  });
  other.join();
  EXPECT_FALSE(gotHeld);
  EXPECT_TRUE(gotFree);
}

TEST(LockTest, ThreadsThatCountUnderItCountRight) {
  Lock lock;
  int count = 0;
  {
    std::vector<JoinedThread> threads;
    for (int i = 0; i < 4; ++i) {
      threads.emplace_back([&] {
        for (int k = 0; k < 20000; ++k) {
          const std::lock_guard guard(lock);
          ++count;
        }
      });
    }
  }
  EXPECT_EQ(80000, count);
}

TEST(ConditionTest, ATimedWaitDoesNotEndBeforeItsDeadline) {
  Lock lock;
  Condition condition;
  std::unique_lock held(lock);
  // Not whole milliseconds, of which the system counts.
  for (const auto time : {std::chrono::microseconds(100), std::chrono::microseconds(1900)}) {
    const auto deadline = Clock::now() + time;
    EXPECT_FALSE(condition.wait_until(held, deadline, [] { return false; }));
    EXPECT_GE(Clock::now(), deadline);
  }
}

TEST(ConditionTest, AWaitWhoseDeadlineHasPassedComesBack) {
  Lock lock;
  Condition condition;
  std::unique_lock held(lock);
  EXPECT_EQ(std::cv_status::timeout, condition.wait_until(held, Clock::now() - std::chrono::hours(1000)));
  EXPECT_EQ(std::cv_status::timeout, condition.wait_for(held, std::chrono::milliseconds(-1)));
  EXPECT_TRUE(held.owns_lock());
}

TEST(ConditionTest, AWaitWithinADeadlineFarAwayIsWoken) {
  Lock lock;
  Condition condition;
  bool isSo = false;
  std::unique_lock held(lock);
  JoinedThread other([&] {
    const std::lock_guard guard(lock);  // which the wait has let go of
    isSo = true;
    condition.notify_one();
  });
  EXPECT_TRUE(condition.wait_until(held, Clock::now() + std::chrono::hours(24 * 365), [&] { return isSo; }));
  EXPECT_TRUE(held.owns_lock());
}

TEST(ConditionTest, EachCallWakesOneAndTheLastOneAll) {
  constexpr int kThreads = 4;
  Lock lock;
  Condition condition, counted;
  int waiting = 0, mayGo = 0, gone = 0;
  std::vector<JoinedThread> threads;
  for (int i = 0; i < kThreads; ++i) {
    threads.emplace_back([&] {
      std::unique_lock held(lock);
      ++waiting;
      counted.notify_all();
      condition.wait(held, [&] { return mayGo > 0; });
      --mayGo;
      ++gone;
      counted.notify_all();
    });
  }
  std::unique_lock held(lock);
  counted.wait(held, [&] { return waiting == kThreads; });
  for (int i = 1; i <= 2; ++i) {
    mayGo = 1;
    condition.notify_one();
    counted.wait(held, [&] { return gone == i; });
    EXPECT_EQ(0, mayGo);
  }
  mayGo = kThreads - 2;
  condition.notify_all();
  counted.wait(held, [&] { return gone == kThreads; });
}

}  // namespace
