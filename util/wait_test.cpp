#include "tests/support/import_seam.h"
#include "util/mutex.h"
#include "util/one_time_method.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <vector>

MG_IMPORT_SEAM(L"kernel32.dll", CreateMutexA, nullptr)
MG_IMPORT_SEAM(L"kernel32.dll", WaitForSingleObject, WAIT_FAILED)

namespace {

using testing::ElementsAre;

class WaitTest : public testing::Test {
 protected:
  WaitTest() {
    WaitForSingleObjectSeam.replacement = [this](HANDLE, DWORD milliseconds) {
      m_waited.push_back(milliseconds);
      return m_result;
    };
  }
  ImportSeams m_seams;
  std::vector<DWORD> m_waited;
  DWORD m_result = WAIT_OBJECT_0;
};

class IdleMethod : public OneTimeMethod {
 protected:
  void runMethod(std::int32_t) override {}
};

TEST_F(WaitTest, ASignalWaitsAsLongAsItIsTold) {
  Signal signal;
  signal.wait();
  signal.wait(0);
  signal.wait(0xFFFFFFFE);
  signal.wait(0xFFFFFFFF);
  EXPECT_THAT(m_waited, ElementsAre(INFINITE, 0u, 0xFFFFFFFEu, INFINITE));
}

TEST_F(WaitTest, ATimedMutexIsUnnamedNotOwnedAndWaitsAsLongAsItIsTold) {
  CreateMutexASeam.watch = [](LPSECURITY_ATTRIBUTES security, WINBOOL owned, LPCSTR name) {
    EXPECT_EQ(security, nullptr);
    EXPECT_EQ(owned, FALSE);
    EXPECT_EQ(name, nullptr);
  };
  TimedMutex mutex;
  mutex.lock();
  mutex.lock(250);
  EXPECT_THAT(m_waited, ElementsAre(INFINITE, 250u));
}

TEST_F(WaitTest, TheResultOfAWaitIsReturnedAsItIs) {
  Signal signal;
  TimedMutex mutex;
  for (const DWORD result : {DWORD{WAIT_OBJECT_0}, DWORD{WAIT_ABANDONED}, DWORD{WAIT_TIMEOUT}, DWORD{WAIT_FAILED}}) {
    m_result = result;
    EXPECT_EQ(signal.wait(), result);
    EXPECT_EQ(signal.wait(1), result);
    EXPECT_EQ(mutex.lock(), result);
    EXPECT_EQ(mutex.lock(1), result);
  }
}

TEST_F(WaitTest, AMethodsEndIsASuccessATimeoutOrElseAFailure) {
  IdleMethod method;
  EXPECT_EQ(method.wait(1), 8);
  m_result = WAIT_TIMEOUT;
  EXPECT_EQ(method.wait(1), 9);
  for (const DWORD result : {DWORD{WAIT_FAILED}, DWORD{WAIT_ABANDONED}}) {
    m_result = result;
    EXPECT_EQ(method.wait(1), 1);
  }
  EXPECT_THAT(m_waited, ElementsAre(1u, 1u, 1u, 1u));
}

}  // namespace
