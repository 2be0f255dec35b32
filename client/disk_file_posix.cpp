#include "client/disk_file.h"
#include "programs/paths.h"

#include <cerrno>
#include <fcntl.h>
#include <stdio.h>
#include <system_error>
#include <unistd.h>

namespace printclient {
namespace {

[[noreturn]] void fail(const char* what, const std::filesystem::path& path = {}) {
  const int error = errno;
  throw std::system_error(error, std::generic_category(), what + (path.empty() ? "" : " " + programs::fromPath(path)));
}

// Makes the new name itself durable. Some file systems cannot, and say so; the data are safe all the same.
void syncFolder(const std::filesystem::path& folder) {
  const int handle = open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (handle < 0) return;
  fsync(handle);
  close(handle);
}

}  // namespace

DiskFile::DiskFile(const std::filesystem::path& path)
    : m_handle(open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600)) {
  if (m_handle < 0) fail("cannot create", path);
}

DiskFile::~DiskFile() {
  if (m_handle >= 0) close(static_cast<int>(m_handle));
}

void DiskFile::write(std::span<const unsigned char> bytes) {
  while (!bytes.empty()) {
    const ssize_t taken = ::write(static_cast<int>(m_handle), bytes.data(), bytes.size());
    if (taken < 0 && errno == EINTR) continue;
    if (taken == 0) errno = ENOSPC;
    if (taken <= 0) fail("cannot write");
    bytes = bytes.subspan(static_cast<std::size_t>(taken));
  }
}

void DiskFile::finish() {
  // A pipe or a device has nothing to put on a disk.
  if (fsync(static_cast<int>(m_handle)) != 0 && errno != EINVAL && errno != EROFS) fail("cannot write to the disk");
  const int handle = static_cast<int>(m_handle);
  m_handle = -1;
  if (close(handle) != 0) fail("cannot close");
}

bool renameWithoutReplacing(const std::filesystem::path& from, const std::filesystem::path& to) {
  if (renameat2(AT_FDCWD, from.c_str(), AT_FDCWD, to.c_str(), RENAME_NOREPLACE) != 0) {
    if (errno == EEXIST) return false;
    if (errno != EINVAL && errno != ENOSYS) fail("cannot rename to", to);
    // A file system that cannot rename so: a second name fails in the same way when it is taken.
    if (link(from.c_str(), to.c_str()) != 0) {
      if (errno == EEXIST) return false;
      fail("cannot rename to", to);
    }
    unlink(from.c_str());
  }
  syncFolder(to.parent_path());
  return true;
}

}  // namespace printclient
