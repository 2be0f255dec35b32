#include "server/state_file.h"

#include <windows.h>

#include <stdexcept>
#include <system_error>

namespace aps {
namespace {

[[noreturn]] void fail(const char* what, DWORD error) {
  throw std::runtime_error(std::string("it cannot be ") + what + ": " +
                           std::system_category().message(static_cast<int>(error)));
}

struct File {
  explicit File(HANDLE opened) : handle(opened) {}
  File(const File&) = delete;
  File& operator=(const File&) = delete;
  ~File() { close(); }
  bool isOpen() const { return handle != INVALID_HANDLE_VALUE; }
  void close() {
    if (isOpen()) CloseHandle(handle);
    handle = INVALID_HANDLE_VALUE;
  }
  HANDLE handle;
};

}  // namespace

std::optional<std::string> StateFile::read() const {
  const File opened(CreateFileW(m_path.c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING,
                                FILE_ATTRIBUTE_NORMAL | FILE_FLAG_OPEN_REPARSE_POINT, nullptr));
  if (!opened.isOpen()) {
    const DWORD error = GetLastError();
    if (error == ERROR_FILE_NOT_FOUND || error == ERROR_PATH_NOT_FOUND) return std::nullopt;
    fail("opened", error);
  }
  if (GetFileType(opened.handle) != FILE_TYPE_DISK) throw std::runtime_error("it is no plain file");
  LARGE_INTEGER size{};
  if (!GetFileSizeEx(opened.handle, &size)) fail("read", GetLastError());
  if (static_cast<std::size_t>(size.QuadPart) > kMaxBytes) throw std::runtime_error("it is too long");
  std::string content(static_cast<std::size_t>(size.QuadPart), '\0');
  DWORD got = 0;
  if (!ReadFile(opened.handle, content.data(), static_cast<DWORD>(content.size()), &got, nullptr)) {
    fail("read", GetLastError());
  }
  return content;
}

void StateFile::replace(const std::string& content) const {
  if (content.size() > kMaxBytes) throw std::runtime_error("it would be too long");
  std::filesystem::path fresh = m_path;
  fresh += L".new";
  try {
    File made(CreateFileW(fresh.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr));
    if (!made.isOpen()) fail("written", GetLastError());
    DWORD taken = 0;
    const auto size = static_cast<DWORD>(content.size());
    if (!WriteFile(made.handle, content.data(), size, &taken, nullptr)) fail("written", GetLastError());
    // A full disk first answers success with a short count.
    if (taken != size) fail("written", ERROR_DISK_FULL);
    if (!FlushFileBuffers(made.handle)) fail("written", GetLastError());
    made.close();
    if (!MoveFileExW(fresh.c_str(), m_path.c_str(), MOVEFILE_REPLACE_EXISTING | MOVEFILE_WRITE_THROUGH)) {
      fail("replaced", GetLastError());
    }
  } catch (...) {
    DeleteFileW(fresh.c_str());
    throw;
  }
}

void StateFile::setAside() const {
  std::filesystem::path aside = m_path;
  aside += L".damaged";
  if (!MoveFileExW(m_path.c_str(), aside.c_str(), MOVEFILE_REPLACE_EXISTING)) fail("renamed", GetLastError());
}

}  // namespace aps
