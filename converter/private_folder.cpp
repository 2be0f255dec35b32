#include "converter/private_folder.h"

#include "converter/conversion_error.h"
#include "converter/folder_watch.h"
#include "converter/host_shell.h"
#include "util/win_handle.h"

#include <windows.h>

#include <fmt/format.h>
#include <fmt/xchar.h>
#include <random>
#include <vector>

namespace mg::converter {
namespace {

// A run makes two levels; nothing deeper than this arises by accident.
constexpr int kDeepest = 32;
// The host removes a folder in milliseconds, if it can remove it.
constexpr ULONGLONG kHostMilliseconds = 10000;

bool exists(const std::wstring& path) {
  return GetFileAttributesW(path.c_str()) != INVALID_FILE_ATTRIBUTES;
}

// `path` is in the form that reaches the file system as it is written.
void removeTree(const std::wstring& path, int depth) {
  if (depth > kDeepest) return;
  // All names first: a name that cannot be removed must not be found again, as a new search would.
  std::vector<WIN32_FIND_DATAW> entries;
  {
    WIN32_FIND_DATAW found;
    const FindHandle search(FindFirstFileW((path + L"\\*").c_str(), &found));
    if (search) {
      do {
        entries.push_back(found);
      } while (FindNextFileW(search.get(), &found));
    }
  }
  for (const WIN32_FIND_DATAW& entry : entries) {
    const std::wstring name = entry.cFileName;
    if (name == L"." || name == L"..") continue;
    const std::wstring inside = path + L"\\" + name;
    if (entry.dwFileAttributes & FILE_ATTRIBUTE_READONLY) SetFileAttributesW(inside.c_str(), FILE_ATTRIBUTE_NORMAL);
    const bool isFolder = (entry.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) != 0;
    const bool isLink = (entry.dwFileAttributes & FILE_ATTRIBUTE_REPARSE_POINT) != 0;
    if (isFolder && !isLink) {
      removeTree(inside, depth + 1);
    } else if (!isFolder || !RemoveDirectoryW(inside.c_str())) {
      DeleteFileW(inside.c_str());
    }
  }
  RemoveDirectoryW(path.c_str());
}

}  // namespace

bool removeFolderWithWindows(const std::wstring& path) noexcept try {
  // Without the prefix Windows would read "aux" as a device and cut the dot of "x.".
  removeTree(path.compare(0, 4, L"\\\\?\\") == 0 ? path : L"\\\\?\\" + path, 0);
  return !exists(path);
} catch (...) {
  return false;
}

bool removeFolder(const std::wstring& path) noexcept try {
  if (removeFolderWithWindows(path)) return true;
  if (!runsUnderWine()) return false;
  const FolderWatch watch(path.substr(0, path.find_last_of(L'\\') + 1));
  const std::string folder = shellWord(hostPath(path));
  startShell(fmt::format("exec 2>/dev/null; chmod -R u+rwX {0}; rm -rf {0}", folder));
  return watch.waitUntil(GetTickCount64() + kHostMilliseconds, [&] { return !exists(path); });
} catch (...) {
  return false;
}

namespace {

constexpr unsigned long long kLeastSize = 4096;

std::wstring randomName() {
  std::random_device random;
  std::wstring name;
  for (int i = 0; i < 16; ++i)
    name += L"0123456789abcdef"[random() % 16];
  return name;
}

[[noreturn]] void throwUnmade(const std::wstring& path) {
  throw ConversionError(
      ExitCode::kFileSystem,
      fmt::format(L"The temporary folder \"{}\" cannot be made: {}. The folder of the PostScript file "
                  L"must be writable.",
                  path, systemErrorText(GetLastError())));
}

// Adds up the files of one folder until there are more bytes than asked for. Each file is queried itself, because the
// sizes in a search result may be outdated for files that are being written.
void add(const std::wstring& folder, unsigned long long bytes, unsigned long long& sum) {
  WIN32_FIND_DATAW found;
  const FindHandle search(FindFirstFileW((folder + L"\\*").c_str(), &found));
  if (!search) return;
  do {
    if (found.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) continue;
    WIN32_FILE_ATTRIBUTE_DATA data;
    if (!GetFileAttributesExW((folder + L"\\" + found.cFileName).c_str(), GetFileExInfoStandard, &data)) {
      data.nFileSizeHigh = found.nFileSizeHigh;
      data.nFileSizeLow = found.nFileSizeLow;
    }
    const unsigned long long size = (static_cast<unsigned long long>(data.nFileSizeHigh) << 32) | data.nFileSizeLow;
    sum += size < kLeastSize ? kLeastSize : size;
  } while (sum <= bytes && FindNextFileW(search.get(), &found));
}

}  // namespace

PrivateFolder::PrivateFolder(const std::wstring& file) {
  const std::wstring parent = file.substr(0, file.find_last_of(L'\\') + 1);
  sweepFolders(parent, kMostSwept);
  m_path = parent + kFolderPrefix + randomName();
  if (!CreateDirectoryW(m_path.c_str(), nullptr)) throwUnmade(m_path);
  m_inUse.reset(CreateFileW((m_path + kInUseFile).c_str(), GENERIC_READ | GENERIC_WRITE, 0, nullptr, CREATE_NEW,
                            FILE_ATTRIBUTE_NORMAL, nullptr));
  if (m_inUse && CreateDirectoryW(temporary().c_str(), nullptr)) return;
  const DWORD error = GetLastError();
  m_inUse.reset();
  removeFolder(m_path);
  SetLastError(error);
  throwUnmade(m_path);
}

PrivateFolder::~PrivateFolder() {
  m_inUse.reset();
  removeFolderWithWindows(m_path);
  m_sign.reset();
  removeFolder(m_path);
}

bool PrivateFolder::holdsMoreThan(unsigned long long bytes) const {
  unsigned long long sum = 0;
  add(m_path, bytes, sum);
  add(temporary(), bytes, sum);
  return sum > bytes;
}

namespace {

constexpr unsigned long long kHour = 3600ull * 10000000;  // in the unit of FILETIME
constexpr size_t kDigits = 16;

unsigned long long number(const FILETIME& time) {
  return (static_cast<unsigned long long>(time.dwHighDateTime) << 32) | time.dwLowDateTime;
}

bool isOfARun(const WIN32_FIND_DATAW& entry) {
  const std::wstring digits = std::wstring(entry.cFileName).substr(std::char_traits<wchar_t>::length(kFolderPrefix));
  return (entry.dwFileAttributes & (FILE_ATTRIBUTE_DIRECTORY | FILE_ATTRIBUTE_REPARSE_POINT)) ==
             FILE_ATTRIBUTE_DIRECTORY &&
         digits.size() == kDigits && digits.find_first_not_of(L"0123456789abcdef") == std::wstring::npos;
}

bool isLeft(const std::wstring& folder, const WIN32_FIND_DATAW& entry) {
  const FileHandle inUse(CreateFileW((folder + kInUseFile).c_str(), GENERIC_READ | GENERIC_WRITE, 0, nullptr,
                                     OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr));
  if (inUse) return true;
  if (GetLastError() != ERROR_FILE_NOT_FOUND) return false;
  FILETIME now;
  GetSystemTimeAsFileTime(&now);
  return number(now) > number(entry.ftLastWriteTime) + kHour;
}

}  // namespace

void sweepFolders(const std::wstring& parent, int most) noexcept try {
  WIN32_FIND_DATAW found;
  const FindHandle search(FindFirstFileW((parent + kFolderPrefix + L"*").c_str(), &found));
  if (!search) return;
  std::vector<std::wstring> left;
  do {
    if (isOfARun(found) && isLeft(parent + found.cFileName, found)) left.push_back(parent + found.cFileName);
  } while (static_cast<int>(left.size()) < most && FindNextFileW(search.get(), &found));
  for (const std::wstring& folder : left)
    removeFolder(folder);
} catch (...) {
}

}  // namespace mg::converter
