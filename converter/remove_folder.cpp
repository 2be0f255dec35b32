#include "converter/remove_folder.h"

#include "converter/folder_watch.h"
#include "converter/host_shell.h"
#include "converter/shell_word.h"
#include "util/win_handle.h"

#include <windows.h>

#include <vector>

namespace mg::converter {
namespace {

// A run makes two levels; deeper than this nobody has made them by accident.
constexpr int kDeepest = 32;
// The host removes in milliseconds what it removes at all.
constexpr ULONGLONG kHostMilliseconds = 10000;

bool exists(const std::wstring& path) {
  return GetFileAttributesW(path.c_str()) != INVALID_FILE_ATTRIBUTES;
}

// `path` is in the form that reaches the file system as it is written.
void removeTree(const std::wstring& path, int depth) {
  if (depth > kDeepest) return;
  // All names first: a name that stays must not come up again, as it does in a search that is begun anew.
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
  startShell("exec 2>/dev/null; chmod -R u+rwX " + folder + "; rm -rf " + folder);
  return watch.waitUntil(GetTickCount64() + kHostMilliseconds, [&] { return !exists(path); });
} catch (...) {
  return false;
}

}  // namespace mg::converter
