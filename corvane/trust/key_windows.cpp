#include "corvane/base/process.h"
#include "corvane/base/text.h"
#include "corvane/net/network.h"
#include "corvane/records/exception.h"
#include "corvane/records/messages.h"
#include "corvane/trust/key.h"

#include <windows.h>

namespace corvane {
namespace {

class File {
 public:
  explicit File(HANDLE handle) : m_handle(handle) {}
  File(const File&) = delete;
  File& operator=(const File&) = delete;
  ~File() { close(); }
  void close() {
    if (m_handle != INVALID_HANDLE_VALUE) ::CloseHandle(m_handle);
    m_handle = INVALID_HANDLE_VALUE;
  }
  HANDLE get() const { return m_handle; }
  bool isOpen() const { return m_handle != INVALID_HANDLE_VALUE; }

 private:
  HANDLE m_handle;
};

[[noreturn]] void fail(const wchar_t* what, const std::string& file, DWORD error) {
  throw CS_Exception(kKeyNeeded, L"the key file cannot be %s (%s): %s", what,
                     networkErrorText(static_cast<int>(error)).c_str(), fromUtf8(file).c_str());
}

}  // namespace

std::size_t readKeyFile(const std::string& file, std::span<unsigned char> buffer) {
  // Looked at by its name, which costs much less than asking the open file, and the module reads its key for every job.
  const std::wstring name = fromUtf8(file);
  // Only the system and administrators may read it, and the module reads it while it serves a user.
  const ProcessIdentity identity;
  constexpr DWORD kNoFile = FILE_ATTRIBUTE_DIRECTORY | FILE_ATTRIBUTE_DEVICE;
  const DWORD attributes = ::GetFileAttributesW(name.c_str());
  if (attributes == INVALID_FILE_ATTRIBUTES) fail(L"opened", file, ::GetLastError());
  if ((attributes & kNoFile) != 0) {
    throw CS_Exception(kKeyNeeded, L"the key file is not a regular file: %s", name.c_str());
  }
  // A key that is being exchanged may be renamed over meanwhile.
  const File opened(::CreateFileW(name.c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_DELETE, nullptr,
                                  OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr));
  if (!opened.isOpen()) fail(L"opened", file, ::GetLastError());
  DWORD size = 0;
  if (!::ReadFile(opened.get(), buffer.data(), static_cast<DWORD>(buffer.size()), &size, nullptr)) {
    fail(L"read", file, ::GetLastError());
  }
  return size;
}

void createKeyFile(const std::string& file, std::span<const unsigned char> content) {
  const std::wstring name = fromUtf8(file);
  File made(::CreateFileW(name.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_NEW, FILE_ATTRIBUTE_NORMAL, nullptr));
  if (!made.isOpen()) fail(L"made", file, ::GetLastError());
  DWORD written = 0;
  if (::WriteFile(made.get(), content.data(), static_cast<DWORD>(content.size()), &written, nullptr) &&
      written == content.size() && ::FlushFileBuffers(made.get())) {
    return;
  }
  const DWORD error = written < content.size() ? ERROR_DISK_FULL : ::GetLastError();
  made.close();
  ::DeleteFileW(name.c_str());
  fail(L"written", file, error);
}

std::wstring keyFolderRefusal(const std::string& folder) {
  const std::wstring name = fromUtf8(folder);
  const DWORD attributes = ::GetFileAttributesW(name.c_str());
  if (attributes == INVALID_FILE_ATTRIBUTES) {
    return networkErrorText(static_cast<int>(::GetLastError())) + L": " + name;
  }
  return (attributes & FILE_ATTRIBUTE_DIRECTORY) == 0 ? L"it is no folder: " + name : std::wstring();
}

}  // namespace corvane
