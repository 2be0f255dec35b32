#include "programs/text.h"
#include "server/state_file.h"

#include <cerrno>
#include <fcntl.h>
#include <stdexcept>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>

namespace aps {
namespace {

[[noreturn]] void fail(const char* what, int error) {
  throw std::runtime_error(std::string("it cannot be ") + what + ": " + std::generic_category().message(error));
}

struct Descriptor {
  explicit Descriptor(int opened) : number(opened) {}
  Descriptor(const Descriptor&) = delete;
  Descriptor& operator=(const Descriptor&) = delete;
  ~Descriptor() {
    if (number >= 0) ::close(number);
  }
  const int number;
};

// A device or a link of that name belongs to somebody else, whatever the account of this process may do with it.
void refuseOtherThanPlainFile(const std::filesystem::path& path) {
  struct stat facts {};
  if (::lstat(path.c_str(), &facts) == 0 && !S_ISREG(facts.st_mode)) throw std::runtime_error("it is no plain file");
}

void write(int descriptor, const std::string& content) {
  for (std::size_t done = 0; done < content.size();) {
    const ssize_t taken = ::write(descriptor, content.data() + done, content.size() - done);
    if (taken < 0 && errno == EINTR) continue;
    if (taken <= 0) fail("written", taken < 0 ? errno : ENOSPC);
    done += static_cast<std::size_t>(taken);
  }
  if (::fsync(descriptor) != 0) fail("written", errno);
}

}  // namespace

std::optional<std::string> StateFile::read() const {
  refuseOtherThanPlainFile(m_path);
  const Descriptor opened(::open(m_path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY | O_NOFOLLOW));
  if (opened.number < 0 && errno == ENOENT) return std::nullopt;
  if (opened.number < 0) fail("opened", errno);
  struct stat facts {};
  if (::fstat(opened.number, &facts) != 0) fail("read", errno);
  if (!S_ISREG(facts.st_mode)) throw std::runtime_error("it is no plain file");
  if (facts.st_uid != ::geteuid() || (facts.st_mode & 022) != 0) {
    throw std::runtime_error("others may have written it");
  }
  if (static_cast<std::size_t>(facts.st_size) > kMaxBytes) throw std::runtime_error("it is too long");
  std::string content(static_cast<std::size_t>(facts.st_size), '\0');
  for (std::size_t done = 0; done < content.size();) {
    const ssize_t got = ::read(opened.number, content.data() + done, content.size() - done);
    if (got < 0 && errno == EINTR) continue;
    if (got < 0) fail("read", errno);
    if (got == 0) break;  // its end is missing, which whoever reads the content will see
    done += static_cast<std::size_t>(got);
  }
  return content;
}

void StateFile::replace(const std::string& content) const {
  if (content.size() > kMaxBytes) throw std::runtime_error("it would be too long");
  refuseOtherThanPlainFile(m_path);
  std::filesystem::path fresh = m_path;
  fresh += ".new";
  ::unlink(fresh.c_str());
  try {
    const Descriptor made(::open(fresh.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC | O_NOFOLLOW, 0600));
    if (made.number < 0) fail("written", errno);
    write(made.number, content);
    if (::rename(fresh.c_str(), m_path.c_str()) != 0) fail("replaced", errno);
  } catch (...) {
    ::unlink(fresh.c_str());
    throw;
  }
  const std::filesystem::path folder = m_path.has_parent_path() ? m_path.parent_path() : ".";
  const Descriptor opened(::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  // Some file systems cannot, and the content is on the disk all the same.
  if (opened.number >= 0) ::fsync(opened.number);
}

void StateFile::setAside() const {
  refuseOtherThanPlainFile(m_path);
  std::filesystem::path aside = m_path;
  aside += ".damaged";
  if (::rename(m_path.c_str(), aside.c_str()) != 0) fail("renamed", errno);
}

}  // namespace aps
