#include "converter/sweep.h"

#include "converter/remove_folder.h"
#include "util/win_handle.h"

#include <windows.h>

#include <vector>

namespace mg::converter {
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
