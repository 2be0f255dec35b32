#include "corvane/components/component_server.h"
#include "monitor/entries.h"
#include "ports/port_list.h"
#include "session/port_monitor_server.h"
#include "session/print_server.h"
#include "tests/support/ports_registry.h"
#include "tests/sweeps/first_start.h"
#include "tests/sweeps/ledger.h"
#include "tests/sweeps/sweep.h"

#include <gtest/gtest.h>
#include <string>

extern "C" LPMONITOR2 WINAPI InitializePrintMonitor2(PMONITORINIT init, PHANDLE handle);
extern "C" BOOL WINAPI DllMain(HINSTANCE module, DWORD reason, LPVOID);

namespace {

class Start : public Scenario {
 public:
  explicit Start(World& world) : m_world(world) {}
  void prepare() override {
    PortsRegistry::set(L"CPP7");
    m_world.leaveCollectedFile();
  }
  void run() override {
    m_handle = nullptr;
    SetLastError(0);
    m_table = InitializePrintMonitor2(&m_init, &m_handle);
    m_lastError = GetLastError();
  }
  void check() override {
    if (m_table != nullptr) {
      EXPECT_EQ(m_table, &g_monitorTable);
    }
    if (m_table == nullptr) {
      EXPECT_EQ(m_lastError, DWORD{ERROR_BAD_ENVIRONMENT});
    }
    if (m_handle != nullptr) {
      EXPECT_EQ(m_handle, &m_init);
    }
    DWORD needed = 0;
    m_ports = 0;
    BYTE buffer[256];
    // Before the module is initialised there is nothing to enumerate, and saying so is not a crash.
    const BOOL enumerated = MGEnumPorts(nullptr, nullptr, 1, buffer, sizeof buffer, &needed, &m_ports);
    EXPECT_EQ(enumerated, CPortList::instance() != nullptr ? TRUE : FALSE);
    unloadModule();
    PortsRegistry::set(L"CPP7");
  }
  void checkWhole() override {
    EXPECT_EQ(m_table, &g_monitorTable);
    EXPECT_EQ(m_handle, &m_init);
    EXPECT_EQ(m_ports, 1u);
    EXPECT_EQ(m_world.takeTemporaryFiles(), 0) << "what a killed process had left is still there";
  }
  void tidy() override { PortsRegistry::remove(); }
  bool isLeftOnPurpose(const guarded_heap::Block& block) const override {
    // A class that another one replaces is kept, in a list, for the components that it has made.
    constexpr std::size_t kListNode = 2 * sizeof(void*);
    return block.size == sizeof(PortMonitorServerClass) || block.size == sizeof(PrintServerClass) ||
           block.size == kListNode;
  }

 private:
  World& m_world;
  MONITORINIT m_init{};
  HANDLE m_handle = nullptr;
  LPMONITOR2 m_table = nullptr;
  DWORD m_lastError = 0;
  DWORD m_ports = 0;
};

// The end of a module that has a connection to the server and a port with a list of printers.
class Unload : public Scenario {
 public:
  explicit Unload(World& world) : m_world(world) { world.answerWithPrinters(); }
  void prepare() override { bringUp(); }
  void run() override {
    MGShutdown(nullptr);
    m_result = DllMain(GetModuleHandleA(nullptr), DLL_PROCESS_DETACH, nullptr);
  }
  void check() override {
    EXPECT_EQ(m_result, TRUE);
    EXPECT_EQ(CPortList::instance(), nullptr);
    EXPECT_EQ(ledger::countOpen(), 0u) << "the connection outlives the module";
    m_world.settle(0);
    m_world.peer().clear();
    m_world.restoreRecords();
    bringUp();
  }
  void checkWhole() override {}
  void tidy() override {
    unloadModule();
    m_world.peer().clear();
  }

 private:
  void bringUp() {
    PortMonitorServer::initialize();
    CPortList::setInstance(new CPortList);
    EXPECT_TRUE(PortMonitorServer::getInstance());
  }

  World& m_world;
  BOOL m_result = FALSE;
};

class StartSweep : public testing::Test {
 protected:
  World m_world;
};

TEST_F(StartSweep, StartUpSurvivesEveryFailingAllocation) {
  Start scenario(m_world);
  EXPECT_GT(sweepAllocations(m_world, scenario), 10);
}

TEST_F(StartSweep, StartUpSurvivesEveryFailingCall) {
  Start scenario(m_world);
  EXPECT_GT(sweepCalls(m_world, scenario), 16);
}

TEST_F(StartSweep, TheEndOfTheModuleSurvivesEveryFailure) {
  Unload scenario(m_world);
  sweepAllocations(m_world, scenario);
  sweepCalls(m_world, scenario);
}

TEST_F(StartSweep, AProcessWhoseFirstStartUpLackedMemoryCanBeStartedAgain) {
  wchar_t program[MAX_PATH] = {};
  GetModuleFileNameW(nullptr, program, MAX_PATH);
  DWORD code = kStartedAfterFailure;
  int nth = 0;
  while (code == kStartedAfterFailure) {
    std::wstring command = L"\"" + std::wstring(program) + L"\" first-start " + std::to_wstring(++nth);
    STARTUPINFOW start{};
    start.cb = sizeof start;
    PROCESS_INFORMATION process{};
    ASSERT_TRUE(CreateProcessW(nullptr, command.data(), nullptr, nullptr, FALSE, 0, nullptr, nullptr, &start, &process))
        << "process " << nth << ", error " << GetLastError();
    WaitForSingleObject(process.hProcess, INFINITE);
    GetExitCodeProcess(process.hProcess, &code);
    CloseHandle(process.hProcess);
    CloseHandle(process.hThread);
  }
  EXPECT_EQ(code, DWORD{kStartedUndisturbed}) << "allocation " << nth;
  EXPECT_GT(nth, 10);
}

}  // namespace
