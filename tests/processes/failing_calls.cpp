// Loaded in front of a program (LD_PRELOAD): makes one call fail, as the file that MG_FAILING_CALLS names says
// (failing_calls.h). Nothing else changes.

#include "tests/processes/failing_calls.h"

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <dlfcn.h>
#include <fcntl.h>
#include <new>
#include <pthread.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/uio.h>
#include <unistd.h>

namespace {

using tests::FailingCalls;

FailingCalls* g_control = nullptr;

__attribute__((constructor)) void mapControl() {
  const char* const file = std::getenv("MG_FAILING_CALLS");
  const auto opened = file == nullptr ? -1 : static_cast<int>(syscall(SYS_openat, AT_FDCWD, file, O_RDWR | O_CLOEXEC));
  if (opened < 0) return;
  void* const mapped = mmap(nullptr, sizeof(FailingCalls), PROT_READ | PROT_WRITE, MAP_SHARED, opened, 0);
  close(opened);
  if (mapped != MAP_FAILED) g_control = static_cast<FailingCalls*>(mapped);
}

bool failsNow(FailingCalls::Kind kind) {
  if (g_control == nullptr || g_control->kind != kind) return false;
  if (kind != FailingCalls::kAllAllocations && g_control->left.fetch_sub(1) != 1) return false;
  ++g_control->failed;
  return true;
}

bool isHeld(const char* path) {
  if (path == nullptr || std::strstr(path, "/held") == nullptr) return false;
  return std::strstr(path, "/held/sessions") == nullptr;
}

// Whether the call with that path is to fail; then errno says why.
bool fails(const char* path, int error) {
  if (g_control == nullptr || g_control->kind != FailingCalls::kFile || !isHeld(path)) return false;
  if (!failsNow(FailingCalls::kFile)) return false;
  errno = error;
  return true;
}

bool fails(int descriptor, int error) {
  if (g_control == nullptr || g_control->kind != FailingCalls::kFile) return false;
  char name[64], path[4096] = "";
  std::snprintf(name, sizeof name, "/proc/self/fd/%d", descriptor);
  return readlink(name, path, sizeof path - 1) > 0 && fails(path, error);
}

}  // namespace

void* operator new(std::size_t size) {
  void* const memory = failsNow(FailingCalls::kAllocation) || failsNow(FailingCalls::kAllAllocations)
                           ? nullptr
                           : std::malloc(size != 0 ? size : 1);
  if (memory == nullptr) throw std::bad_alloc();
  return memory;
}
void operator delete(void* memory) noexcept {
  std::free(memory);
}
void operator delete(void* memory, std::size_t) noexcept {
  std::free(memory);
}

extern "C" int pthread_create(pthread_t* thread, const pthread_attr_t* attributes, void* (*start)(void*),
                              void* argument) noexcept {
  using Create = int (*)(pthread_t*, const pthread_attr_t*, void* (*)(void*), void*);
  static const auto create = reinterpret_cast<Create>(dlsym(RTLD_NEXT, "pthread_create"));
  return failsNow(FailingCalls::kThread) ? EAGAIN : create(thread, attributes, start, argument);
}

extern "C" int clock_gettime(clockid_t clock, timespec* time) noexcept {
  const auto result = static_cast<int>(syscall(SYS_clock_gettime, clock, time));
  if (result == 0 && clock == CLOCK_REALTIME && g_control != nullptr) time->tv_sec += g_control->days * 86400L;
  return result;
}

extern "C" int open(const char* path, int flags, ...) {
  va_list rest;
  va_start(rest, flags);
  const mode_t mode = (flags & O_CREAT) != 0 ? va_arg(rest, mode_t) : 0;
  va_end(rest);
  return fails(path, ENOSPC) ? -1 : static_cast<int>(syscall(SYS_openat, AT_FDCWD, path, flags, mode));
}

extern "C" ssize_t write(int descriptor, const void* data, size_t size) {
  return fails(descriptor, ENOSPC) ? -1 : syscall(SYS_write, descriptor, data, size);
}

extern "C" ssize_t writev(int descriptor, const iovec* parts, int count) {
  return fails(descriptor, ENOSPC) ? -1 : syscall(SYS_writev, descriptor, parts, count);
}

extern "C" int fsync(int descriptor) {
  return fails(descriptor, EIO) ? -1 : static_cast<int>(syscall(SYS_fsync, descriptor));
}

extern "C" int rename(const char* from, const char* to) noexcept {
  return fails(to, EIO) ? -1 : static_cast<int>(syscall(SYS_renameat2, AT_FDCWD, from, AT_FDCWD, to, 0));
}

extern "C" int unlink(const char* path) noexcept {
  return fails(path, EIO) ? -1 : static_cast<int>(syscall(SYS_unlink, path));
}

extern "C" int remove(const char* path) noexcept {
  if (fails(path, EIO)) return -1;
  const auto result = static_cast<int>(syscall(SYS_unlink, path));
  return result != 0 && errno == EISDIR ? static_cast<int>(syscall(SYS_rmdir, path)) : result;
}

extern "C" int mkdir(const char* path, mode_t mode) noexcept {
  return fails(path, ENOSPC) ? -1 : static_cast<int>(syscall(SYS_mkdir, path, mode));
}
