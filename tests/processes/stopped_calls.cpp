// Loaded in front of a program (LD_PRELOAD): stops the whole process once, at its first call that MG_STOP_AT names, as
// in "rename:.job" in front of the call that gives a file such a name, or "rename+:.job" behind it. What stands behind
// the colon is a part of the path. The test that started it sees it stopped, kills it, or continues it with SIGCONT.

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <signal.h>
#include <string>
#include <sys/syscall.h>
#include <sys/uio.h>
#include <unistd.h>

namespace {

void stopAt(const char* call, const char* path) {
  static std::atomic<bool> hasStopped{false};
  const char* const wanted = std::getenv("MG_STOP_AT");
  if (wanted == nullptr || path == nullptr) return;
  const std::size_t length = std::strlen(call);
  if (std::strncmp(wanted, call, length) != 0 || wanted[length] != ':') return;
  if (std::strstr(path, wanted + length + 1) == nullptr || hasStopped.exchange(true)) return;
  raise(SIGSTOP);
}

std::string pathOf(int descriptor) {
  char path[4096];
  const ssize_t length = readlink(("/proc/self/fd/" + std::to_string(descriptor)).c_str(), path, sizeof path - 1);
  return length > 0 ? std::string(path, static_cast<std::size_t>(length)) : std::string();
}

}  // namespace

extern "C" int rename(const char* from, const char* to) noexcept {
  stopAt("rename", to);
  const auto result = static_cast<int>(syscall(SYS_renameat2, AT_FDCWD, from, AT_FDCWD, to, 0));
  stopAt("rename+", to);
  return result;
}

extern "C" int renameat2(int fromFolder, const char* from, int toFolder, const char* to, unsigned flags) noexcept {
  stopAt("rename", to);
  const auto result = static_cast<int>(syscall(SYS_renameat2, fromFolder, from, toFolder, to, flags));
  stopAt("rename+", to);
  return result;
}

extern "C" int unlink(const char* path) noexcept {
  stopAt("unlink", path);
  const auto result = static_cast<int>(syscall(SYS_unlink, path));
  stopAt("unlink+", path);
  return result;
}

extern "C" int fsync(int descriptor) {
  stopAt("fsync", pathOf(descriptor).c_str());
  return static_cast<int>(syscall(SYS_fsync, descriptor));
}

extern "C" ssize_t write(int descriptor, const void* data, size_t size) {
  stopAt("write", pathOf(descriptor).c_str());
  return syscall(SYS_write, descriptor, data, size);
}

extern "C" ssize_t writev(int descriptor, const iovec* parts, int count) {
  stopAt("write", pathOf(descriptor).c_str());
  return syscall(SYS_writev, descriptor, parts, count);
}
