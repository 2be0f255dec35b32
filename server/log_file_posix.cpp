#include "server/log_file.h"

#include <cerrno>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

namespace aps {
namespace {

std::error_code lastError() {
  return {errno, std::generic_category()};
}

int descriptor(std::intptr_t handle) {
  return static_cast<int>(handle);
}

}  // namespace

AppendFile& AppendFile::operator=(AppendFile&& other) noexcept {
  std::swap(m_handle, other.m_handle);
  return *this;
}

std::error_code AppendFile::openAs(const std::filesystem::path& path, bool makeNew) {
  close();
  // Without O_NONBLOCK the opening of a pipe waits for its reader.
  const int flags = O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC | O_NOCTTY | O_NONBLOCK | (makeNew ? O_EXCL : 0);
  const int opened = ::open(path.c_str(), flags, S_IRUSR | S_IWUSR);
  if (opened < 0) return lastError();
  ::fcntl(opened, F_SETFL, O_APPEND);
  m_handle = opened;
  struct stat facts {};
  if (::fstat(opened, &facts) == 0 && S_ISREG(facts.st_mode) && (facts.st_mode & S_IRWXO) != 0) {
    ::fchmod(opened, S_IRUSR | S_IWUSR);
  }
  return {};
}

std::error_code AppendFile::open(const std::filesystem::path& path) {
  return openAs(path, false);
}

std::error_code AppendFile::make(const std::filesystem::path& path) {
  return openAs(path, true);
}

void AppendFile::close() {
  if (isOpen()) ::close(descriptor(m_handle));
  m_handle = kNone;
}

bool AppendFile::isRegular() const {
  struct stat facts {};
  return ::fstat(descriptor(m_handle), &facts) == 0 && S_ISREG(facts.st_mode);
}

std::uint64_t AppendFile::size() const {
  struct stat facts {};
  return ::fstat(descriptor(m_handle), &facts) == 0 ? static_cast<std::uint64_t>(facts.st_size) : 0;
}

std::error_code AppendFile::write(std::string_view text, std::size_t& written) {
  for (written = 0; written < text.size();) {
    const ssize_t some = ::write(descriptor(m_handle), text.data() + written, text.size() - written);
    if (some < 0 && errno == EINTR) continue;
    if (some < 0) return lastError();
    written += static_cast<std::size_t>(some);
  }
  return {};
}

}  // namespace aps
