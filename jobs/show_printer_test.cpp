#include "jobs/show_printer.h"

#include "ports/port_list.h"
#include "tests/support/import_seam.h"
#include "tests/support/monitor_world.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

// Time is what the port says of it: the tests set the port's tick count against the real one.
class ShowPrinterTest : public testing::Test {
 protected:
  ShowPrinterTest() {
    CPortList::setInstance(&m_ports);
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
  MonitorWorld m_world;
  CPortList m_ports;
};

TEST_F(ShowPrinterTest, ShowsExactlyThePrintersOfTheSessionsClient) {
  EXPECT_EQ(ShowPrinter(5, L"Laser"), TRUE);
  EXPECT_EQ(ShowPrinter(5, L"laser"), FALSE);
  EXPECT_EQ(ShowPrinter(5, L"Ink"), FALSE);
}

TEST_F(ShowPrinterTest, AFreshListIsNotAskedForAgain) {
  ShowPrinter(5, L"Laser");
  changePort([](tagPort& port) { port.tickCount = GetTickCount(); });
  EXPECT_EQ(ShowPrinter(5, L"Laser"), TRUE);
  EXPECT_EQ(asked(), 1u);
}

TEST_F(ShowPrinterTest, AListOf500MillisecondsIsAskedForAgain) {
  ShowPrinter(5, L"Laser");
  changePort([](tagPort& port) { port.tickCount = GetTickCount() - 500; });
  EXPECT_EQ(ShowPrinter(5, L"Laser"), TRUE);
  EXPECT_EQ(asked(), 2u);
}

TEST_F(ShowPrinterTest, ATickCountFromTheFutureMeansAWrapAndAsksAgain) {
  ShowPrinter(5, L"Laser");
  changePort([](tagPort& port) { port.tickCount = GetTickCount() + 60000; });
  ShowPrinter(5, L"Laser");
  EXPECT_EQ(asked(), 2u);
}

TEST_F(ShowPrinterTest, WhenTheServerRefusesEveryPrinterIsShownUntilTheNextList) {
  m_told = false;
  EXPECT_EQ(ShowPrinter(5, L"Ink"), TRUE);
  changePort([](tagPort& port) {
    EXPECT_EQ(port.listRequestSucceeded, 0);
    port.tickCount = GetTickCount();
  });
  EXPECT_EQ(ShowPrinter(5, L"Other"), TRUE);
  EXPECT_EQ(asked(), 1u);
  m_told = true;
  changePort([](tagPort& port) { port.tickCount = GetTickCount() - 500; });
  EXPECT_EQ(ShowPrinter(5, L"Ink"), FALSE);
  changePort([](tagPort& port) { EXPECT_EQ(port.listRequestSucceeded, 1); });
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
