#include "util/mutex.h"

#include <gtest/gtest.h>
#include <thread>

TEST(Signal, StaysSetForEveryWaitUntilItIsReset) {
  Signal signal;
  EXPECT_EQ(signal.wait(0), static_cast<DWORD>(WAIT_TIMEOUT));
  signal.set();
  EXPECT_EQ(signal.wait(), WAIT_OBJECT_0);
  EXPECT_EQ(signal.wait(0), WAIT_OBJECT_0);
  EXPECT_EQ(signal.wait(0xFFFFFFFF), WAIT_OBJECT_0);
  signal.reset();
  EXPECT_EQ(signal.wait(0), static_cast<DWORD>(WAIT_TIMEOUT));
}

TEST(Signal, IsSharedByItsNameAndStartsAsItsFirstMakerSays) {
  Signal first("mg-signal-test", true);
  Signal second("mg-signal-test", false);
  EXPECT_EQ(second.wait(0), WAIT_OBJECT_0);
  second.reset();
  EXPECT_EQ(first.wait(0), static_cast<DWORD>(WAIT_TIMEOUT));
}

TEST(Signal, WakesAThreadThatWaitsWithoutLimit) {
  Signal signal;
  Signal answer;
  std::jthread waiting([&] {
    EXPECT_EQ(signal.wait(0xFFFFFFFF), WAIT_OBJECT_0);
    answer.set();
  });
  signal.set();
  EXPECT_EQ(answer.wait(), WAIT_OBJECT_0);
  waiting.join();
}

TEST(TimedMutex, TimesOutWhileAnotherThreadHoldsIt) {
  TimedMutex mutex;
  EXPECT_EQ(mutex.lock(), WAIT_OBJECT_0);
  EXPECT_EQ(mutex.lock(0), WAIT_OBJECT_0) << "re-entrant for its holder";
  DWORD other = WAIT_OBJECT_0;
  std::thread([&] { other = mutex.lock(1); }).join();
  EXPECT_EQ(other, static_cast<DWORD>(WAIT_TIMEOUT));
  mutex.unlock();
  mutex.unlock();
  std::thread([&] {
    other = mutex.lock(0);
    mutex.unlock();
  }).join();
  EXPECT_EQ(other, WAIT_OBJECT_0);
}

TEST(TimedMutex, IgnoresAnUnlockByAThreadThatDoesNotHoldIt) {
  TimedMutex mutex;
  mutex.unlock();
  EXPECT_EQ(mutex.lock(0), WAIT_OBJECT_0);
  mutex.unlock();
}
