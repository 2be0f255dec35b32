#include "tests/support/monitor/fake_queue.h"

#include "corvane/base/text.h"
#include "tests/support/failing_new.h"
#include "tests/support/import_seam.h"

#include <winspool.h>

#include <cstdio>
#include <cstring>
#include <gtest/gtest.h>
#include <utility>

MG_PLAIN_SEAM(L"winspool.drv", OpenPrinterW, FALSE)
MG_PLAIN_SEAM(L"winspool.drv", GetJobW, FALSE)
MG_PLAIN_SEAM(L"winspool.drv", SetJobA, FALSE)
MG_PLAIN_SEAM(L"winspool.drv", ClosePrinter, FALSE)
MG_IMPORT_SEAM(L"kernel32.dll", CloseHandle, FALSE)

namespace {

const HANDLE kPrinter = reinterpret_cast<HANDLE>(0x7770001);

std::string hex(DWORD value) {
  char text[16];
  std::snprintf(text, sizeof text, "0x%lx", value);
  return text;
}

}  // namespace

FakeQueue::FakeQueue() {
  watchPrinter();
  watchJob();
}

void FakeQueue::enter(const std::string& call) {
  m_calls.push_back(call);
  const auto action = m_actions.find(call);
  if (action != m_actions.end()) std::exchange(action->second, [] {})();
}

void FakeQueue::watchPrinter() {
  OpenPrinterWSeam.replacement = [this](LPWSTR name, LPHANDLE out, LPPRINTER_DEFAULTSW defaults) -> WINBOOL {
    const FailingNew::Pause pause;
    enter("open " + corvane::toUtf8(name) + (defaults != nullptr ? " " + hex(defaults->DesiredAccess) : std::string()));
    if (defaults != nullptr) {
      EXPECT_EQ(defaults->pDatatype, nullptr);
      EXPECT_EQ(defaults->pDevMode, nullptr);
      if (m_refusesOpen) {
        *out = kPrinter;  // what stands there after a failure means nothing
        SetLastError(ERROR_ACCESS_DENIED);
        return FALSE;
      }
    }
    *out = kPrinter;
    return TRUE;
  };
  ClosePrinterSeam.replacement = [this](HANDLE printer) -> WINBOOL {
    const FailingNew::Pause pause;
    enter(printer == kPrinter ? "close printer" : "close printer null");
    return printer == kPrinter ? TRUE : FALSE;
  };
  // Everybody closes handles; only that of the printer is of interest.
  CloseHandleSeam.replacement = [this](HANDLE handle) -> WINBOOL {
    const FailingNew::Pause pause;
    if (handle != kPrinter) return CloseHandleSeam.real(handle);
    enter("close handle");
    return FALSE;
  };
}

void FakeQueue::watchJob() {
  GetJobWSeam.replacement = [this](HANDLE printer, DWORD job, DWORD level, LPBYTE buffer, DWORD,
                                   LPDWORD needed) -> WINBOOL {
    const FailingNew::Pause pause;
    EXPECT_EQ(printer, kPrinter);
    *needed = sizeof(JOB_INFO_2W) + sizeof(DEVMODEW);
    if (buffer == nullptr) return FALSE;
    enter("job " + std::to_string(job) + " level " + std::to_string(level));
    JOB_INFO_2W info{};
    DEVMODEW mode{};
    mode.dmCopies = m_copies;
    info.TotalPages = m_pages;
    info.Status = m_isSpooling ? JOB_STATUS_SPOOLING | JOB_STATUS_PRINTING : JOB_STATUS_PRINTING;
    info.pDevMode = reinterpret_cast<LPDEVMODEW>(buffer + sizeof info);
    std::memcpy(buffer, &info, sizeof info);
    std::memcpy(buffer + sizeof info, &mode, sizeof mode);
    return TRUE;
  };
  SetJobASeam.replacement = [this](HANDLE printer, DWORD job, DWORD level, LPBYTE data, DWORD command) -> WINBOOL {
    const FailingNew::Pause pause;
    EXPECT_EQ(data, nullptr);
    enter("set job " + std::to_string(job) + " level " + std::to_string(level) + " command " + std::to_string(command) +
          (printer == kPrinter ? "" : " of no printer"));
    if (m_refusesSetJob) SetLastError(printer == kPrinter ? m_setJobError : ERROR_INVALID_HANDLE);
    return m_refusesSetJob ? FALSE : TRUE;
  };
}
