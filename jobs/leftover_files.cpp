#include "jobs/leftover_files.h"

#include "corvane/base/process.h"
#include "corvane/records/program_monitor.h"
#include "jobs/temporary_path.h"
#include "session/client_print_job.h"
#include "util/win_handle.h"

#include <windows.h>

#include <cwchar>
#include <string>

namespace mg {
namespace {

constexpr ULONGLONG kDay = 24ull * 60 * 60 * 10000000;  // in the unit of file times

// The files of a job differ in their ending alone.
std::wstring markOf(const std::wstring& path) {
  const std::size_t name = path.rfind(L'\\') + 1;
  return L"Global\\MgPrintMon job " + digitsOf(path.substr(name, path.rfind(L'.') - name));
}

// In doubt it is: the mark may be there and not for everybody to see.
bool isAlive(const std::wstring& path) {
  const ObjectHandle mark(OpenEventW(SYNCHRONIZE, FALSE, markOf(path).c_str()));
  return mark || GetLastError() != ERROR_FILE_NOT_FOUND;
}

ULONGLONG timeOf(const FILETIME& time) {
  return (static_cast<ULONGLONG>(time.dwHighDateTime) << 32) | time.dwLowDateTime;
}

bool isOld(const FILETIME& written) {
  FILETIME now;
  GetSystemTimeAsFileTime(&now);
  return timeOf(written) + kDay < timeOf(now);
}

// What is looked at is what is removed: the open file, whatever its name leads to meanwhile.
bool removeLeftover(const std::wstring& path) {
  constexpr DWORD kNone = 0;
  constexpr DWORD kNotOurs = FILE_ATTRIBUTE_DIRECTORY | FILE_ATTRIBUTE_REPARSE_POINT | FILE_ATTRIBUTE_READONLY;
  if (isAlive(path)) return false;
  const FileHandle file(CreateFileW(path.c_str(), DELETE | FILE_READ_ATTRIBUTES, kNone, nullptr, OPEN_EXISTING,
                                    FILE_FLAG_OPEN_REPARSE_POINT, nullptr));
  BY_HANDLE_FILE_INFORMATION is{};
  if (!file || !GetFileInformationByHandle(file.get(), &is)) return false;
  if ((is.dwFileAttributes & kNotOurs) != 0 || is.nNumberOfLinks != 1 || !isOld(is.ftLastWriteTime)) return false;
  FILE_DISPOSITION_INFO disposition{TRUE};
  return SetFileInformationByHandle(file.get(), FileDispositionInfo, &disposition, sizeof disposition) != FALSE;
}

class Sweep {
 public:
  int removed() const { return m_removed; }

  void removeFrom(const std::wstring& directory, const wchar_t* names) {
    WIN32_FIND_DATAW found;
    const FindHandle search(FindFirstFileW((directory + names).c_str(), &found));
    if (!search) return;
    do {
      if (isOver()) return;
      if (isTemporaryName(found.cFileName) && removeLeftover(directory + found.cFileName)) ++m_removed;
    } while (FindNextFileW(search.get(), &found));
  }

 private:
  bool isOver() { return ++m_looked > kMostLookedAt || GetTickCount64() - m_begin > kMostMilliseconds; }

  const ULONGLONG m_begin = GetTickCount64();
  int m_looked = 0;
  int m_removed = 0;
};

}  // namespace

void markAlive(ClientPrintJob& job) noexcept try {
  const LastErrorKeeper keeper;
  // A mark of the user's would be none that the process may open later.
  const corvane::ProcessIdentity identity;
  job.aliveMark.reset(CreateEventW(nullptr, TRUE, FALSE, markOf(job.postScriptPath.wide()).c_str()));
} catch (...) {
}

void removeLeftoverFiles() noexcept try {
  const LastErrorKeeper keeper;
  const corvane::ProcessIdentity identity;
  const TemporaryDirectory directory;
  if (directory.isEmpty()) return;
  Sweep sweep;
  sweep.removeFrom(directory.text(), L"* - Job #*-*.*");
  sweep.removeFrom(directory.text(), L"*~*-*.*");  // names that were cut
  if (sweep.removed() == 0) return;
  wchar_t line[512];
  std::swprintf(line, std::size(line), L"removed %d temporary files in %.260ls of jobs whose process had ended",
                sweep.removed(), directory.text());
  corvane::LocalMonitor::instance().writeLine(L"job:", line);
} catch (...) {
}

}  // namespace mg
