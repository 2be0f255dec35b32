// mgtestproc.dll: a print processor for Wine's spooler. That spooler passes neither printer name nor job id on to a
// monitor, but gives both to the print processor; so this one calls the monitor itself, as a spooler on Windows does.
#include "tests/support/spooler/job_outcome.h"
#include "tests/support/spooler/port_job.h"
#include "tests/support/spooler/system_failure.h"
#include "util/win_handle.h"

#include <windows.h>
#include <winsplp.h>
#include <winspool.h>

#include <cstdlib>
#include <memory>
#include <string>

namespace {

using mg::support::PortJob;

// Chosen by the printing program, which is this process.
DWORD writeSize() {
  wchar_t text[16] = {};
  GetEnvironmentVariableW(L"MGTESTPROC_WRITE_SIZE", text, static_cast<DWORD>(std::size(text)));
  const unsigned long size = std::wcstoul(text, nullptr, 10);
  return size > 0 ? size : PortJob().writeSize;
}

std::wstring text(const wchar_t* text) {
  return text != nullptr ? text : L"";
}

// The spooler opens the processor on "CPP5, Port", as if for OpenPrinter.
std::wstring portName(const std::wstring& opened) {
  return opened.substr(0, opened.rfind(L", Port"));
}

std::string print(const PortJob& job, wchar_t* spooled) {
  mg::PrinterHandle file;
  mg::support::require(OpenPrinterW(spooled, file.receive(), nullptr), "the spooled job cannot be opened");
  const auto read = [&](BYTE* buffer, DWORD size) {
    DWORD got = 0;
    return ReadPrinter(file.get(), buffer, size, &got) ? got : 0;
  };
  const std::string failed = printOnPort(mg::support::loadMonitor(), job, read, nullptr);
  return failed.empty() ? mg::support::kPrinted : failed + " failed";
}

}  // namespace

extern "C" {

HANDLE WINAPI OpenPrintProcessor(LPWSTR opened, PPRINTPROCESSOROPENDATA data) {
  if (opened == nullptr || data == nullptr) {
    SetLastError(ERROR_INVALID_PARAMETER);
    return nullptr;
  }
  auto job = std::make_unique<PortJob>();
  job->port = portName(opened);
  job->printer = text(data->pPrinterName);
  job->job = data->JobId;
  job->document = text(data->pDocumentName);
  job->datatype = text(data->pDatatype);
  job->writeSize = writeSize();
  return job.release();
}

BOOL WINAPI PrintDocumentOnPrintProcessor(HANDLE processor, LPWSTR spooled) {
  const PortJob& job = *static_cast<PortJob*>(processor);
  std::string outcome;
  try {
    outcome = print(job, spooled);
  } catch (const std::exception& error) {
    outcome = error.what();
  }
  try {
    mg::support::writeOutcome(job.job, outcome);
  } catch (const std::exception& error) {
    OutputDebugStringA(error.what());
    return FALSE;
  }
  return outcome == mg::support::kPrinted;
}

BOOL WINAPI ClosePrintProcessor(HANDLE processor) {
  delete static_cast<PortJob*>(processor);
  return TRUE;
}

// Pause, resume and cancel do not exist: the job is printed within the call that ends its spooling.
BOOL WINAPI ControlPrintProcessor(HANDLE, DWORD) {
  SetLastError(ERROR_CALL_NOT_IMPLEMENTED);
  return FALSE;
}

BOOL WINAPI EnumPrintProcessorDatatypesW(LPWSTR, LPWSTR, DWORD level, LPBYTE buffer, DWORD size, LPDWORD needed,
                                         LPDWORD count) {
  constexpr wchar_t kRaw[] = L"RAW";
  *count = 0;
  *needed = sizeof(DATATYPES_INFO_1W) + sizeof kRaw;
  if (level != 1 || size < *needed) {
    SetLastError(level != 1 ? ERROR_INVALID_LEVEL : ERROR_INSUFFICIENT_BUFFER);
    return FALSE;
  }
  auto* const name = reinterpret_cast<wchar_t*>(buffer + sizeof(DATATYPES_INFO_1W));
  CopyMemory(name, kRaw, sizeof kRaw);
  reinterpret_cast<DATATYPES_INFO_1W*>(buffer)->pName = name;
  *count = 1;
  return TRUE;
}

}  // extern "C"
