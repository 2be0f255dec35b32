#include "client/disk_file.h"
#include "programs/text.h"

#include <windows.h>

#include <algorithm>
#include <cstring>
#include <fmt/format.h>
#include <stdexcept>
#include <system_error>
#include <vector>

namespace printclient {
namespace {

constexpr std::size_t kMaxWrite = 1024 * 1024;
constexpr std::size_t kSmallPart = 16 * 1024;
constexpr std::size_t kReadBytes = 64 * 1024;

[[noreturn]] void fail(DWORD error, const char* what, const std::filesystem::path& path = {}) {
  throw std::system_error(static_cast<int>(error), std::system_category(),
                          path.empty() ? what : fmt::format("{} {}", what, programs::fromPath(path)));
}

HANDLE asHandle(std::intptr_t value) {
  return reinterpret_cast<HANDLE>(value);
}

}  // namespace

// As long as it is open nobody else can write, rename, replace or remove it: that is the mark that it is in use.
DiskFile::DiskFile(const std::filesystem::path& path)
    : m_handle(reinterpret_cast<std::intptr_t>(CreateFileW(path.c_str(), GENERIC_WRITE | DELETE, FILE_SHARE_READ,
                                                           nullptr, CREATE_NEW, FILE_ATTRIBUTE_NORMAL, nullptr))),
      m_path(path) {
  if (asHandle(m_handle) == INVALID_HANDLE_VALUE) fail(GetLastError(), "cannot create", path);
}

DiskFile::~DiskFile() {
  if (!m_shared.empty()) {
    CloseHandle(asHandle(m_handle));
    DeleteFileW(m_shared.c_str());
    return;
  }
  if (!m_path.empty() && !m_isLeft) {
    FILE_DISPOSITION_INFO disposition = {};
    disposition.DeleteFile = TRUE;
    SetFileInformationByHandle(asHandle(m_handle), FileDispositionInfo, &disposition, sizeof(disposition));
  }
  CloseHandle(asHandle(m_handle));
}

void DiskFile::write(std::span<const Part> parts) {
  const auto writeAll = [this](Part bytes) {
    while (!bytes.empty()) {
      DWORD taken = 0;
      const auto count = static_cast<DWORD>(std::min(bytes.size(), kMaxWrite));
      if (!WriteFile(asHandle(m_handle), bytes.data(), count, &taken, nullptr)) fail(GetLastError(), "cannot write");
      // A full disk first answers success with a short count; the next attempt then fails, or takes nothing.
      if (taken == 0) fail(ERROR_DISK_FULL, "cannot write");
      m_size += taken;
      bytes = bytes.subspan(taken);
    }
  };
  std::vector<unsigned char> small;  // parts for which a call of their own would cost more than a copy
  for (const Part& part : parts) {
    const bool isSmall = part.size() < kSmallPart;
    if (isSmall) small.insert(small.end(), part.begin(), part.end());
    if (isSmall && small.size() < kMaxWrite) continue;
    writeAll(small);
    small.clear();
    if (!isSmall) writeAll(part);
  }
  writeAll(small);
}

void DiskFile::readBack(const std::function<void(std::span<const unsigned char>)>& take) const {
  const HANDLE handle =
      CreateFileW(m_path.c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr,
                  OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr);
  if (handle == INVALID_HANDLE_VALUE) fail(GetLastError(), "cannot read", m_path);
  struct Closer {
    HANDLE handle;
    ~Closer() { CloseHandle(handle); }
  } const closer{handle};
  std::vector<unsigned char> piece(kReadBytes);
  for (DWORD got = 0;;) {
    if (!ReadFile(handle, piece.data(), static_cast<DWORD>(piece.size()), &got, nullptr)) {
      fail(GetLastError(), "cannot read", m_path);
    }
    if (got == 0) return;
    take(std::span(piece).first(got));
  }
}

void DiskFile::sync() {
  if (!FlushFileBuffers(asHandle(m_handle))) fail(GetLastError(), "cannot write to the disk");
}

// Renamed is the open file itself, whatever lies under its name.
bool DiskFile::renameTo(const std::filesystem::path& to) {
  LARGE_INTEGER size = {};
  if (!GetFileSizeEx(asHandle(m_handle), &size)) fail(GetLastError(), "cannot look at", m_path);
  if (static_cast<std::uint64_t>(size.QuadPart) != m_size) {
    throw std::runtime_error(
        fmt::format("somebody else has changed the unfinished file {}", programs::fromPath(m_path)));
  }
  const std::wstring name = std::filesystem::absolute(to).wstring();
  std::vector<unsigned char> buffer(sizeof(FILE_RENAME_INFO) + name.size() * sizeof(wchar_t));
  auto* info = reinterpret_cast<FILE_RENAME_INFO*>(buffer.data());
  info->ReplaceIfExists = FALSE;
  info->FileNameLength = static_cast<DWORD>(name.size() * sizeof(wchar_t));
  std::memcpy(info->FileName, name.c_str(), (name.size() + 1) * sizeof(wchar_t));
  if (!SetFileInformationByHandle(asHandle(m_handle), FileRenameInfo, info, static_cast<DWORD>(buffer.size()))) {
    const DWORD error = GetLastError();
    if (error == ERROR_ALREADY_EXISTS || error == ERROR_FILE_EXISTS) return false;
    fail(error, "cannot rename to", to);
  }
  m_path.clear();
  FlushFileBuffers(asHandle(m_handle));  // the name as well; the data are safe all the same
  return true;
}

// A program that opens a file to read it does not expect one that may still be written or removed, and is refused then:
// for it the file is held as one that is only read.
void DiskFile::shareAs(const std::filesystem::path& to) {
  if (!renameTo(to)) fail(ERROR_ALREADY_EXISTS, "cannot rename to", to);
  m_shared = to;
  CloseHandle(asHandle(m_handle));
  m_handle = reinterpret_cast<std::intptr_t>(
      CreateFileW(to.c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr));
  LARGE_INTEGER size = {};
  if (asHandle(m_handle) == INVALID_HANDLE_VALUE) fail(GetLastError(), "cannot open", to);
  if (!GetFileSizeEx(asHandle(m_handle), &size)) fail(GetLastError(), "cannot look at", to);
  if (static_cast<std::uint64_t>(size.QuadPart) != m_size) {
    throw std::runtime_error(fmt::format("somebody else has changed the unfinished file {}", programs::fromPath(to)));
  }
}

bool removeAbandoned(const std::filesystem::path& path) noexcept {
  const DWORD attributes = GetFileAttributesW(path.c_str());
  if (attributes == INVALID_FILE_ATTRIBUTES) return false;
  if ((attributes & (FILE_ATTRIBUTE_REPARSE_POINT | FILE_ATTRIBUTE_DIRECTORY)) != 0) return false;
  return DeleteFileW(path.c_str()) != FALSE;
}

}  // namespace printclient
