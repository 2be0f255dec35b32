#include "monitor/entries.h"
#include "ports/port_list.h"
#include "tests/support/import_seam.h"
#include "tests/support/monitor_world.h"
#include "tests/support/ports_registry.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr char kClosing[] = "0x40000008: Stack Trace: MgPrintMon - MGXcvDataPort()";

class XcvDataPortTest : public testing::Test {
 protected:
  XcvDataPortTest() { CPortList::setInstance(&m_list); }
  ~XcvDataPortTest() override { CPortList::setInstance(nullptr); }

  static DWORD command(const wchar_t* text, const wchar_t* input) {
    // The size of the input is not looked at, and there is no output.
    return MGXcvDataPort(nullptr, text, reinterpret_cast<PBYTE>(const_cast<wchar_t*>(input)), 0, nullptr, 0, nullptr);
  }
  bool hasPort(const wchar_t* name) {
    tagPort* port = m_list.FindPort(name);
    if (port != nullptr) port->lock->unlock();
    return port != nullptr;
  }

  PortsRegistry m_registry;
  ImportSeams m_seams;
  MonitorWorld m_world;
  CPortList m_list;
};

TEST_F(XcvDataPortTest, AddPortAddsToTheListAndTheRegistry) {
  EXPECT_EQ(command(L"AddPort", L"CPP9"), 0u);
  EXPECT_TRUE(hasPort(L"CPP9"));
  EXPECT_EQ(m_registry.values().count(L"CPP9"), 1u);
  EXPECT_THAT(m_world.records().lines(), IsEmpty());
}

TEST_F(XcvDataPortTest, DeletePortRemovesFromBothAndAnswersZeroEvenForAMissingOne) {
  command(L"AddPort", L"CPP9");
  EXPECT_EQ(command(L"DeletePort", L"CPP9"), 0u);
  EXPECT_FALSE(hasPort(L"CPP9"));
  EXPECT_THAT(m_registry.values(), IsEmpty());
  EXPECT_EQ(command(L"DeletePort", L"CPP9"), 0u);
}

TEST_F(XcvDataPortTest, InitPortMonitorDoesNothing) {
  EXPECT_EQ(command(L"InitPortMonitor", L""), 0u);
  EXPECT_THAT(m_world.peer().lines(), IsEmpty());
  EXPECT_THAT(m_world.records().lines(), IsEmpty());
}

TEST_F(XcvDataPortTest, InitSpoolerAnswersZeroWhateverCameOfIt) {
  m_world.bringUpInstance();
  EXPECT_EQ(command(L"InitSpooler", L""), 0u);
}

TEST_F(XcvDataPortTest, CommandsAreComparedAsAWholeAndWithCase) {
  for (const wchar_t* text : {L"initportmonitor", L"InitPortMonitor ", L"AddPorts", L"Add", L""}) {
    EXPECT_EQ(command(text, L"CPP9"), 13u);
  }
  EXPECT_FALSE(hasPort(L"CPP9"));
  EXPECT_THAT(m_world.records().lines(), IsEmpty());
}

TEST_F(XcvDataPortTest, TheOutputIsNeitherReadNorWritten) {
  BYTE output = 7;
  DWORD needed = 99;
  wchar_t input[] = L"x";
  EXPECT_EQ(MGXcvDataPort(nullptr, L"InitPortMonitor", reinterpret_cast<PBYTE>(input), 4, &output, 1, &needed), 0u);
  EXPECT_EQ(output, 7);
  EXPECT_EQ(needed, 99u);
}

TEST_F(XcvDataPortTest, AMissingCommandOrInputIsABadArgument) {
  EXPECT_EQ(command(nullptr, L"CPP9"), 87u);
  EXPECT_EQ(command(L"AddPort", nullptr), 87u);
  EXPECT_THAT(m_world.records().lines(), ElementsAre("10: number 3015", kClosing, "10: number 3015", kClosing));
  EXPECT_EQ(m_world.records().reports(), 2);
}

TEST_F(XcvDataPortTest, WithoutAPortListTheCommandIsAnsweredWithTheResultReachedSoFar) {
  CPortList::setInstance(nullptr);
  EXPECT_EQ(command(L"AddPort", L"CPP9"), 13u);
  EXPECT_THAT(m_world.records().lines(), ElementsAre("10: number 3014", kClosing));
}

}  // namespace
