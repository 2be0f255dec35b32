#include "corvane/records/exception.h"
#include "corvane/records/messages.h"
#include "ports/port_list.h"
#include "tests/support/recording_monitor.h"

#include <gtest/gtest.h>

namespace {

class HeldPortTest : public testing::Test {
 protected:
  HeldPortTest() {
    CPortList::setInstance(&m_ports);
    m_ports.AddPort(L"CPP7", 0);
  }
  ~HeldPortTest() override { CPortList::setInstance(nullptr); }

  RecordingScope m_records;
  CPortList m_ports;
};

TEST_F(HeldPortTest, HoldsTheLockForItsScope) {
  tagPort* port = nullptr;
  {
    const mg::HeldPort held(mg::portList(), L"CPP7");
    ASSERT_TRUE(held);
    port = held.get();
    EXPECT_STREQ(held->portName, L"CPP7");
  }
  EXPECT_EQ(port->lock->unlock(), 0) << "the lock is still held";
}

TEST_F(HeldPortTest, IsEmptyForAPortThatTheListDoesNotHave) {
  const mg::HeldPort held(mg::portList(), L"CPP8");
  EXPECT_FALSE(held);
  EXPECT_EQ(held.get(), nullptr);
}

TEST_F(HeldPortTest, LeavesAPortAloneWhoseListHasGone) {
  tagPort* port = nullptr;
  {
    const mg::HeldPort held(mg::portList(), L"CPP7");
    port = held.get();
    CPortList::setInstance(nullptr);  // as the module's end does, which then frees the ports
  }
  EXPECT_EQ(port->lock->unlock(), 1) << "the lock was given back";
}

TEST_F(HeldPortTest, WithoutAListThereIsNothingToHold) {
  CPortList::setInstance(nullptr);
  try {
    mg::portList();
    FAIL();
  } catch (const CS_Exception& exception) {
    EXPECT_EQ(exception.number(), corvane::kMissingObject);
  }
}

TEST(SessionPortName, IsTheNumberOfTheSessionAsASignedOne) {
  EXPECT_STREQ(mg::SessionPortName(7).text, L"CPP7");
  EXPECT_STREQ(mg::SessionPortName(0xFFFFFFFF).text, L"CPP-1");
}

}  // namespace
