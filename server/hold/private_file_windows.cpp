#include "programs/text.h"
#include "server/hold/private_file.h"

#include <windows.h>

#include <algorithm>
#include <array>
#include <fmt/format.h>
#include <sddl.h>
#include <stdexcept>
#include <string>
#include <system_error>
#include <utility>

namespace aps {
namespace {

constexpr std::size_t kMostAtOnce = 1024 * 1024;

[[noreturn]] void throwSystemError(const char* what, DWORD error = GetLastError()) {
  throw std::system_error(static_cast<int>(error), std::system_category(), what);
}

HANDLE windowsHandle(std::intptr_t handle) {
  return reinterpret_cast<HANDLE>(handle);
}

std::intptr_t opened(HANDLE handle, const char* what) {
  if (handle == INVALID_HANDLE_VALUE) throwSystemError(what);
  return reinterpret_cast<std::intptr_t>(handle);
}

// As whom this process runs, as a text; "OW", the owner of a file, where that is not told.
std::wstring ownAccount() {
  HANDLE token = nullptr;
  if (!OpenProcessToken(GetCurrentProcess(), TOKEN_QUERY, &token)) return L"OW";
  std::array<BYTE, 512> user{};
  DWORD needed = 0;
  const BOOL isKnown = GetTokenInformation(token, TokenUser, user.data(), static_cast<DWORD>(user.size()), &needed);
  CloseHandle(token);
  wchar_t* text = nullptr;
  if (!isKnown || !ConvertSidToStringSidW(reinterpret_cast<TOKEN_USER*>(user.data())->User.Sid, &text)) return L"OW";
  std::wstring account = text;
  LocalFree(text);
  return account;
}

// The rights of a folder: all for this account, the system and the administrators, also to what comes into it, and
// nothing from above. Throws std::system_error.
class OwnDescriptor {
 public:
  OwnDescriptor() {
    const std::wstring text = L"D:P(A;OICI;FA;;;SY)(A;OICI;FA;;;BA)(A;OICI;FA;;;" + ownAccount() + L")";
    if (!ConvertStringSecurityDescriptorToSecurityDescriptorW(text.c_str(), SDDL_REVISION_1, &m_made, nullptr)) {
      throwSystemError("its access list cannot be made");
    }
  }
  ~OwnDescriptor() { LocalFree(m_made); }
  OwnDescriptor(const OwnDescriptor&) = delete;
  OwnDescriptor& operator=(const OwnDescriptor&) = delete;

  PSECURITY_DESCRIPTOR get() const { return m_made; }

 private:
  PSECURITY_DESCRIPTOR m_made = nullptr;
};

}  // namespace

PrivateFile PrivateFile::create(const std::filesystem::path& path) {
  return PrivateFile(
      opened(CreateFileW(path.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_NEW, FILE_ATTRIBUTE_NORMAL, nullptr),
             "it cannot be made"));
}

PrivateFile PrivateFile::open(const std::filesystem::path& path) {
  PrivateFile file(opened(CreateFileW(path.c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_DELETE, nullptr,
                                      OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL | FILE_FLAG_OPEN_REPARSE_POINT, nullptr),
                          "it cannot be opened"));
  BY_HANDLE_FILE_INFORMATION facts = {};
  if (!GetFileInformationByHandle(windowsHandle(file.m_handle), &facts)) throwSystemError("it cannot be looked at");
  if ((facts.dwFileAttributes & (FILE_ATTRIBUTE_REPARSE_POINT | FILE_ATTRIBUTE_DIRECTORY)) != 0) {
    throw std::runtime_error("it is not a regular file");
  }
  return file;
}

PrivateFile::PrivateFile(PrivateFile&& other) noexcept : m_handle(std::exchange(other.m_handle, -1)) {}

PrivateFile::~PrivateFile() {
  if (m_handle != -1) CloseHandle(windowsHandle(m_handle));
}

void PrivateFile::write(std::span<const unsigned char> bytes) {
  while (!bytes.empty()) {
    DWORD taken = 0;
    const auto count = static_cast<DWORD>(std::min(bytes.size(), kMostAtOnce));
    if (!WriteFile(windowsHandle(m_handle), bytes.data(), count, &taken, nullptr)) {
      throwSystemError("it cannot be written");
    }
    // A full disk first answers success with a short count; the next attempt then fails, or takes nothing.
    if (taken == 0) throwSystemError("it cannot be written", ERROR_DISK_FULL);
    bytes = bytes.subspan(taken);
  }
}

void PrivateFile::sync() {
  if (!FlushFileBuffers(windowsHandle(m_handle))) throwSystemError("it cannot be written to the disk");
}

std::uint64_t PrivateFile::size() const {
  LARGE_INTEGER size = {};
  if (!GetFileSizeEx(windowsHandle(m_handle), &size)) throwSystemError("it cannot be looked at");
  return static_cast<std::uint64_t>(size.QuadPart);
}

void PrivateFile::seek(std::uint64_t position) {
  LARGE_INTEGER to = {};
  to.QuadPart = static_cast<LONGLONG>(position);
  if (!SetFilePointerEx(windowsHandle(m_handle), to, nullptr, FILE_BEGIN)) throwSystemError("it cannot be read");
}

std::size_t PrivateFile::read(std::span<unsigned char> buffer) {
  std::size_t done = 0;
  while (done < buffer.size()) {
    DWORD got = 0;
    const auto count = static_cast<DWORD>(std::min(buffer.size() - done, kMostAtOnce));
    if (!ReadFile(windowsHandle(m_handle), buffer.data() + done, count, &got, nullptr)) {
      throwSystemError("it cannot be read");
    }
    if (got == 0) break;
    done += got;
  }
  return done;
}

void moveDurably(const std::filesystem::path& from, const std::filesystem::path& to) {
  if (!MoveFileExW(from.c_str(), to.c_str(), MOVEFILE_REPLACE_EXISTING | MOVEFILE_WRITE_THROUGH)) {
    throwSystemError("it cannot be renamed");
  }
}

void removeDurably(const std::filesystem::path& path) {
  if (DeleteFileW(path.c_str())) return;
  const DWORD error = GetLastError();
  if (error != ERROR_FILE_NOT_FOUND && error != ERROR_PATH_NOT_FOUND) throwSystemError("it cannot be removed", error);
}

// One that is made here is for this account, the system and the administrators; who may look into one that is there
// already is what its access list says.
PrivateFolder::PrivateFolder(std::filesystem::path path) : m_path(std::move(path)) {
  const std::string name = programs::fromPath(m_path);
  const OwnDescriptor descriptor;
  SECURITY_ATTRIBUTES security{sizeof security, descriptor.get(), FALSE};
  const DWORD failure = CreateDirectoryW(m_path.c_str(), &security) ? ERROR_SUCCESS : GetLastError();
  if (!std::filesystem::is_directory(m_path)) {
    throw std::runtime_error(
        fmt::format("{} cannot be made: {}; make the folder it is to stand in, and let this account write there", name,
                    std::system_category().message(static_cast<int>(failure))));
  }
  const std::filesystem::path mark = m_path / "in-use";
  const HANDLE made = CreateFileW(mark.c_str(), GENERIC_WRITE, 0, nullptr, OPEN_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr);
  if (made == INVALID_HANDLE_VALUE) {
    const DWORD error = GetLastError();
    if (error == ERROR_SHARING_VIOLATION) {
      throw std::runtime_error(fmt::format("another aps holds jobs in {}; end it, or give another folder", name));
    }
    throw std::runtime_error(
        fmt::format("nothing can be written to {}: {}; make room there, and let this account write", name,
                    std::system_category().message(static_cast<int>(error))));
  }
  m_mark = reinterpret_cast<std::intptr_t>(made);
}

PrivateFolder::~PrivateFolder() {
  CloseHandle(windowsHandle(m_mark));
}

}  // namespace aps
