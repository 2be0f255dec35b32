#include "admin/scratch_file.h"

#include "admin/system_failure.h"
#include "corvane/text.h"
#include "util/win_handle.h"

#include <atomic>

namespace admin {
namespace {

std::wstring freshStem() {
  static std::atomic<unsigned> last{0};
  return ScratchFile::folder() + L"mgprintmon-" + std::to_wstring(GetCurrentProcessId()) + L"-" +
         std::to_wstring(++last);
}

}  // namespace

ScratchFile::ScratchFile(const wchar_t* extension) : ScratchFile(freshStem(), extension) {}

ScratchFile::~ScratchFile() {
  DeleteFileW(m_path.c_str());
}

ScratchFile ScratchFile::sibling(const wchar_t* extension) const {
  return ScratchFile(m_stem, extension);
}

void ScratchFile::write(const std::string& content) const {
  const std::string tried = "\"" + corvane::toUtf8(m_path) + "\" cannot be written";
  const mg::FileHandle file(
      CreateFileW(m_path.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr));
  require(static_cast<bool>(file), tried);
  DWORD written = 0;
  require(WriteFile(file.get(), content.data(), static_cast<DWORD>(content.size()), &written, nullptr), tried);
  if (written != content.size()) throw SystemFailure(tried, ERROR_DISK_FULL);
}

std::wstring ScratchFile::folder() {
  wchar_t path[MAX_PATH + 1];
  const DWORD length = GetTempPathW(MAX_PATH + 1, path);
  require(length > 0 && length <= MAX_PATH, "the folder for temporary files is unknown");
  return path;
}

}  // namespace admin
