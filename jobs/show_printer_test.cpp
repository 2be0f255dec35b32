#include "ports/port_list.h"
#include "session/session_printers.h"
#include "tests/support/failing_new.h"
#include "tests/support/import_seam.h"
#include "tests/support/jobs/environment_seam.h"
#include "tests/support/monitor_world.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class ShowPrinterTest : public testing::Test {
 protected:
  ShowPrinterTest() {
    CPortList::setInstance(&m_ports);
    environment_seam::replaceTickCount([this] { return m_now; });
    m_ports.AddPort(L"CPP5", 0);
    m_world.peer().answer("PortMonitorClient", 6, [this](corvane::ValueWriter& reply) {
      reply.writeBoolean(m_told);
      if (!m_told) return;
      reply.writeBoolean(true);
      reply.writeText(L"Laser");
      reply.writeBoolean(false);
    });
  }
  ~ShowPrinterTest() override {
    CPortList::setInstance(nullptr);
    CS_ProgramMonitor::setDefaultMonitor(nullptr);
  }

  std::size_t asked() {
    std::size_t count = 0;
    for (const std::string& line : m_world.requests())
      count += line == "request 6 GetPrinterList: int 5" ? 1 : 0;
    return count;
  }
  template <class Change>
  void changePort(Change change) {
    tagPort* port = m_ports.FindPort(L"CPP5");
    change(*port);
    port->lock->unlock();
  }

  ImportSeams m_seams;
  bool m_told = true;
  DWORD m_now = 70000;
  MonitorWorld m_world;
  CPortList m_ports;
};

TEST_F(ShowPrinterTest, AServerThatWasStartedAgainMeanwhileIsAskedAndNotTheLostOne) {
  PortMonitorServer::getInstance();
  m_world.peer().hangUp();
  ASSERT_TRUE(m_world.peer().waitForOpen(0));
  EXPECT_EQ(ShowPrinter(5, L"Laser"), TRUE);
  EXPECT_EQ(ShowPrinter(5, L"Ink"), FALSE);
  EXPECT_TRUE(m_world.peer().waitForLine("2| request 6 GetPrinterList: int 5"));
  EXPECT_EQ(asked(), 0u) << "over the first connection";
}

TEST_F(ShowPrinterTest, ShowsExactlyThePrintersOfTheSessionsClient) {
  EXPECT_EQ(ShowPrinter(5, L"Laser"), TRUE);
  EXPECT_EQ(ShowPrinter(5, L"laser"), FALSE);
  EXPECT_EQ(ShowPrinter(5, L"Ink"), FALSE);
}

TEST_F(ShowPrinterTest, AFreshListIsNotAskedForAgain) {
  ShowPrinter(5, L"Laser");
  m_now += 499;
  EXPECT_EQ(ShowPrinter(5, L"Laser"), TRUE);
  EXPECT_EQ(asked(), 1u);
}

TEST_F(ShowPrinterTest, AListOf500MillisecondsIsAskedForAgain) {
  ShowPrinter(5, L"Laser");
  m_now += 500;
  EXPECT_EQ(ShowPrinter(5, L"Laser"), TRUE);
  EXPECT_EQ(asked(), 2u);
}

TEST_F(ShowPrinterTest, ATickCountFromTheFutureMeansAWrapAndAsksAgain) {
  ShowPrinter(5, L"Laser");
  m_now -= 1;
  ShowPrinter(5, L"Laser");
  EXPECT_EQ(asked(), 2u);
}

// A few milliseconds later by the clock, but the count has begun again meanwhile.
TEST_F(ShowPrinterTest, ATickCountThatHasWrappedRoundAsksAgain) {
  m_now = 0xFFFFFFF0;
  ShowPrinter(5, L"Laser");
  m_now = 0x10;
  EXPECT_EQ(ShowPrinter(5, L"Laser"), TRUE);
  EXPECT_EQ(asked(), 2u);
}

// The old list has gone by then; a port that still named it would free it again.
TEST_F(ShowPrinterTest, WithoutMemoryForANewListThePortHasNone) {
  ShowPrinter(5, L"Laser");
  m_now += 1000;
  bool hasNone = false;
  for (int nth = 1; !hasNone; ++nth) {
    ASSERT_LT(nth, 20);
    {
      const FailingNew failing(nth);
      ShowPrinter(5, L"Laser");
      ASSERT_TRUE(failing.hasFailed());
    }
    changePort([&](tagPort& port) { hasNone = port.cachedPrinters == nullptr; });
  }
  EXPECT_EQ(asked(), 1u);
  EXPECT_EQ(ShowPrinter(5, L"Laser"), TRUE);
  EXPECT_EQ(asked(), 2u);
}

TEST_F(ShowPrinterTest, WhenTheServerRefusesEveryPrinterIsShownUntilTheNextList) {
  m_told = false;
  EXPECT_EQ(ShowPrinter(5, L"Ink"), TRUE);
  changePort([](tagPort& port) { EXPECT_EQ(port.listRequestSucceeded, 0); });
  EXPECT_EQ(ShowPrinter(5, L"Other"), TRUE);
  EXPECT_EQ(asked(), 1u);
  m_told = true;
  m_now += 500;
  EXPECT_EQ(ShowPrinter(5, L"Ink"), FALSE);
  changePort([](tagPort& port) { EXPECT_EQ(port.listRequestSucceeded, 1); });
}

TEST_F(ShowPrinterTest, TheTimeOfTheListIsTakenAfterTheServersAnswer) {
  m_world.peer().whenAsked("PortMonitorClient", 6, [this] { m_now += 300; });
  ShowPrinter(5, L"Laser");
  changePort([](tagPort& port) {
    EXPECT_EQ(port.tickCount, 70300u);
    EXPECT_EQ(port.cachedPrinters->bucketCount(), 32u);
  });
}

TEST_F(ShowPrinterTest, AnInstanceThatCannotBeMadeHidesThePrinterAndLeavesAnEmptyList) {
  m_world.losePeer();
  EXPECT_EQ(ShowPrinter(5, L"Laser"), FALSE);
  changePort([](tagPort& port) {
    ASSERT_NE(port.cachedPrinters, nullptr);
    EXPECT_EQ(port.cachedPrinters->count(), 0u);
    EXPECT_EQ(port.tickCount, 0u);
  });
}

TEST_F(ShowPrinterTest, TheSessionIsWrittenAsASignedNumber) {
  m_ports.AddPort(L"CPP-1", 0);
  EXPECT_EQ(ShowPrinter(0xFFFFFFFF, L"Laser"), TRUE);
  EXPECT_EQ(m_world.countOf("request 6 GetPrinterList: int -1"), 1u);
}

TEST_F(ShowPrinterTest, NamesOfAnyLengthAndCharacterAreLookedUp) {
  const std::wstring odd = L"\xD800\u4e2d" + std::wstring(300, L'n');
  EXPECT_EQ(ShowPrinter(5, odd.c_str()), FALSE);
  EXPECT_EQ(ShowPrinter(5, L""), FALSE);
  EXPECT_THAT(m_world.records().lines(), IsEmpty());
}

TEST_F(ShowPrinterTest, ASessionWithoutAPortIsHiddenAndNobodyIsAsked) {
  EXPECT_EQ(ShowPrinter(6, L"Laser"), FALSE);
  EXPECT_THAT(m_world.requests(), IsEmpty());
}

TEST_F(ShowPrinterTest, MissingArgumentsAreRecorded) {
  EXPECT_EQ(ShowPrinter(0, L"Laser"), FALSE);
  EXPECT_EQ(ShowPrinter(5, nullptr), FALSE);
  const std::string closing = "0x40000008: Stack Trace: MgPrintMon - ShowPrinter()";
  EXPECT_THAT(m_world.records().lines(), ElementsAre("10: number 3015", closing, "10: number 3015", closing));
}

TEST_F(ShowPrinterTest, ThePortIsFreeAfterwards) {
  ShowPrinter(5, L"Laser");
  tagPort* port = m_ports.FindPort(L"CPP5");
  EXPECT_EQ(port->lock->unlock(), 1);
  EXPECT_EQ(port->lock->unlock(), 0);
}

}  // namespace
