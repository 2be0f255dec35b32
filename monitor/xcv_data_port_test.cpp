#include "monitor/entries.h"
#include "ports/port_list.h"
#include "tests/support/failing_new.h"
#include "tests/support/import_seam.h"
#include "tests/support/local_log.h"
#include "tests/support/monitor_world.h"
#include "tests/support/ports_registry.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

MG_IMPORT_SEAM(L"advapi32.dll", RegCreateKeyExW, ERROR_ACCESS_DENIED)

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr char kClosingOfXcv[] = "0x40000008: Stack Trace: MgPrintMon - MGXcvDataPort()";

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

TEST_F(XcvDataPortTest, InitSpoolerIsCarriedOutAndAnsweredWithZeroWhateverCameOfIt) {
  m_world.bringUpInstance();
  LocalLog log;
  log.trace();
  EXPECT_EQ(command(L"InitPortMonitor", L""), 0u);
  EXPECT_THAT(log.entered(), ElementsAre("MGXcvDataPort (pInputData = )"));
  log.clear();
  EXPECT_EQ(command(L"InitSpooler", L""), 0u);
  EXPECT_THAT(log.entered(),
              ElementsAre("MGXcvDataPort (pInputData = )", "InitSpooler()", "PortMonitorServer::getInstance()"));
  EXPECT_THAT(m_world.records().lines(), testing::Contains("0x40000008: Stack Trace: MgPrintMon - InitSpooler()"));
}

TEST_F(XcvDataPortTest, AnAddPortWithoutMemoryForThePortIsAnsweredWithZero) {
  bool wasRefused = false;
  for (int nth = 1; nth < 20 && !wasRefused; ++nth) {
    m_world.records().clear();
    DWORD result = 99;
    {
      const FailingNew failing(nth);
      result = command(L"AddPort", L"CPP9");
    }
    const auto lines = m_world.records().lines();
    wasRefused = !lines.empty() && lines.front() == "0x4000000a: Failed to create a new port: CPP9.";
    if (wasRefused) {
      EXPECT_EQ(result, 0u);
    }
  }
  EXPECT_TRUE(wasRefused);
}

TEST_F(XcvDataPortTest, AnAddPortThatTheRegistryRefusesEndsWithTheResultReachedSoFar) {
  RegCreateKeyExWSeam.fail(1, ERROR_ACCESS_DENIED);
  EXPECT_EQ(command(L"AddPort", L"CPP9"), 13u);
  const std::string text = "Failed to create the printer port registry key: CPP9 error: 5.";
  EXPECT_THAT(m_world.records().lines(),
              ElementsAre("0x4000000a: " + text, "10: " + text, "0x40000008: Stack Trace: CPortList::AddNewPort()",
                          "10: " + text, kClosingOfXcv));
}

TEST_F(XcvDataPortTest, ACommandWithoutMemoryIsRecordedAsAnUnknownException) {
  DWORD result = 99;
  {
    const FailingNew first(1);
    result = command(L"AddPort", L"CPP9");
  }
  EXPECT_EQ(result, 13u);
  EXPECT_FALSE(hasPort(L"CPP9"));
  EXPECT_THAT(m_world.records().lines(), ElementsAre("10: number 3012", kClosingOfXcv));
  EXPECT_EQ(m_world.records().reports(), 1);
}

TEST_F(XcvDataPortTest, TheInputEndsAtItsTerminatorWhateverSizeIsGiven) {
  wchar_t input[] = L"CPP9\0ignored";
  for (const DWORD size : {DWORD{0}, DWORD{1}, DWORD{3}, DWORD{9}, DWORD{0xFFFFFFFF}}) {
    EXPECT_EQ(MGXcvDataPort(nullptr, L"AddPort", reinterpret_cast<PBYTE>(input), size, nullptr, 0, nullptr), 0u);
    EXPECT_TRUE(hasPort(L"CPP9"));
    EXPECT_EQ(MGXcvDataPort(nullptr, L"DeletePort", reinterpret_cast<PBYTE>(input), size, nullptr, 0, nullptr), 0u);
    EXPECT_FALSE(hasPort(L"CPP9"));
  }
  EXPECT_THAT(m_world.records().lines(), IsEmpty());
}

TEST_F(XcvDataPortTest, OddNamesArePortsLikeOthers) {
  for (const std::wstring& odd : {std::wstring(), std::wstring(300, L'x'), std::wstring(L"\xD800"),
                                  std::wstring(L"\u4E2D\\\u6587"), std::wstring(L" \n")}) {
    EXPECT_EQ(command(L"AddPort", odd.c_str()), 0u);
    EXPECT_TRUE(hasPort(odd.c_str()));
    EXPECT_EQ(m_registry.values().count(odd), 1u);
    EXPECT_EQ(command(L"DeletePort", odd.c_str()), 0u);
    EXPECT_THAT(m_registry.values(), IsEmpty());
  }
  EXPECT_THAT(m_world.records().lines(), IsEmpty());
}

TEST_F(XcvDataPortTest, CommandsAreComparedAsAWholeAndWithCase) {
  for (const wchar_t* text :
       {L"initportmonitor", L"InitPortMonitor ", L"AddPorts", L"Add", L"", L"AddPor\xD800", L"\u4E2D"}) {
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
  EXPECT_THAT(m_world.records().lines(),
              ElementsAre("10: number 3015", kClosingOfXcv, "10: number 3015", kClosingOfXcv));
  EXPECT_EQ(m_world.records().reports(), 2);
}

TEST_F(XcvDataPortTest, WithoutAPortListTheCommandIsAnsweredWithTheResultReachedSoFar) {
  CPortList::setInstance(nullptr);
  EXPECT_EQ(command(L"AddPort", L"CPP9"), 13u);
  EXPECT_THAT(m_world.records().lines(), ElementsAre("10: number 3014", kClosingOfXcv));
}

}  // namespace
