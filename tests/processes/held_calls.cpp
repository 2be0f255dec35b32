// Loaded in front of a print client (LD_PRELOAD): stops the whole process once, at its second write to a job's file
// (MG_HOLD_AT=write), when the first job's file goes to the disk (MG_HOLD_AT=fsync), or when a printer has made the
// first job and gets its document (MG_HOLD_AT=print). The test that started it sees it stopped, and continues it with
// SIGCONT.

#include <atomic>
#include <cstdlib>
#include <cstring>
#include <cups/cups.h>
#include <dlfcn.h>
#include <signal.h>
#include <string>
#include <sys/syscall.h>
#include <sys/uio.h>
#include <unistd.h>

namespace {

bool isJobFile(int descriptor) {
  char path[4096];
  const std::string link = "/proc/self/fd/" + std::to_string(descriptor);
  const ssize_t length = readlink(link.c_str(), path, sizeof path - 1);
  if (length <= 0) return false;
  path[length] = '\0';
  return std::strstr(path, ".part") != nullptr;
}

bool isWanted(const char* call) {
  const char* const wanted = std::getenv("MG_HOLD_AT");
  return wanted != nullptr && std::strcmp(wanted, call) == 0;
}

void holdAt(const char* call, int descriptor, int which) {
  static std::atomic<int> calls{0};
  if (isWanted(call) && isJobFile(descriptor) && ++calls == which) raise(SIGSTOP);
}

}  // namespace

extern "C" ssize_t write(int descriptor, const void* data, size_t size) {
  holdAt("write", descriptor, 2);
  return syscall(SYS_write, descriptor, data, size);
}

extern "C" ssize_t writev(int descriptor, const iovec* parts, int count) {
  holdAt("write", descriptor, 2);
  return syscall(SYS_writev, descriptor, parts, count);
}

extern "C" int fsync(int descriptor) {
  holdAt("fsync", descriptor, 1);
  return static_cast<int>(syscall(SYS_fsync, descriptor));
}

extern "C" http_status_t cupsWriteRequestData(http_t* http, const char* data, size_t size) {
  static std::atomic<int> calls{0};
  if (isWanted("print") && ++calls == 1) raise(SIGSTOP);
  using Write = http_status_t(http_t*, const char*, size_t);
  return reinterpret_cast<Write*>(dlsym(RTLD_NEXT, "cupsWriteRequestData"))(http, data, size);
}
