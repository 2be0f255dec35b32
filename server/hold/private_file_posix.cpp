#include "programs/text.h"
#include "server/hold/private_file.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <climits>
#include <fcntl.h>
#include <fmt/format.h>
#include <stdexcept>
#include <string>
#include <sys/file.h>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>
#include <utility>

namespace aps {
namespace {

[[noreturn]] void throwSystemError(const char* what, int error = errno) {
  throw std::system_error(error, std::generic_category(), what);
}

int descriptorOf(std::intptr_t handle) {
  return static_cast<int>(handle);
}

// Some file systems cannot, and what is in the file is on the disk all the same. It takes no memory: the file has its
// new name, or is gone, and nothing must say otherwise.
void syncPrivateFolderOf(const std::filesystem::path& file) {
  std::array<char, PATH_MAX> folder{};
  const std::string& name = file.native();
  const std::size_t length = name.rfind('/') == std::string::npos ? 0 : name.rfind('/') + 1;
  if (length >= folder.size()) return;
  std::copy_n(name.begin(), length, folder.begin());
  const int opened = ::open(length == 0 ? "." : folder.data(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (opened < 0) return;
  ::fsync(opened);
  ::close(opened);
}

}  // namespace

PrivateFile PrivateFile::create(const std::filesystem::path& path) {
  const int made = ::open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC | O_NOFOLLOW, 0600);
  if (made < 0) throwSystemError("it cannot be made");
  return PrivateFile(made);
}

PrivateFile PrivateFile::open(const std::filesystem::path& path) {
  const int opened = ::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY | O_NOFOLLOW);
  if (opened < 0) throwSystemError("it cannot be opened");
  PrivateFile file(opened);
  struct stat facts {};
  if (::fstat(opened, &facts) != 0) throwSystemError("it cannot be looked at");
  if (!S_ISREG(facts.st_mode)) throw std::runtime_error("it is not a regular file");
  return file;
}

PrivateFile::PrivateFile(PrivateFile&& other) noexcept : m_handle(std::exchange(other.m_handle, -1)) {}

PrivateFile::~PrivateFile() {
  if (m_handle >= 0) ::close(descriptorOf(m_handle));
}

void PrivateFile::write(std::span<const unsigned char> bytes) {
  while (!bytes.empty()) {
    const ssize_t taken = ::write(descriptorOf(m_handle), bytes.data(), bytes.size());
    if (taken < 0 && errno == EINTR) continue;
    if (taken <= 0) throwSystemError("it cannot be written", taken < 0 ? errno : ENOSPC);
    bytes = bytes.subspan(static_cast<std::size_t>(taken));
  }
}

void PrivateFile::sync() {
  if (::fsync(descriptorOf(m_handle)) != 0) throwSystemError("it cannot be written to the disk");
}

std::uint64_t PrivateFile::size() const {
  struct stat facts {};
  if (::fstat(descriptorOf(m_handle), &facts) != 0) throwSystemError("it cannot be looked at");
  return static_cast<std::uint64_t>(facts.st_size);
}

void PrivateFile::seek(std::uint64_t position) {
  if (::lseek(descriptorOf(m_handle), static_cast<off_t>(position), SEEK_SET) < 0)
    throwSystemError("it cannot be read");
}

std::size_t PrivateFile::read(std::span<unsigned char> buffer) {
  std::size_t done = 0;
  while (done < buffer.size()) {
    const ssize_t got = ::read(descriptorOf(m_handle), buffer.data() + done, buffer.size() - done);
    if (got < 0 && errno == EINTR) continue;
    if (got < 0) throwSystemError("it cannot be read");
    if (got == 0) break;
    done += static_cast<std::size_t>(got);
  }
  return done;
}

void moveDurably(const std::filesystem::path& from, const std::filesystem::path& to) {
  if (::rename(from.c_str(), to.c_str()) != 0) throwSystemError("it cannot be renamed");
  syncPrivateFolderOf(to);
}

void removeDurably(const std::filesystem::path& path) {
  if (::unlink(path.c_str()) != 0) {
    if (errno == ENOENT) return;
    throwSystemError("it cannot be removed");
  }
  syncPrivateFolderOf(path);
}

PrivateFolder::PrivateFolder(std::filesystem::path path) : m_path(std::move(path)) {
  const std::string name = programs::fromPath(m_path);
  if (::mkdir(m_path.c_str(), 0700) != 0 && errno != EEXIST) {
    throw std::runtime_error(
        fmt::format("{} cannot be made: {}; make the folder it is to stand in, and let this account write there", name,
                    std::generic_category().message(errno)));
  }
  struct stat facts {};
  if (::lstat(m_path.c_str(), &facts) != 0 || !S_ISDIR(facts.st_mode)) {
    throw std::runtime_error(fmt::format("{} is no folder; give another name", name));
  }
  if (facts.st_uid != ::geteuid()) {
    throw std::runtime_error(
        fmt::format("{} belongs to another account; make it this one's with: chown {} {}", name, ::geteuid(), name));
  }
  if ((facts.st_mode & 077) != 0) {
    throw std::runtime_error(fmt::format("others may use {}; make it private with: chmod go-rwx {}", name, name));
  }
  const std::filesystem::path mark = m_path / "in-use";
  const int opened = ::open(mark.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0600);
  if (opened < 0) {
    throw std::runtime_error(
        fmt::format("nothing can be written to {}: {}; make room there, and let this account write", name,
                    std::generic_category().message(errno)));
  }
  m_mark = opened;
  if (::flock(opened, LOCK_EX | LOCK_NB) != 0 && errno == EWOULDBLOCK) {
    ::close(opened);
    throw std::runtime_error(fmt::format("another aps holds jobs in {}; end it, or give another folder", name));
  }
}

PrivateFolder::~PrivateFolder() {
  ::close(descriptorOf(m_mark));
}

}  // namespace aps
