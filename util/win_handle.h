#pragma once

#include "util/unique_handle.h"

#include <windows.h>
#include <winspool.h>

// What Windows calls a handle comes in several kinds, each with its own "none" and its own way to close it. Every kind
// that the product holds is named here; closing never changes the thread's last error.
namespace mg {

// Restores the last error that the thread had when it was made.
class LastErrorKeeper {
 public:
  LastErrorKeeper() noexcept : m_error(GetLastError()) {}
  ~LastErrorKeeper() { SetLastError(m_error); }
  LastErrorKeeper(const LastErrorKeeper&) = delete;
  LastErrorKeeper& operator=(const LastErrorKeeper&) = delete;

 private:
  DWORD m_error;
};

// Events, mutexes, processes, threads: null is none.
struct ObjectHandleTraits {
  using Type = HANDLE;
  static Type invalid() noexcept { return nullptr; }
  static void close(Type handle) noexcept {
    const LastErrorKeeper keeper;
    CloseHandle(handle);
  }
};
using ObjectHandle = UniqueHandle<ObjectHandleTraits>;

// Files: CreateFile says "none" with -1.
struct FileHandleTraits : ObjectHandleTraits {
  static Type invalid() noexcept { return INVALID_HANDLE_VALUE; }
};
using FileHandle = UniqueHandle<FileHandleTraits>;

// Searches of FindFirstFile.
struct FindHandleTraits {
  using Type = HANDLE;
  static Type invalid() noexcept { return INVALID_HANDLE_VALUE; }
  static void close(Type handle) noexcept {
    const LastErrorKeeper keeper;
    FindClose(handle);
  }
};
using FindHandle = UniqueHandle<FindHandleTraits>;

struct RegistryKeyTraits {
  using Type = HKEY;
  static Type invalid() noexcept { return nullptr; }
  static void close(Type key) noexcept {
    const LastErrorKeeper keeper;
    RegCloseKey(key);
  }
};
using RegistryKey = UniqueHandle<RegistryKeyTraits>;

struct PrinterHandleTraits {
  using Type = HANDLE;
  static Type invalid() noexcept { return nullptr; }
  static void close(Type printer) noexcept {
    const LastErrorKeeper keeper;
    ClosePrinter(printer);
  }
};
using PrinterHandle = UniqueHandle<PrinterHandleTraits>;

// The job path closes the printer of a spooled job's settings with CloseHandle: that is the call its contract has, so
// it has a kind of its own instead of a naked call.
struct PrinterAsObjectTraits : ObjectHandleTraits {};
using PrinterAsObjectHandle = UniqueHandle<PrinterAsObjectTraits>;

}  // namespace mg
