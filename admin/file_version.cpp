#include "admin/file_version.h"

#include <windows.h>

#include <vector>

namespace admin {

std::string FileVersion::text() const {
  std::string text;
  for (const unsigned number : numbers)
    text += (text.empty() ? "" : ".") + std::to_string(number);
  return text;
}

std::optional<FileVersion> fileVersion(const std::wstring& path) {
  DWORD ignored = 0;
  const DWORD size = GetFileVersionInfoSizeW(path.c_str(), &ignored);
  if (size == 0) return std::nullopt;
  std::vector<BYTE> block(size);
  void* found = nullptr;
  UINT length = 0;
  if (!GetFileVersionInfoW(path.c_str(), 0, size, block.data()) ||
      !VerQueryValueW(block.data(), L"\\", &found, &length) || length < sizeof(VS_FIXEDFILEINFO)) {
    return std::nullopt;
  }
  const auto& information = *static_cast<const VS_FIXEDFILEINFO*>(found);
  return FileVersion{{HIWORD(information.dwFileVersionMS), LOWORD(information.dwFileVersionMS),
                      HIWORD(information.dwFileVersionLS), LOWORD(information.dwFileVersionLS)}};
}

}  // namespace admin
