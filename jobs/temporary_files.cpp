#include "jobs/temporary_files.h"

#include "corvane/base/process.h"
#include "corvane/records/program_monitor.h"
#include "ports/port_records.h"
#include "session/client_print_job.h"
#include "util/win_handle.h"

#include <algorithm>
#include <cstdint>
#include <cwchar>
#include <optional>

namespace mg {
namespace {

// A job's name is the printer's with "-" for each of these, kJobNumber and the job's number.
constexpr wchar_t kNotInJobNames[] = L"\\/:*?\"<>|@+";
constexpr wchar_t kJobNumber[] = L" - Job #";

// Best-fit characters, such as a plain "A" for a wide one, come back as something else.
bool isHeld(const wchar_t* text) {
  const UTL_String narrow = UTL_String::fromNarrow(UTL_String(text).narrow());
  return std::wcscmp(narrow.wide(), text) == 0;
}

bool canStand(wchar_t c) {
  const wchar_t text[] = {c, L'\0'};
  return c >= L' ' && isHeld(text);
}

// 16 hexadecimal digits; texts that differ have the same ones once in 2^64 pairs. FNV-1a.
std::wstring digitsOf(const std::wstring& text) {
  std::uint64_t hash = 0xcbf29ce484222325;
  for (const wchar_t c : text) {
    for (const unsigned byte : {static_cast<unsigned>(c) & 0xFF, static_cast<unsigned>(c) >> 8})
      hash = (hash ^ byte) * 0x100000001b3;
  }
  wchar_t digits[17];
  std::swprintf(digits, std::size(digits), L"%016llx", static_cast<unsigned long long>(hash));
  return digits;
}

bool takeEnd(std::wstring_view& text, std::wstring_view end) {
  if (!text.ends_with(end)) return false;
  text.remove_suffix(end.size());
  return true;
}

// Takes a number off the end of a text, as it is written: without zeros in front. None when it is larger than that.
std::optional<std::uint64_t> takeNumber(std::wstring_view& text, std::uint64_t most) {
  const std::size_t before = text.find_last_not_of(L"0123456789");
  const std::wstring digits(text.substr(before == std::wstring_view::npos ? 0 : before + 1));
  if (digits.empty() || digits.size() > 10) return std::nullopt;
  const std::uint64_t number = std::stoull(digits);
  if (number > most || std::to_wstring(number) != digits) return std::nullopt;
  text.remove_suffix(digits.size());
  return number;
}

bool isJobName(std::wstring_view name) {
  std::wstring_view printer = name;
  if (!takeNumber(printer, 0xFFFFFFFF) || !takeEnd(printer, kJobNumber)) return false;
  return printer.size() < MAX_PATH && printer.find_first_of(kNotInJobNames) == std::wstring_view::npos;
}

// A name as fileNameOf() has it when it is not the job's own. One that was not cut still ends as a job's name does.
bool isReplacedName(std::wstring_view name) {
  constexpr std::size_t kDigits = 16;
  if (name.size() <= kDigits) return false;
  const std::wstring_view digits = name.substr(name.size() - kDigits);
  if (digits.find_first_not_of(L"0123456789abcdef") != std::wstring_view::npos) return false;
  std::wstring_view kept = name.substr(0, name.size() - kDigits);
  if (!takeEnd(kept, L"~") || kept.find_first_of(kNotInJobNames) != std::wstring_view::npos) return false;
  return kept.size() == kMostKept || (kept.size() < kMostKept && isJobName(kept));
}

}  // namespace

TemporaryDirectory::TemporaryDirectory() : m_length(GetTempPathW(MAX_PATH, m_text.data())) {}

UTL_String buildJobName(const wchar_t* printerName, DWORD jobId) {
  std::array<wchar_t, kPortNameSize> safe{};
  for (std::size_t i = 0; i + 1 < safe.size() && printerName[i] != L'\0'; ++i) {
    safe[i] = std::wcschr(kNotInJobNames, printerName[i]) != nullptr ? L'-' : printerName[i];
  }
  UTL_String name(safe.data());
  name.append(kJobNumber);
  name.append(std::to_wstring(jobId).c_str());
  return name;
}

std::wstring fileNameOf(const UTL_String& jobName) {
  std::wstring name = jobName.wide();
  // Every ANSI code page holds these.
  if (std::all_of(name.begin(), name.end(), [](wchar_t c) { return c >= L' ' && c <= L'~'; })) return name;
  if (std::all_of(name.begin(), name.end(), [](wchar_t c) { return c >= L' '; }) && isHeld(name.c_str())) return name;
  std::wstring kept = name.substr(0, kMostKept);
  for (wchar_t& c : kept) {
    if (!canStand(c)) c = L'_';
  }
  return kept + L"~" + digitsOf(name);
}

void appendTemporaryPath(UTL_String& path, const TemporaryDirectory& directory, const UTL_String& jobName, DWORD ticks,
                         const wchar_t* extension) {
  path.append(directory.text());
  path.append(fileNameOf(jobName).c_str());
  path.append(L"-");
  path.append(std::to_wstring(static_cast<int>(ticks)).c_str());
  path.append(extension);
}

bool isTemporaryName(std::wstring_view name) {
  if (!takeEnd(name, L".ps") && !takeEnd(name, L".pdf") && !takeEnd(name, L".log")) return false;
  const auto ticks = takeNumber(name, 0x80000000);
  if (!ticks || !takeEnd(name, L"-")) return false;
  const bool isNegative = takeEnd(name, L"-");
  if (isNegative ? *ticks == 0 : *ticks > 0x7FFFFFFF) return false;
  return isReplacedName(name) || (isJobName(name) && fileNameOf(UTL_String(std::wstring(name).c_str())) == name);
}

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

// Checks and removes the same open file, even if its name leads to another one by then.
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
