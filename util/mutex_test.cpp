#include "util/mutex.h"

#include <gtest/gtest.h>
#include <stdexcept>
#include <thread>

TEST(Mutex, UnlockingALockThatNobodyHoldsReturnsZeroAndLeavesItUsable) {
  Mutex mutex;
  EXPECT_EQ(mutex.unlock(), 0);
  EXPECT_EQ(mutex.lock(), 0);
  EXPECT_EQ(mutex.unlock(), 1);
  EXPECT_EQ(mutex.unlock(), 0);
}

TEST(Mutex, CountsEachHoldOfAReentrantOwner) {
  CriticalSection section;
  section.lock();
  section.lock();
  EXPECT_EQ(section.unlock(), 1);
  EXPECT_EQ(section.unlock(), 1);
  EXPECT_EQ(section.unlock(), 0);
}

TEST(Mutex, KeepsTwoThreadsApart) {
  constexpr int kRounds = 20000;
  Mutex mutex;
  int counter = 0;
  const auto work = [&] {
    for (int round = 0; round < kRounds; ++round) {
      const Synchronized guard(mutex);
      ++counter;
    }
  };
  std::jthread other(work);
  work();
  other.join();
  EXPECT_EQ(counter, 2 * kRounds);
}

TEST(Synchronized, HoldsTheLockToTheEndOfItsScope) {
  Mutex mutex;
  {
    const Synchronized guard(mutex);
    mutex.lock();
    EXPECT_EQ(mutex.unlock(), 1);
  }
  EXPECT_EQ(mutex.unlock(), 0);
}

TEST(Synchronized, GivesTheLockBackWhenAnExceptionLeavesItsScope) {
  Mutex mutex;
  EXPECT_THROW(
      {
        const Synchronized guard(mutex);
        throw std::runtime_error("leaves the scope");
      },
      std::runtime_error);
  EXPECT_EQ(mutex.unlock(), 0);
}
