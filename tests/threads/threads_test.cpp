#include "corvane/records/program_monitor.h"
#include "monitor/entries.h"
#include "ports/port_list.h"
#include "session/port_monitor_server.h"
#include "session/session_printers.h"
#include "tests/support/import_seam.h"
#include "tests/support/ports_registry.h"
#include "tests/support/server_address.h"
#include "tests/threads/quiet_peer.h"

#include <winspool.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <gtest/gtest.h>
#include <random>
#include <string>
#include <thread>
#include <vector>

LPMONITOR2 WINAPI InitializePrintMonitor2(PMONITORINIT init, PHANDLE handle);

MG_IMPORT_SEAM(L"advapi32.dll", RegisterEventSourceW, nullptr)
MG_IMPORT_SEAM(L"user32.dll", MessageBoxW, 0)
MG_PLAIN_SEAM(L"winspool.drv", ClosePrinter, FALSE)
MG_PLAIN_SEAM(L"winspool.drv", GetJobW, FALSE)
MG_PLAIN_SEAM(L"winspool.drv", OpenPrinterW, FALSE)
MG_PLAIN_SEAM(L"winspool.drv", SetJobA, FALSE)

namespace {

using Random = std::minstd_rand;

constexpr int kJobThreads = 16;  // each with a port of its own; those of the second half are deleted now and then
constexpr int kDeletedPorts = kJobThreads / 2;
constexpr int kOtherThreads = 4;  // of each other kind

bool isLong() {
  const char* value = std::getenv("MG_LONG_TESTS");
  return value != nullptr && *value == '1';
}

unsigned seed() {
  const char* value = std::getenv("MG_SEED");
  return value != nullptr ? static_cast<unsigned>(std::atol(value)) : std::random_device()();
}

// Keeps nothing.
class NoLog : public corvane::LogSink {
 public:
  void write(std::string_view) noexcept override {}
};

std::wstring portName(int number) {
  return L"CPP" + std::to_wstring(number + 1);
}

DWORD configure(const wchar_t* command, std::wstring input) {
  return MGXcvDataPort(nullptr, command, reinterpret_cast<PBYTE>(input.data()), 0, nullptr, 0, nullptr);
}

class ThreadsTest : public testing::Test {
 protected:
  ThreadsTest() {
    const HANDLE printer = reinterpret_cast<HANDLE>(0x7770001);
    RegisterEventSourceWSeam.replacement = [](LPCWSTR, LPCWSTR) -> HANDLE { return nullptr; };
    MessageBoxWSeam.replacement = [](HWND, LPCWSTR, LPCWSTR, UINT) -> int { return IDOK; };
    OpenPrinterWSeam.replacement = [=](LPWSTR, LPHANDLE out, LPPRINTER_DEFAULTSW) -> WINBOOL {
      *out = printer;
      return TRUE;
    };
    ClosePrinterSeam.replacement = [](HANDLE) -> WINBOOL { return TRUE; };
    SetJobASeam.replacement = [](HANDLE, DWORD, DWORD, LPBYTE, DWORD) -> WINBOOL { return TRUE; };
    GetJobWSeam.replacement = [](HANDLE, DWORD, DWORD, LPBYTE buffer, DWORD, LPDWORD needed) -> WINBOOL {
      *needed = sizeof(JOB_INFO_2W);
      if (buffer != nullptr) std::memset(buffer, 0, sizeof(JOB_INFO_2W));
      return buffer != nullptr;
    };
    corvane::LocalMonitor::instance().setSink(std::make_unique<NoLog>());
    EXPECT_NE(InitializePrintMonitor2(nullptr, &m_monitor), nullptr);
    for (int port = 0; port < kJobThreads; ++port)
      configure(L"AddPort", portName(port));
  }
  ~ThreadsTest() override {
    for (int port = 0; port < kJobThreads; ++port)
      configure(L"DeletePort", portName(port));
    PortMonitorServer::shutdown();
    CS_ProgramMonitor::setDefaultMonitor(nullptr);
    delete CPortList::instance();
    CPortList::setInstance(nullptr);
    corvane::LocalMonitor::instance().setSink(nullptr);
  }

  // Runs the work again and again, on a thread of its own, until the time is over.
  template <class Work>
  void repeat(Work work) {
    m_threads.emplace_back([this, work, random = Random(m_seed + static_cast<unsigned>(m_threads.size()))]() mutable {
      while (std::chrono::steady_clock::now() < m_end)
        work(random);
    });
  }
  void join() {
    for (std::thread& thread : m_threads)
      thread.join();
  }

  static HANDLE open(int port) {
    HANDLE handle = nullptr;
    return MGOpenPort(nullptr, portName(port).data(), &handle) ? handle : nullptr;
  }
  void print(int port, Random& random);

  PortsRegistry m_registry;
  ImportSeams m_seams;
  QuietPeer m_peer;
  ServerAddress m_address{m_peer.port()};
  const unsigned m_seed = seed();
  const std::chrono::steady_clock::time_point m_end =
      std::chrono::steady_clock::now() + std::chrono::seconds(isLong() ? 300 : 3);
  HANDLE m_monitor = nullptr;
  std::atomic<unsigned> m_printed{0};
  std::atomic<unsigned> m_failed{0};
  std::atomic<unsigned> m_deleted{0};
  std::vector<std::thread> m_threads;
};

void ThreadsTest::print(int port, Random& random) {
  const HANDLE handle = open(port);
  if (handle == nullptr) return;
  wchar_t printer[] = L"Laser";
  wchar_t name[] = L"letter.txt";
  wchar_t type[] = L"RAW";
  DOC_INFO_1W document{name, nullptr, type};
  std::vector<BYTE> data(random() % 100000 + 1, BYTE{'x'});
  BOOL printed = MGStartDocPort(handle, printer, random() % 1000, 1, reinterpret_cast<LPBYTE>(&document));
  // A spooler ends what it started, whatever came of the writes; and now and then it forgets.
  for (auto left = random() % 4; printed && left > 0; --left) {
    DWORD written = 0;
    if (!MGWritePort(handle, data.data(), static_cast<DWORD>(data.size()), &written)) break;
  }
  if (random() % 16 != 0) printed = MGEndDocPort(handle);
  ++(printed ? m_printed : m_failed);
  MGClosePort(handle);
}

TEST_F(ThreadsTest, PortsJobsAndExportsOnThirtyTwoThreads) {
  std::printf("MG_SEED=%u\n", m_seed);
  for (int port = 0; port < kJobThreads; ++port)
    repeat([this, port](Random& random) { print(port, random); });
  for (int i = 0; i < kOtherThreads; ++i) {
    // Each has its own ports to delete, because adding one that exists would leave its record behind.
    repeat([this, i](Random& random) {
      const int port = kDeletedPorts + i + kOtherThreads * static_cast<int>(random() % 2);
      const bool byHand = random() % 2 == 0;
      if (byHand) MGDeletePort(nullptr, nullptr, nullptr, portName(port).data());
      if (!byHand) configure(L"DeletePort", portName(port));
      configure(L"AddPort", portName(port));
      ++m_deleted;
      std::this_thread::sleep_for(std::chrono::milliseconds(random() % 20));
    });
    repeat([](Random& random) {
      if (const HANDLE handle = open(static_cast<int>(random() % kJobThreads))) MGClosePort(handle);
    });
    repeat([](Random& random) {
      alignas(8) BYTE buffer[4096];
      DWORD needed = 0;
      DWORD returned = 0;
      MGEnumPorts(nullptr, nullptr, 1 + random() % 2, buffer, random() % sizeof buffer, &needed, &returned);
    });
    repeat([](Random& random) {
      const unsigned session = random() % kJobThreads + 1;
      void* list = nullptr;
      if (random() % 2 == 0) ShowPrinter(session, L"Laser");
      if (random() % 2 == 0) GetCachedPrinterList(session, &list);
      ReleaseCachedPrinterList(&list);
    });
  }
  EXPECT_EQ(m_threads.size(), 32u);
  join();
  std::printf("%u jobs printed, %u failed, %u ports deleted, %u connections\n", m_printed.load(), m_failed.load(),
              m_deleted.load(), m_peer.connections());
  EXPECT_GT(m_printed, 0u);
  EXPECT_GT(m_deleted, 0u);
  DWORD needed = 0;
  DWORD returned = 0;
  alignas(8) BYTE buffer[4096];
  EXPECT_EQ(MGEnumPorts(nullptr, nullptr, 1, buffer, sizeof buffer, &needed, &returned), TRUE);
  EXPECT_EQ(returned, static_cast<DWORD>(kJobThreads));
}

}  // namespace
