#include "server/log_file.h"

#include <windows.h>

#include <sddl.h>
#include <utility>

namespace aps {
namespace {

// The system, the administrators, and whoever runs this process; nothing is inherited from the folder.
constexpr wchar_t kWhoMayRead[] = L"D:P(A;;FA;;;SY)(A;;FA;;;BA)(A;;FA;;;OW)";

HANDLE handleOf(std::intptr_t handle) {
  return reinterpret_cast<HANDLE>(handle);
}

// As the error of the standard library, whose words are the same on every platform.
std::error_code lastError() {
  const std::error_condition same =
      std::error_code(static_cast<int>(::GetLastError()), std::system_category()).default_error_condition();
  return {same.value(), same.category()};
}

}  // namespace

AppendFile& AppendFile::operator=(AppendFile&& other) noexcept {
  std::swap(m_handle, other.m_handle);
  return *this;
}

std::error_code AppendFile::openAs(const std::filesystem::path& path, bool makeNew) {
  close();
  SECURITY_ATTRIBUTES security{sizeof security, nullptr, FALSE};
  ::ConvertStringSecurityDescriptorToSecurityDescriptorW(kWhoMayRead, SDDL_REVISION_1, &security.lpSecurityDescriptor,
                                                         nullptr);
  const HANDLE opened =
      ::CreateFileW(path.c_str(), FILE_APPEND_DATA, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, &security,
                    makeNew ? CREATE_NEW : OPEN_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr);
  const std::error_code failure = opened == INVALID_HANDLE_VALUE ? lastError() : std::error_code();
  ::LocalFree(security.lpSecurityDescriptor);
  m_handle = reinterpret_cast<std::intptr_t>(opened);
  return failure;
}

std::error_code AppendFile::open(const std::filesystem::path& path) {
  return openAs(path, false);
}

std::error_code AppendFile::make(const std::filesystem::path& path) {
  return openAs(path, true);
}

void AppendFile::close() {
  if (isOpen()) ::CloseHandle(handleOf(m_handle));
  m_handle = kNone;
}

bool AppendFile::isRegular() const {
  return ::GetFileType(handleOf(m_handle)) == FILE_TYPE_DISK;
}

std::uint64_t AppendFile::size() const {
  LARGE_INTEGER size{};
  return ::GetFileSizeEx(handleOf(m_handle), &size) ? static_cast<std::uint64_t>(size.QuadPart) : 0;
}

std::error_code AppendFile::write(std::string_view text, std::size_t& written) {
  for (written = 0; written < text.size();) {
    DWORD some = 0;
    if (!::WriteFile(handleOf(m_handle), text.data() + written, static_cast<DWORD>(text.size() - written), &some,
                     nullptr)) {
      return lastError();
    }
    if (some == 0) return std::make_error_code(std::errc::no_space_on_device);
    written += some;
  }
  return {};
}

}  // namespace aps
