#include "corvane/base/text.h"
#include "corvane/net/network.h"
#include "corvane/records/exception.h"
#include "corvane/records/messages.h"
#include "corvane/trust/key.h"

#include <fcntl.h>
#include <sys/stat.h>

namespace corvane {
namespace {

class Descriptor {
 public:
  explicit Descriptor(int number) : m_number(number) {}
  Descriptor(const Descriptor&) = delete;
  Descriptor& operator=(const Descriptor&) = delete;
  ~Descriptor() {
    if (m_number >= 0) ::close(m_number);
  }
  int get() const { return m_number; }

 private:
  int m_number;
};

[[noreturn]] void fail(const wchar_t* what, const std::string& file, int error) {
  throw CS_Exception(kKeyNeeded, L"the key file cannot be %s (%s): %s", what, networkErrorText(error).c_str(),
                     fromUtf8(file).c_str());
}

// What root makes in the folder of another account is for that account.
bool takesFolderOwner(int descriptor, const std::string& file) {
  if (::geteuid() != 0) return true;
  const std::size_t slash = file.rfind('/');
  const std::string folder = slash == std::string::npos ? "." : file.substr(0, slash + 1);
  struct stat facts {};
  if (::stat(folder.c_str(), &facts) != 0) return false;
  return facts.st_uid == 0 || ::fchown(descriptor, facts.st_uid, facts.st_gid) == 0;
}

}  // namespace

std::size_t readKeyFile(const std::string& file, std::span<unsigned char> buffer) {
  // A pipe under that name must not block the reader.
  const Descriptor opened(::open(file.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY));
  if (opened.get() < 0) fail(L"opened", file, errno);
  struct stat facts {};
  if (::fstat(opened.get(), &facts) != 0) fail(L"read", file, errno);
  if (!S_ISREG(facts.st_mode)) {
    throw CS_Exception(kKeyNeeded, L"the key file is not a regular file: %s", fromUtf8(file).c_str());
  }
  if ((facts.st_mode & 077) != 0) {
    throw CS_Exception(kKeyNeeded, L"others may use the key file; make it private with: chmod 600 %s",
                       fromUtf8(file).c_str());
  }
  std::size_t size = 0;
  while (size < buffer.size()) {
    const ssize_t got = ::read(opened.get(), buffer.data() + size, buffer.size() - size);
    if (got < 0 && errno == EINTR) continue;
    if (got < 0) fail(L"read", file, errno);
    if (got == 0) break;
    size += static_cast<std::size_t>(got);
  }
  return size;
}

void createKeyFile(const std::string& file, std::span<const unsigned char> content) {
  const Descriptor made(::open(file.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600));
  if (made.get() < 0) fail(L"made", file, errno);
  const ssize_t written = ::write(made.get(), content.data(), content.size());
  if (written == static_cast<ssize_t>(content.size()) && takesFolderOwner(made.get(), file) &&
      ::fsync(made.get()) == 0) {
    return;
  }
  const int error = written < 0 || written == static_cast<ssize_t>(content.size()) ? errno : ENOSPC;
  ::unlink(file.c_str());
  fail(L"written", file, error);
}

std::wstring keyFolderRefusal(const std::string& folder) {
  struct stat facts {};
  const std::wstring name = fromUtf8(folder);
  if (::stat(folder.c_str(), &facts) != 0) return networkErrorText(errno) + L": " + name;
  if (!S_ISDIR(facts.st_mode)) return L"it is no folder: " + name;
  if (facts.st_uid != ::geteuid() && facts.st_uid != 0) {
    return L"it belongs to another account (number " + std::to_wstring(facts.st_uid) +
           L"), which may put keys into it; run this as that account, or make it this account's with: chown " +
           std::to_wstring(::geteuid()) + L" " + name;
  }
  if ((facts.st_mode & 022) != 0) {
    return L"others may put keys into it; make it private with: chmod go-rwx " + name;
  }
  return {};
}

}  // namespace corvane
