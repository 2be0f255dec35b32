#pragma once

#include "util/last_error.h"
#include "util/unique_handle.h"

#include <windows.h>
#include <winspool.h>

#include <cstdint>

// What Windows calls a handle comes in several kinds, each with its own "none" and its own way to close it. Every kind
// that the product holds is named here; closing never changes the thread's last error.
namespace mg {

// A kind of handle: its type, the call that closes it, and the number that stands for "none".
template <typename Handle, void (*kClose)(Handle) noexcept, std::intptr_t kNone = 0>
struct HandleTraits {
  using Type = Handle;
  static Type invalid() noexcept { return reinterpret_cast<Type>(kNone); }
  static void close(Type handle) noexcept {
    const LastErrorKeeper keeper;
    kClose(handle);
  }
};

// What the kinds below are closed with.
inline void closeObject(HANDLE object) noexcept {
  CloseHandle(object);
}
inline void closeSearch(HANDLE search) noexcept {
  FindClose(search);
}
inline void closeKey(HKEY key) noexcept {
  RegCloseKey(key);
}
inline void closePrinter(HANDLE printer) noexcept {
  ClosePrinter(printer);
}

using ObjectHandle = UniqueHandle<HandleTraits<HANDLE, closeObject>>;    // events, mutexes, processes, threads
using FileHandle = UniqueHandle<HandleTraits<HANDLE, closeObject, -1>>;  // CreateFile says "none" with -1
using FindHandle = UniqueHandle<HandleTraits<HANDLE, closeSearch, -1>>;
using RegistryKey = UniqueHandle<HandleTraits<HKEY, closeKey>>;
using PrinterHandle = UniqueHandle<HandleTraits<HANDLE, closePrinter>>;

// The job path closes the printer of a spooled job's settings with CloseHandle: that is the call its contract has, so
// it has a name of its own instead of a naked call.
using PrinterAsObjectHandle = ObjectHandle;

}  // namespace mg
