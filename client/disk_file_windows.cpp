#include "client/disk_file.h"
#include "programs/paths.h"

#include <windows.h>

#include <algorithm>
#include <system_error>

namespace printclient {
namespace {

constexpr std::size_t kMaxWrite = 1024 * 1024;

[[noreturn]] void fail(DWORD error, const char* what, const std::filesystem::path& path = {}) {
  throw std::system_error(static_cast<int>(error), std::system_category(),
                          what + (path.empty() ? "" : " " + programs::fromPath(path)));
}

HANDLE asHandle(std::intptr_t value) {
  return reinterpret_cast<HANDLE>(value);
}

}  // namespace

DiskFile::DiskFile(const std::filesystem::path& path)
    : m_handle(reinterpret_cast<std::intptr_t>(CreateFileW(path.c_str(), GENERIC_WRITE, FILE_SHARE_READ, nullptr,
                                                           CREATE_NEW, FILE_ATTRIBUTE_NORMAL, nullptr))) {
  if (asHandle(m_handle) == INVALID_HANDLE_VALUE) fail(GetLastError(), "cannot create", path);
}

DiskFile::~DiskFile() {
  if (asHandle(m_handle) != INVALID_HANDLE_VALUE) CloseHandle(asHandle(m_handle));
}

void DiskFile::write(std::span<const unsigned char> bytes) {
  while (!bytes.empty()) {
    DWORD taken = 0;
    const auto count = static_cast<DWORD>(std::min(bytes.size(), kMaxWrite));
    if (!WriteFile(asHandle(m_handle), bytes.data(), count, &taken, nullptr)) fail(GetLastError(), "cannot write");
    // A full disk first answers success with a short count; the next attempt then fails, or takes nothing.
    if (taken == 0) fail(ERROR_DISK_FULL, "cannot write");
    bytes = bytes.subspan(taken);
  }
}

void DiskFile::finish() {
  if (!FlushFileBuffers(asHandle(m_handle))) fail(GetLastError(), "cannot write to the disk");
  const HANDLE handle = asHandle(m_handle);
  m_handle = reinterpret_cast<std::intptr_t>(INVALID_HANDLE_VALUE);
  if (!CloseHandle(handle)) fail(GetLastError(), "cannot close");
}

bool renameWithoutReplacing(const std::filesystem::path& from, const std::filesystem::path& to) {
  if (MoveFileExW(from.c_str(), to.c_str(), MOVEFILE_WRITE_THROUGH)) return true;
  const DWORD error = GetLastError();
  if (error == ERROR_ALREADY_EXISTS || error == ERROR_FILE_EXISTS) return false;
  fail(error, "cannot rename to", to);
}

}  // namespace printclient
