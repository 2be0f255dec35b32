#include "tests/support/spooler/stand_in_queue.h"

#include "tests/support/spooler/system_failure.h"

#include <winspool.h>

#include <cstdio>
#include <cstring>
#include <stdexcept>
#include <string>

namespace mg::support {
namespace {

QueueWords queueWords = QueueWords::kSaid;
const HANDLE kPrinter = reinterpret_cast<HANDLE>(0x7770001);

BOOL WINAPI openPrinter(LPWSTR, LPHANDLE out, LPPRINTER_DEFAULTSW) {
  *out = kPrinter;
  return TRUE;
}

BOOL WINAPI closePrinter(HANDLE printer) {
  return printer == kPrinter;
}

// A job without a device mode.
BOOL WINAPI getJob(HANDLE, DWORD, DWORD, LPBYTE buffer, DWORD room, LPDWORD needed) {
  *needed = sizeof(JOB_INFO_2W);
  if (buffer == nullptr || room < *needed) return FALSE;
  std::memset(buffer, 0, *needed);
  return TRUE;
}

BOOL WINAPI setJob(HANDLE printer, DWORD job, DWORD, LPBYTE, DWORD command) {
  if (queueWords == QueueWords::kNotSaid) return printer == kPrinter;
  std::string what = "command " + std::to_string(command);
  if (command == JOB_CONTROL_DELETE) what = "deleted";
  if (command == JOB_CONTROL_SENT_TO_PRINTER) what = "marked sent";
  std::printf("queue: job %lu %s\n", static_cast<unsigned long>(job), what.c_str());
  std::fflush(stdout);
  return printer == kPrinter;
}

template <class Type>
Type* at(HMODULE module, std::size_t offset) {
  return reinterpret_cast<Type*>(reinterpret_cast<BYTE*>(module) + offset);
}

// The place where the module keeps the address of what it imports by that name.
ULONGLONG* importOf(HMODULE module, const char* name) {
  const auto& headers =
      *at<IMAGE_NT_HEADERS64>(module, static_cast<std::size_t>(at<IMAGE_DOS_HEADER>(module, 0)->e_lfanew));
  const auto& table = headers.OptionalHeader.DataDirectory[IMAGE_DIRECTORY_ENTRY_IMPORT];
  for (auto* from = at<IMAGE_IMPORT_DESCRIPTOR>(module, table.VirtualAddress); from->Name != 0; ++from) {
    const auto* names = at<IMAGE_THUNK_DATA64>(module, from->OriginalFirstThunk);
    auto* addresses = at<IMAGE_THUNK_DATA64>(module, from->FirstThunk);
    for (; names->u1.AddressOfData != 0; ++names, ++addresses) {
      if (IMAGE_SNAP_BY_ORDINAL64(names->u1.Ordinal)) continue;
      const char* imported = at<IMAGE_IMPORT_BY_NAME>(module, names->u1.AddressOfData)->Name;
      if (std::strcmp(imported, name) == 0) return &addresses->u1.Function;
    }
  }
  throw std::runtime_error("the module does not import " + std::string(name));
}

template <class Function>
void turn(HMODULE module, const char* name, Function* to) {
  ULONGLONG* address = importOf(module, name);
  DWORD before = 0;
  require(VirtualProtect(address, sizeof *address, PAGE_READWRITE, &before), "the module's imports cannot be changed");
  *address = reinterpret_cast<ULONGLONG>(to);
  VirtualProtect(address, sizeof *address, before, &before);
}

}  // namespace

void useStandInQueue(HMODULE module, QueueWords words) {
  queueWords = words;
  turn(module, "OpenPrinterW", openPrinter);
  turn(module, "ClosePrinter", closePrinter);
  turn(module, "GetJobW", getJob);
  turn(module, "SetJobA", setJob);
}

}  // namespace mg::support
