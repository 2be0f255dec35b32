#include "corvane/class_version_map.h"
#include "corvane/component_server.h"
#include "monitor/entries.h"
#include "monitor/monitor_table.h"
#include "ports/port_list.h"
#include "session/port_monitor_server.h"
#include "tests/support/failing_new.h"
#include "tests/support/import_seam.h"
#include "tests/support/ports_registry.h"
#include "tests/support/recording_monitor.h"

#include <winsock2.h>

#include <algorithm>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

MG_IMPORT_SEAM(L"ws2_32.dll", WSAStartup, WSASYSNOTREADY)

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr char kClosing[] = "0x40000008: Stack Trace: MgPrintMon - InitializePrintMonitor2()";

class InitializeTest : public testing::Test {
 protected:
  ~InitializeTest() override {
    PortMonitorServer::shutdown();
    removeList();
  }
  static void removeList() {
    CPortList* list = CPortList::instance();
    CPortList::setInstance(nullptr);
    delete list;
  }

  PortsRegistry m_registry;
  ImportSeams m_seams;
  RecordingScope m_records;
  MONITORINIT m_init{};
  HANDLE m_handle = reinterpret_cast<HANDLE>(5);
};

TEST_F(InitializeTest, HandsOutTheTableAndTheCallersOwnStructureAsTheHandle) {
  EXPECT_EQ(InitializePrintMonitor2(&m_init, &m_handle), &g_monitorTable);
  EXPECT_EQ(m_handle, &m_init);
  EXPECT_THAT(m_records.lines(), IsEmpty());
}

TEST_F(InitializeTest, RegistersBothClassesInTheirVersion) {
  InitializePrintMonitor2(&m_init, &m_handle);
  CS_ClassVersionMap versions;
  CS_ComponentServer::getServer()->copyRegisteredClassVersionMap(versions);
  EXPECT_EQ(versions.find(L"Quillfern::NTR::PortMonitorServer"), CS_Version(4, 0, 1, 0));
  EXPECT_EQ(versions.find(L"Quillfern::NTR::PrintServer"), CS_Version(4, 0, 1, 0));
}

TEST_F(InitializeTest, LoadsThePortsOfTheRegistry) {
  m_registry.set(L"CPP3");
  InitializePrintMonitor2(&m_init, &m_handle);
  HANDLE port = nullptr;
  EXPECT_EQ(MGOpenPort(nullptr, const_cast<wchar_t*>(L"CPP3"), &port), TRUE);
}

TEST_F(InitializeTest, ASecondCallGivesTheSameTableAndAnotherList) {
  EXPECT_EQ(InitializePrintMonitor2(&m_init, &m_handle), &g_monitorTable);
  CPortList* first = CPortList::instance();
  EXPECT_EQ(InitializePrintMonitor2(&m_init, &m_handle), &g_monitorTable);
  EXPECT_NE(CPortList::instance(), first);
  delete first;
}

TEST_F(InitializeTest, AFrameworkThatDoesNotComeUpLeavesEverythingAsItWas) {
  WSAStartupSeam.fail(1, WSASYSNOTREADY);
  SetLastError(0);
  EXPECT_EQ(InitializePrintMonitor2(&m_init, &m_handle), nullptr);
  EXPECT_EQ(GetLastError(), 10u);
  EXPECT_EQ(m_handle, reinterpret_cast<HANDLE>(5));
  EXPECT_EQ(CPortList::instance(), nullptr);
  EXPECT_THAT(m_records.lines(), IsEmpty());
}

TEST_F(InitializeTest, ShutdownLeavesThePortsUsable) {
  InitializePrintMonitor2(&m_init, &m_handle);
  MGShutdown(m_handle);
  DWORD needed = 1;
  DWORD returned = 1;
  EXPECT_EQ(MGEnumPorts(nullptr, nullptr, 1, nullptr, 0, &needed, &returned), TRUE);
  EXPECT_EQ(needed, 0u);
}

// Every allocation on the way fails once. The result and the last error agree, the handle is written once the framework
// is up, and a failure that was recorded ends with the closing line.
TEST_F(InitializeTest, EveryFailingAllocationEndsInATableOrInTheEnvironmentError) {
  bool sawMissingLock = false;
  for (int nth = 1;; ++nth) {
    ASSERT_LT(nth, 500);
    PortMonitorServer::shutdown();
    removeList();
    m_records.clear();
    m_handle = nullptr;
    SetLastError(0);
    LPMONITOR2 table = nullptr;
    bool failed = false;
    {
      const FailingNew failing(nth);
      table = InitializePrintMonitor2(&m_init, &m_handle);
      failed = failing.hasFailed();
    }
    if (table == nullptr) {
      EXPECT_EQ(GetLastError(), 10u) << nth;
    }
    const auto lines = m_records.lines();
    sawMissingLock = sawMissingLock || std::count(lines.begin(), lines.end(),
                                                  "0x4000000a: Failed to initialize the PortMonitorServer") == 1;
    if (!failed) {
      EXPECT_EQ(table, &g_monitorTable);
      break;
    }
  }
  EXPECT_TRUE(sawMissingLock);
}

}  // namespace
