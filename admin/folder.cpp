#include "admin/folder.h"

#include "admin/file_copy.h"
#include "admin/system_failure.h"
#include "corvane/text.h"

#include <algorithm>

namespace admin {

void createFolder(const std::wstring& path) {
  require(CreateDirectoryW(path.c_str(), nullptr), "the folder \"" + corvane::toUtf8(path) + "\" cannot be made");
}

void deleteFolder(const std::wstring& path) {
  if (RemoveDirectoryW(path.c_str())) return;
  const DWORD error = GetLastError();
  if (error == ERROR_FILE_NOT_FOUND || error == ERROR_PATH_NOT_FOUND) return;
  throw SystemFailure("the folder \"" + corvane::toUtf8(path) + "\" cannot be deleted", error);
}

std::vector<std::wstring> missingFolders(std::wstring path) {
  std::vector<std::wstring> missing;
  while (path.size() > 3 && !folderExists(path)) {
    missing.push_back(path);
    const std::size_t end = path.rfind(L'\\');
    if (end == std::wstring::npos) break;
    path.resize(end);
  }
  std::reverse(missing.begin(), missing.end());
  return missing;
}

}  // namespace admin
