#include "programs/windows_service.h"

#include "corvane/base/text.h"
#include "programs/service_manager.h"
#include "programs/stop_request.h"
#include "tests/support/import_seam.h"

#include <cstdio>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <io.h>
#include <mutex>
#include <thread>

MG_IMPORT_SEAM(L"advapi32.dll", StartServiceCtrlDispatcherW, FALSE)
MG_IMPORT_SEAM(L"advapi32.dll", RegisterServiceCtrlHandlerExW, nullptr)
MG_IMPORT_SEAM(L"advapi32.dll", SetServiceStatus, FALSE)
MG_IMPORT_SEAM(L"advapi32.dll", RegisterEventSourceW, nullptr)
MG_IMPORT_SEAM(L"advapi32.dll", DeregisterEventSource, FALSE)
MG_IMPORT_SEAM(L"advapi32.dll", ReportEventW, FALSE)

namespace programs {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

// The service manager and the event log of a test.
class WindowsServiceTest : public ::testing::Test {
 protected:
  WindowsServiceTest() {
    StartServiceCtrlDispatcherWSeam.replacement = [](const SERVICE_TABLE_ENTRYW* table) -> WINBOOL {
      wchar_t name[] = L"aps";
      LPWSTR arguments[] = {name};
      std::thread([&] { table->lpServiceProc(1, arguments); }).join();
      return TRUE;
    };
    RegisterServiceCtrlHandlerExWSeam.replacement = [this](LPCWSTR, LPHANDLER_FUNCTION_EX handler, LPVOID context) {
      m_control = [handler, context](DWORD control) { return handler(control, 0, nullptr, context); };
      return reinterpret_cast<SERVICE_STATUS_HANDLE>(this);
    };
    SetServiceStatusSeam.replacement = [this](SERVICE_STATUS_HANDLE, LPSERVICE_STATUS status) -> WINBOOL {
      const std::lock_guard guard(m_lock);
      m_told.push_back(textOf(*status));
      return TRUE;
    };
    RegisterEventSourceWSeam.replacement = [](LPCWSTR, LPCWSTR source) {
      EXPECT_STREQ(source, L"MgPrintMon");
      return HANDLE(1);
    };
    DeregisterEventSourceSeam.replacement = [](HANDLE) -> WINBOOL { return TRUE; };
    ReportEventWSeam.replacement = [this](HANDLE, WORD type, WORD, DWORD event, PSID, WORD, DWORD, LPCWSTR* texts,
                                          LPVOID) -> WINBOOL {
      EXPECT_EQ(type, EVENTLOG_ERROR_TYPE);
      EXPECT_EQ(event, 0xC0000002);
      const std::lock_guard guard(m_lock);
      m_events.push_back(corvane::toUtf8(texts[0]));
      return TRUE;
    };
  }

  // State, what it accepts, exit code and check point; without signs of progress, of which there is any number.
  static std::string textOf(const SERVICE_STATUS& status) {
    const char* const states[] = {"", "stopped", "starts", "stops", "runs"};
    std::string text = states[status.dwCurrentState];
    if (status.dwControlsAccepted != 0) text += " accepts " + std::to_string(status.dwControlsAccepted);
    if (status.dwWin32ExitCode != 0) {
      text +=
          " with " + std::to_string(status.dwWin32ExitCode) + ", " + std::to_string(status.dwServiceSpecificExitCode);
    }
    if (status.dwCheckPoint != 0) text += ", point " + std::to_string(status.dwCheckPoint);
    return text;
  }

  ImportSeams m_seams;
  std::function<DWORD(DWORD)> m_control;
  std::mutex m_lock;
  std::vector<std::string> m_told;
  std::vector<std::string> m_events;
};

TEST_F(WindowsServiceTest, AProcessThatNobodyStartedAsAServiceIsNone) {
  StartServiceCtrlDispatcherWSeam.replacement = nullptr;
  StartServiceCtrlDispatcherWSeam.fail(1, FALSE, ERROR_FAILED_SERVICE_CONTROLLER_CONNECT);
  bool hasRun = false;
  const auto program = [&hasRun] {
    hasRun = true;
    return 0;
  };
  EXPECT_EQ(WindowsService::run(program), std::nullopt);
  EXPECT_FALSE(hasRun);
  EXPECT_EQ(WindowsService::current(), nullptr);
  EXPECT_FALSE(ServiceManager::fromEnvironment().isThere());
}

TEST_F(WindowsServiceTest, TheManagerHearsOfTheStartOfTheServingAndOfTheEnd) {
  const auto code = WindowsService::run([] {
    const ServiceManager manager = ServiceManager::fromEnvironment();
    EXPECT_TRUE(manager.isThere());
    EXPECT_EQ(manager.watchdog().count(), 0);
    EXPECT_EQ(manager.tell("READY=1\nSTATUS=listens"), "");
    EXPECT_EQ(manager.tell("READY=1\nSTATUS=listens again"), "");
    return 0;
  });
  EXPECT_EQ(code, 0);
  EXPECT_THAT(m_told, ElementsAre("starts, point 1", "runs accepts 261", "stopped"));
  EXPECT_THAT(m_events, IsEmpty());
}

TEST_F(WindowsServiceTest, AStopIsAskedOnceOfTheProgramAndToldAtOnce) {
  for (const DWORD control : {SERVICE_CONTROL_STOP, SERVICE_CONTROL_SHUTDOWN, SERVICE_CONTROL_PRESHUTDOWN}) {
    m_told.clear();
    int asked = 0;
    const auto code = WindowsService::run([&] {
      std::mutex lock;
      std::condition_variable changed;
      const StopRequest stop([&] {
        const std::lock_guard guard(lock);
        ++asked;
        changed.notify_all();
      });
      ServiceManager::fromEnvironment().tell("READY=1");
      EXPECT_EQ(m_control(SERVICE_CONTROL_INTERROGATE), NO_ERROR);
      EXPECT_EQ(m_control(SERVICE_CONTROL_PAUSE), ERROR_CALL_NOT_IMPLEMENTED);
      EXPECT_EQ(m_control(control), NO_ERROR);
      EXPECT_EQ(m_control(control), NO_ERROR);
      std::unique_lock guard(lock);
      changed.wait(guard, [&] { return asked > 0; });
      return 0;
    });
    EXPECT_EQ(code, 0);
    EXPECT_EQ(asked, 1);
    ASSERT_GE(m_told.size(), 4u);
    EXPECT_EQ(m_told[2], "stops, point 1");
    EXPECT_EQ(m_told.back(), "stopped");
  }
}

TEST_F(WindowsServiceTest, WhileItStopsTheManagerSeesProgress) {
  std::mutex lock;
  std::condition_variable changed;
  bool hasSeen = false;
  SetServiceStatusSeam.watch = [&](SERVICE_STATUS_HANDLE, LPSERVICE_STATUS status) {
    if (status->dwCurrentState != SERVICE_STOP_PENDING || status->dwCheckPoint < 2) return;
    EXPECT_EQ(status->dwWaitHint, WindowsService::kStopHint);
    const std::lock_guard guard(lock);
    hasSeen = true;
    changed.notify_all();
  };
  WindowsService::run([&] {
    ServiceManager::fromEnvironment().tell("READY=1");
    m_control(SERVICE_CONTROL_STOP);
    std::unique_lock guard(lock);
    changed.wait(guard, [&] { return hasSeen; });
    return 0;
  });
  EXPECT_TRUE(hasSeen);
}

TEST_F(WindowsServiceTest, AFailureIsItsExitCodeAndWhatItSaidIsInTheEventLog) {
  const auto code = WindowsService::run([] {
    std::fputs("aps: the port is taken\nchoose ", stderr);
    std::fputs("another\n", stderr);
    std::fputs("nobody reads this\n", stdout);
    _write(2, "by its number", 13);
    return 7;
  });
  EXPECT_EQ(code, 7);
  EXPECT_THAT(m_told, ElementsAre("starts, point 1", "stopped with 1066, 7"));
  EXPECT_THAT(m_events, ElementsAre("aps: aps: the port is taken", "aps: choose another", "aps: by its number"));
}

TEST_F(WindowsServiceTest, TheEventLogIsNotFlooded) {
  WindowsService::run([] {
    for (int i = 0; i < 1000; ++i)
      std::fputs("again\n", stderr);
    return 0;
  });
  EXPECT_EQ(m_events.size(), WindowsService::kMaxEntries);
}

TEST_F(WindowsServiceTest, TheOutputsAreAsBeforeWhenNobodyCapturesThem) {
  const int before[] = {_fileno(stdout), _fileno(stderr)};
  std::vector<std::string> lines;
  {
    const CapturedErrors errors([&lines](const std::string& line) { lines.push_back(line); });
    std::fputs("one\n", stderr);
  }
  EXPECT_THAT(lines, ElementsAre("one"));
  EXPECT_EQ(_fileno(stdout), before[0]);
  EXPECT_EQ(_fileno(stderr), before[1]);
  EXPECT_GE(std::fputs("", stderr), 0);
}

// As in a service, which begins without descriptors: the first that is opened is the first that is free.
TEST_F(WindowsServiceTest, AnOutputWhoseDescriptorHasAnotherNumberIsCapturedAllTheSame) {
  std::fflush(stderr);
  const int output = _dup(2);
  if (_dup2(output, 0) == 0) _close(0);
  ASSERT_NE(std::freopen("NUL", "wb", stderr), nullptr);
  ASSERT_EQ(_fileno(stderr), 0);
  _dup2(output, 2);  // its number is nobody else's, as in a service
  std::vector<std::string> lines;
  {
    const CapturedErrors errors([&lines](const std::string& line) { lines.push_back(line); });
    std::fputs("one\n", stderr);
    _write(2, "two\n", 4);
  }
  EXPECT_THAT(lines, ElementsAre("one", "two"));
  // A stream's number stays: from here on this process says its errors through that of its input.
  _dup2(output, 0);
  _close(output);
}

}  // namespace
}  // namespace programs
