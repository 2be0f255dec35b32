#include "corvane/components/class.h"
#include "corvane/components/component_server.h"
#include "monitor/entries.h"
#include "ports/port_list.h"
#include "session/port_monitor_server.h"
#include "tests/support/failing_new.h"
#include "tests/support/import_seam.h"
#include "tests/support/local_log.h"
#include "tests/support/ports_registry.h"
#include "tests/support/recording_monitor.h"

#include <winsock2.h>
#include <winspool.h>

#include <algorithm>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

MG_IMPORT_SEAM(L"ws2_32.dll", WSAStartup, WSASYSNOTREADY)
MG_IMPORT_SEAM(L"kernel32.dll", InitializeCriticalSection, 0)
MG_IMPORT_SEAM(L"kernel32.dll", DeleteCriticalSection, 0)

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

  // Starts again and again, with another allocation failing each time, until the record is there; false when it never
  // comes.
  bool startUntilRecorded(const std::string& line) {
    // What is made once per process would be missing in the starts behind the one that makes it, and the failing
    // allocation pass over one of theirs.
    InitializePrintMonitor2(&m_init, &m_handle);
    for (int nth = 1; nth < 500; ++nth) {
      PortMonitorServer::shutdown();
      removeList();
      m_records.clear();
      m_handle = nullptr;
      SetLastError(0);
      const FailingNew failing(nth);
      m_table = InitializePrintMonitor2(&m_init, &m_handle);
      const FailingNew::Pause pause;
      if (!failing.hasFailed()) return false;
      const auto lines = m_records.lines();
      if (std::count(lines.begin(), lines.end(), line) == 1) return true;
    }
    return false;
  }

  PortsRegistry m_registry;
  ImportSeams m_seams;
  RecordingScope m_records;
  MONITORINIT m_init{};
  HANDLE m_handle = reinterpret_cast<HANDLE>(5);
  LPMONITOR2 m_table = nullptr;
};

TEST_F(InitializeTest, HandsOutTheTableAndTheCallersOwnStructureAsTheHandle) {
  SetLastError(0);
  EXPECT_EQ(InitializePrintMonitor2(&m_init, &m_handle), &g_monitorTable);
  EXPECT_NE(GetLastError(), 10u) << "nothing went wrong";
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

TEST_F(InitializeTest, EachCallMakesANewZeroedLockFirst) {
  std::vector<LPCRITICAL_SECTION> made;
  bool zeroed = true;
  InitializeCriticalSectionSeam.watch = [&](LPCRITICAL_SECTION section) {
    const auto* bytes = reinterpret_cast<const BYTE*>(section);
    if (made.empty()) zeroed = zeroed && std::all_of(bytes, bytes + sizeof *section, [](BYTE b) { return b == 0; });
    made.push_back(section);
  };
  InitializePrintMonitor2(&m_init, &m_handle);
  ASSERT_FALSE(made.empty());
  const LPCRITICAL_SECTION first = made.front();
  CPortList* firstList = CPortList::instance();
  made.clear();
  InitializePrintMonitor2(&m_init, &m_handle);
  ASSERT_FALSE(made.empty());
  EXPECT_NE(made.front(), first);
  EXPECT_TRUE(zeroed);
  delete firstList;
  DeleteCriticalSection(first);
  delete first;
}

TEST_F(InitializeTest, TheListIsMadeUnderItsTwoNamesAndThenLoaded) {
  m_registry.set(L"CPP3");
  LocalLog log;
  // The framework's start decides about tracing, so it is switched on behind that.
  InitializeCriticalSectionSeam.watch = [&](LPCRITICAL_SECTION) { log.trace(); };
  InitializePrintMonitor2(&m_init, &m_handle);
  EXPECT_THAT(log.entered(), ElementsAre("CPortList::CPortList()", "CPortList::Load()", "CPortList::AddPort()"));
  alignas(8) BYTE buffer[142];
  DWORD needed = 0;
  DWORD returned = 0;
  EXPECT_EQ(MGEnumPorts(nullptr, nullptr, 2, buffer, sizeof buffer, &needed, &returned), TRUE);
  EXPECT_STREQ(reinterpret_cast<const PORT_INFO_2W*>(buffer)->pMonitorName, L"Client Printer Port");
  EXPECT_STREQ(reinterpret_cast<const PORT_INFO_2W*>(buffer)->pDescription, L"Client Printer Port");
}

TEST_F(InitializeTest, WithoutItsLockTheMonitorMakesNoListAndStillHandsBackTheHandle) {
  ASSERT_TRUE(startUntilRecorded("0x4000000a: Failed to initialize the PortMonitorServer"));
  EXPECT_EQ(m_table, nullptr);
  EXPECT_EQ(GetLastError(), 10u);
  EXPECT_EQ(m_handle, &m_init);
  EXPECT_EQ(CPortList::instance(), nullptr);
  EXPECT_THAT(m_records.lines(), ElementsAre("0x4000000a: Failed to initialize the PortMonitorServer",
                                             "10: Failed to initialize the PortMonitorServer", kClosing));
  EXPECT_EQ(m_records.reports(), 1);
}

// The missing list is not a failure of its own: the load comes upon it.
TEST_F(InitializeTest, WithoutMemoryForTheListTheLoadMissesIt) {
  ASSERT_TRUE(startUntilRecorded("10: number 3014"));
  EXPECT_EQ(m_table, nullptr);
  EXPECT_EQ(GetLastError(), 10u);
  EXPECT_EQ(m_handle, &m_init);
  EXPECT_EQ(CPortList::instance(), nullptr);
  EXPECT_THAT(m_records.lines(), ElementsAre("10: number 3014", kClosing));
}

TEST_F(InitializeTest, TheEndOfTheModuleDeletesThePortMonitorLock) {
  LPCRITICAL_SECTION made = nullptr;
  InitializeCriticalSectionSeam.watch = [&](LPCRITICAL_SECTION section) { made = section; };
  PortMonitorServer::initialize();
  InitializeCriticalSectionSeam.restore();
  ASSERT_NE(made, nullptr);
  int deleted = 0;
  DeleteCriticalSectionSeam.watch = [&](LPCRITICAL_SECTION section) { deleted += section == made ? 1 : 0; };
  EXPECT_TRUE(PortMonitorServer::shutdown());
  DeleteCriticalSectionSeam.restore();
  EXPECT_EQ(deleted, 1);
}

// The spooler may ask for its ports while they are being loaded.
TEST_F(InitializeTest, TheListIsTheModulesBeforeItIsLoaded) {
  class Asking : public RecordingMonitor {
   public:
    bool hadList = false;

   protected:
    void write(const CS_Record& record) noexcept override {
      if (std::wcsstr(record.text, L"Failed to create the printer port registry key") == nullptr) return;
      hadList = CPortList::instance() != nullptr;
    }
  };
  const CS_RCPtr<Asking> monitor(new Asking);
  CS_ProgramMonitor::setDefaultMonitor(monitor);
  for (int nth = 1; nth < 10 && !monitor->hadList; ++nth) {
    removeList();
    m_seams.failNth(nth, ERROR_ACCESS_DENIED);
    InitializePrintMonitor2(&m_init, &m_handle);
    m_seams.failNth(0);
  }
  CS_ProgramMonitor::setDefaultMonitor(&m_records.monitor());
  EXPECT_TRUE(monitor->hadList);
}

TEST_F(InitializeTest, ARegistryThatRefusesLeavesAMonitorWithoutPorts) {
  m_registry.set(L"CPP3");
  const std::string refused = "Failed to create the printer port registry key. error: 5.";
  bool wasRefused = false;
  for (int nth = 1; nth < 10 && !wasRefused; ++nth) {
    m_records.clear();
    removeList();
    m_seams.failNth(nth, ERROR_ACCESS_DENIED);
    m_table = InitializePrintMonitor2(&m_init, &m_handle);
    m_seams.failNth(0);
    wasRefused = m_records.lines().size() == 3 && m_records.lines().front() == "0x4000000a: " + refused;
  }
  EXPECT_TRUE(wasRefused);
  EXPECT_EQ(m_table, &g_monitorTable);
  HANDLE port = nullptr;
  EXPECT_EQ(MGOpenPort(nullptr, const_cast<wchar_t*>(L"CPP3"), &port), FALSE);
}

TEST_F(InitializeTest, ALockThatCannotBeMadeAgainLeavesTheEarlierOne) {
  EXPECT_TRUE(PortMonitorServer::initialize());
  bool kept = false;
  {
    const FailingNew first(1);
    kept = PortMonitorServer::initialize();
  }
  EXPECT_TRUE(kept);
  EXPECT_THAT(m_records.lines(), IsEmpty());
}

TEST_F(InitializeTest, ACallerWithoutAHandleGetsTheTable) {
  EXPECT_EQ(InitializePrintMonitor2(&m_init, nullptr), &g_monitorTable);
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
