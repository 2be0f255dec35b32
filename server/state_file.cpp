#include "server/state_file.h"

#include <fmt/format.h>
#include <stdexcept>
#include <system_error>

#ifdef _WIN32
#include <windows.h>
#else
#include <cerrno>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#endif

namespace aps {
namespace {

#ifdef _WIN32

[[noreturn]] void fail(const char* what, DWORD error = GetLastError()) {
  const std::string cause = std::system_category().message(static_cast<int>(error));
  throw std::runtime_error(fmt::format("it cannot be {}: {}", what, cause));
}

class OpenFile {
 public:
  explicit OpenFile(HANDLE opened) : m_handle(opened) {}
  OpenFile(const OpenFile&) = delete;
  OpenFile& operator=(const OpenFile&) = delete;
  ~OpenFile() {
    if (isOpen()) CloseHandle(m_handle);
  }
  bool isOpen() const { return m_handle != INVALID_HANDLE_VALUE; }
  HANDLE get() const { return m_handle; }

 private:
  const HANDLE m_handle;
};

// Other than on Linux, what lies under that name is known only once it is open.
void refuseIrregularFile(const std::filesystem::path&) {}

std::optional<std::string> readWhole(const std::filesystem::path& path) {
  const OpenFile opened(CreateFileW(path.c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING,
                                    FILE_ATTRIBUTE_NORMAL | FILE_FLAG_OPEN_REPARSE_POINT, nullptr));
  if (!opened.isOpen()) {
    const DWORD error = GetLastError();
    if (error == ERROR_FILE_NOT_FOUND || error == ERROR_PATH_NOT_FOUND) return std::nullopt;
    fail("opened", error);
  }
  if (GetFileType(opened.get()) != FILE_TYPE_DISK) throw std::runtime_error("it is not a regular file");
  LARGE_INTEGER size{};
  if (!GetFileSizeEx(opened.get(), &size)) fail("read");
  if (static_cast<std::size_t>(size.QuadPart) > StateFile::kMaxBytes) throw std::runtime_error("it is too long");
  std::string content(static_cast<std::size_t>(size.QuadPart), '\0');
  DWORD got = 0;
  if (!ReadFile(opened.get(), content.data(), static_cast<DWORD>(content.size()), &got, nullptr)) fail("read");
  return content;
}

// Returns when the content is on the disk.
void writeNew(const std::filesystem::path& path, const std::string& content) {
  const OpenFile made(
      CreateFileW(path.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr));
  if (!made.isOpen()) fail("written");
  DWORD taken = 0;
  const auto size = static_cast<DWORD>(content.size());
  if (!WriteFile(made.get(), content.data(), size, &taken, nullptr)) fail("written");
  // A full disk first answers success with a short count.
  if (taken != size) fail("written", ERROR_DISK_FULL);
  if (!FlushFileBuffers(made.get())) fail("written");
}

void removeFile(const std::filesystem::path& path) {
  DeleteFileW(path.c_str());
}

void moveFile(const std::filesystem::path& from, const std::filesystem::path& to, const char* what) {
  if (!MoveFileExW(from.c_str(), to.c_str(), MOVEFILE_REPLACE_EXISTING | MOVEFILE_WRITE_THROUGH)) fail(what);
}

// The renaming itself waits for the disk.
void syncFolderOf(const std::filesystem::path&) {}

#else

[[noreturn]] void fail(const char* what, int error = errno) {
  throw std::runtime_error(fmt::format("it cannot be {}: {}", what, std::generic_category().message(error)));
}

class OpenFile {
 public:
  explicit OpenFile(int opened) : m_descriptor(opened) {}
  OpenFile(const OpenFile&) = delete;
  OpenFile& operator=(const OpenFile&) = delete;
  ~OpenFile() {
    if (isOpen()) ::close(m_descriptor);
  }
  bool isOpen() const { return m_descriptor >= 0; }
  int get() const { return m_descriptor; }

 private:
  const int m_descriptor;
};

// A device or a link of that name belongs to somebody else, whatever the account of this process may do with it.
void refuseIrregularFile(const std::filesystem::path& path) {
  struct stat facts {};
  if (::lstat(path.c_str(), &facts) == 0 && !S_ISREG(facts.st_mode))
    throw std::runtime_error("it is not a regular file");
}

std::optional<std::string> readWhole(const std::filesystem::path& path) {
  const OpenFile opened(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY | O_NOFOLLOW));
  if (!opened.isOpen() && errno == ENOENT) return std::nullopt;
  if (!opened.isOpen()) fail("opened");
  struct stat facts {};
  if (::fstat(opened.get(), &facts) != 0) fail("read");
  if (!S_ISREG(facts.st_mode)) throw std::runtime_error("it is not a regular file");
  if (facts.st_uid != ::geteuid() || (facts.st_mode & 022) != 0) {
    throw std::runtime_error("others may have written it");
  }
  if (static_cast<std::size_t>(facts.st_size) > StateFile::kMaxBytes) throw std::runtime_error("it is too long");
  std::string content(static_cast<std::size_t>(facts.st_size), '\0');
  for (std::size_t done = 0; done < content.size();) {
    const ssize_t got = ::read(opened.get(), content.data() + done, content.size() - done);
    if (got < 0 && errno == EINTR) continue;
    if (got < 0) fail("read");
    if (got == 0) break;  // its end is missing, which the reader of the content will notice
    done += static_cast<std::size_t>(got);
  }
  return content;
}

// Returns when the content is on the disk.
void writeNew(const std::filesystem::path& path, const std::string& content) {
  const OpenFile made(::open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC | O_NOFOLLOW, 0600));
  if (!made.isOpen()) fail("written");
  for (std::size_t done = 0; done < content.size();) {
    const ssize_t taken = ::write(made.get(), content.data() + done, content.size() - done);
    if (taken < 0 && errno == EINTR) continue;
    if (taken <= 0) fail("written", taken < 0 ? errno : ENOSPC);
    done += static_cast<std::size_t>(taken);
  }
  if (::fsync(made.get()) != 0) fail("written");
}

void removeFile(const std::filesystem::path& path) {
  ::unlink(path.c_str());
}

void moveFile(const std::filesystem::path& from, const std::filesystem::path& to, const char* what) {
  if (::rename(from.c_str(), to.c_str()) != 0) fail(what);
}

// Some file systems cannot, and the content is on the disk all the same.
void syncFolderOf(const std::filesystem::path& path) {
  const std::filesystem::path folder = path.has_parent_path() ? path.parent_path() : ".";
  const OpenFile opened(::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (opened.isOpen()) ::fsync(opened.get());
}

#endif

}  // namespace

std::optional<std::string> StateFile::read() const {
  refuseIrregularFile(m_path);
  return readWhole(m_path);
}

void StateFile::replace(const std::string& content) const {
  if (content.size() > kMaxBytes) throw std::runtime_error("it would be too long");
  refuseIrregularFile(m_path);
  std::filesystem::path fresh = m_path;
  fresh += ".new";
  removeFile(fresh);
  try {
    writeNew(fresh, content);
    moveFile(fresh, m_path, "replaced");
  } catch (...) {
    removeFile(fresh);
    throw;
  }
  syncFolderOf(m_path);
}

void StateFile::setAside() const {
  refuseIrregularFile(m_path);
  std::filesystem::path aside = m_path;
  aside += ".damaged";
  moveFile(m_path, aside, "renamed");
}

}  // namespace aps
