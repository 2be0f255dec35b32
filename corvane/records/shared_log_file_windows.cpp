#include "corvane/base/process.h"
#include "corvane/records/shared_log_file.h"

#include <cstdio>
#include <sddl.h>
#include <utility>

namespace corvane {
namespace {

// The system, the administrators and the creator of the file; nothing is inherited from its folder.
constexpr wchar_t kWhoMayRead[] = L"D:P(A;;FA;;;SY)(A;;FA;;;BA)(A;;FA;;;OW)";

}  // namespace

SharedLogFile::SharedLogFile(std::wstring path, long long limit)
    : m_path(std::move(path)), m_oldPath(m_path + L".1"), m_limit(limit) {
  ::ConvertStringSecurityDescriptorToSecurityDescriptorW(kWhoMayRead, SDDL_REVISION_1, &m_security, nullptr);
}

SharedLogFile::~SharedLogFile() {
  close();
  ::LocalFree(m_security);
}

bool SharedLogFile::open() noexcept {
  SECURITY_ATTRIBUTES security{sizeof security, m_security, FALSE};
  m_file = ::CreateFileW(m_path.c_str(), FILE_APPEND_DATA, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE,
                         &security, OPEN_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr);
  if (m_file == INVALID_HANDLE_VALUE) return false;
  if (::GetFileType(m_file) == FILE_TYPE_DISK) return true;
  close();
  ::SetLastError(ERROR_INVALID_NAME);
  return false;
}

void SharedLogFile::close() noexcept {
  if (m_file != INVALID_HANDLE_VALUE) ::CloseHandle(m_file);
  m_file = INVALID_HANDLE_VALUE;
}

long long SharedLogFile::size() const noexcept {
  LARGE_INTEGER bytes{};
  return ::GetFileSizeEx(m_file, &bytes) ? bytes.QuadPart : 0;
}

bool SharedLogFile::makeReady(std::size_t bytes) noexcept {
  if (m_file != INVALID_HANDLE_VALUE && size() < m_limit) return true;
  const ProcessIdentity identity;
  // Another process may have renamed the file that is open here; then the new one is checked.
  close();
  if (!open()) return false;
  if (size() < m_limit) return true;
  close();
  const bool isRenamed = ::MoveFileExW(m_path.c_str(), m_oldPath.c_str(), MOVEFILE_REPLACE_EXISTING) != FALSE;
  const unsigned long error = ::GetLastError();
  if (!open()) return false;
  if (isRenamed) m_isCut = false;
  if (isRenamed || size() + static_cast<long long>(bytes) <= 2 * m_limit) return true;
  ::SetLastError(error);
  return false;
}

bool SharedLogFile::put(const char* text, std::size_t size) noexcept {
  constexpr char kEnd[] = "\r\n";
  DWORD written = 0;
  if (m_isCut && !::WriteFile(m_file, kEnd, sizeof kEnd - 1, &written, nullptr)) return false;
  if (m_isCut && written != sizeof kEnd - 1) return false;
  m_isCut = false;
  written = 0;
  // A full disk takes a part and says that all is well.
  if (::WriteFile(m_file, text, static_cast<DWORD>(size), &written, nullptr) && written == size) return true;
  if (written > 0) ::SetLastError(ERROR_DISK_FULL);
  m_isCut = written > 0;
  return false;
}

void SharedLogFile::append(const char* text, std::size_t size) noexcept {
  if (m_path.empty()) return;
  bool isWritten = makeReady(size);
  if (isWritten && m_lost > 0) {
    char line[96];
    const int length = std::snprintf(line, sizeof line, "%lu %s missing here: error %lu\r\n", m_lost,
                                     m_lost == 1 ? "line is" : "lines are", m_error);
    isWritten = put(line, static_cast<std::size_t>(length));
    if (isWritten) m_lost = 0;
  }
  if (isWritten && put(text, size)) return;
  ++m_lost;
  m_error = ::GetLastError();
}

void SharedLogFile::flush() noexcept {
  if (m_file != INVALID_HANDLE_VALUE) ::FlushFileBuffers(m_file);
}

}  // namespace corvane
