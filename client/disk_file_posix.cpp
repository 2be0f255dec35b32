#include "client/disk_file.h"
#include "programs/text.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <fcntl.h>
#include <fmt/format.h>
#include <stdexcept>
#include <stdio.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/uio.h>
#include <system_error>
#include <unistd.h>
#include <utility>
#include <vector>

namespace printclient {
namespace {

constexpr std::size_t kReadBytes = 64 * 1024;  // the allocator keeps as much for each thread that reads
constexpr int kMaxCreations = 10;              // to create a file that cleaning others take away again

[[noreturn]] void fail(const char* what, const std::filesystem::path& path = {}) {
  const int error = errno;
  throw std::system_error(error, std::generic_category(),
                          path.empty() ? what : fmt::format("{} {}", what, programs::fromPath(path)));
}

[[noreturn]] void throwTampered(const std::filesystem::path& path) {
  throw std::runtime_error(
      fmt::format("somebody else has changed, moved or removed the unfinished file {}", programs::fromPath(path)));
}

// Whether the name itself, and not a link of that name, is the open file.
bool isNameOf(const std::filesystem::path& path, int handle) {
  struct stat named, open;
  return lstat(path.c_str(), &named) == 0 && fstat(handle, &open) == 0 && named.st_dev == open.st_dev &&
         named.st_ino == open.st_ino;
}

// The writer of a file holds its lock, which ends with the process however that ends. False when another one holds it,
// or the file system knows no such locks.
bool lock(int handle, int how) {
  int result;
  do {
    result = flock(handle, how);
  } while (result != 0 && errno == EINTR);
  return result == 0;
}

// Makes the new name itself durable. Some file systems cannot, and say so; the data are safe all the same.
void syncFolder(const std::filesystem::path& folder) {
  const int handle = open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (handle < 0) return;
  fsync(handle);
  close(handle);
}

// False when the new name is taken.
bool renameWithoutReplacing(const std::filesystem::path& from, const std::filesystem::path& to) {
  if (renameat2(AT_FDCWD, from.c_str(), AT_FDCWD, to.c_str(), RENAME_NOREPLACE) == 0) return true;
  if (errno == EEXIST) return false;
  if (errno != EINVAL && errno != ENOSYS) fail("cannot rename to", to);
  // A file system that cannot rename so: a second name fails in the same way when it is taken.
  if (link(from.c_str(), to.c_str()) != 0) {
    if (errno == EEXIST) return false;
    fail("cannot rename to", to);
  }
  unlink(from.c_str());
  return true;
}

}  // namespace

DiskFile::DiskFile(const std::filesystem::path& path) : m_handle(-1), m_path(path) {
  for (int attempt = 0; attempt < kMaxCreations; ++attempt) {
    const int handle = open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
    if (handle < 0) fail("cannot create", path);
    // Another client that looks for abandoned files may have found it before it was locked; it holds the lock until
    // then.
    lock(handle, LOCK_EX);
    if (isNameOf(path, handle)) {
      m_handle = handle;
      return;
    }
    close(handle);
  }
  throwTampered(path);
}

DiskFile::~DiskFile() {
  const int handle = static_cast<int>(m_handle);
  if (!m_isLeft && isNameOf(m_path, handle)) unlink(m_path.c_str());
  close(handle);
}

void DiskFile::write(std::span<const Part> parts) {
  const int handle = static_cast<int>(m_handle);
  std::vector<iovec> vectors;
  for (const Part& part : parts) {
    if (!part.empty()) vectors.push_back({const_cast<unsigned char*>(part.data()), part.size()});
  }
  for (std::span<iovec> left(vectors); !left.empty();) {
    iovec& first = left.front();
    const ssize_t taken =
        left.size() == 1 ? ::write(handle, first.iov_base, first.iov_len)
                         : ::writev(handle, left.data(), static_cast<int>(std::min<std::size_t>(left.size(), IOV_MAX)));
    if (taken < 0 && errno == EINTR) continue;
    if (taken == 0) errno = ENOSPC;
    if (taken <= 0) fail("cannot write");
    m_size += static_cast<std::uint64_t>(taken);
    for (auto count = static_cast<std::size_t>(taken); count > 0;) {
      iovec& part = left.front();
      const std::size_t now = std::min(count, part.iov_len);
      part = {static_cast<unsigned char*>(part.iov_base) + now, part.iov_len - now};
      count -= now;
      if (part.iov_len == 0) left = left.subspan(1);
    }
  }
}

void DiskFile::readBack(const std::function<void(std::span<const unsigned char>)>& take) const {
  const int handle = open(m_path.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC);
  if (handle < 0) fail("cannot read", m_path);
  struct Closer {
    int handle;
    ~Closer() { close(handle); }
  } const closer{handle};
  if (!isNameOf(m_path, static_cast<int>(m_handle)) || !isNameOf(m_path, handle)) throwTampered(m_path);
  std::vector<unsigned char> piece(kReadBytes);
  for (;;) {
    const ssize_t got = read(handle, piece.data(), piece.size());
    if (got < 0 && errno == EINTR) continue;
    if (got < 0) fail("cannot read", m_path);
    if (got == 0) return;
    take(std::span(piece).first(static_cast<std::size_t>(got)));
  }
}

void DiskFile::sync() {
  if (fsync(static_cast<int>(m_handle)) != 0) fail("cannot write to the disk");
}

bool DiskFile::renameTo(const std::filesystem::path& to) {
  const int handle = static_cast<int>(m_handle);
  struct stat status;
  if (fstat(handle, &status) != 0) fail("cannot look at", m_path);
  const bool isWhole = static_cast<std::uint64_t>(status.st_size) == m_size;
  if (!isWhole || !isNameOf(m_path, handle)) throwTampered(m_path);
  if (!renameWithoutReplacing(m_path, to)) return false;
  // Between the look and the renaming another process may have been quicker.
  if (!isNameOf(to, handle)) throwTampered(m_path);
  syncFolder(to.parent_path());
  return true;
}

void DiskFile::shareAs(const std::filesystem::path& to) {
  if (!renameTo(to)) {
    errno = EEXIST;
    fail("cannot rename to", to);
  }
  m_path = to;
}

bool removeAbandoned(const std::filesystem::path& path) noexcept {
  // Never through a link, and without waiting at a pipe. Some file systems lock only what may be written.
  const int handle = open(path.c_str(), O_RDWR | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC);
  if (handle < 0) return false;
  struct stat status;
  const bool isFile = fstat(handle, &status) == 0 && S_ISREG(status.st_mode);
  const bool removed = isFile && lock(handle, LOCK_EX | LOCK_NB) && isNameOf(path, handle) && unlink(path.c_str()) == 0;
  close(handle);
  return removed;
}

}  // namespace printclient
