// mgtestproc.dll: a print processor for Wine's spooler. That spooler passes neither printer name nor job id on to a
// monitor, but gives both to the print processor; so this one calls the monitor itself, as a spooler on Windows does.
#include "tests/support/spooler/job_outcome.h"
#include "tests/support/spooler/metafile.h"
#include "tests/support/spooler/port_job.h"
#include "tests/support/spooler/system_failure.h"
#include "util/win_handle.h"

#include <windows.h>
#include <winsplp.h>
#include <winspool.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <string_view>

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

struct Document {
  PortJob job;
  mg::support::OpenedDocument opened;
};

mg::support::ReadData spooledData(mg::PrinterHandle& file, wchar_t* spooled) {
  mg::support::require(OpenPrinterW(spooled, file.receive(), nullptr), "the spooled job cannot be opened");
  return [&file](BYTE* buffer, DWORD size) {
    DWORD got = 0;
    return ReadPrinter(file.get(), buffer, size, &got) ? got : 0;
  };
}

std::string wholeOf(const mg::support::ReadData& read) {
  std::string whole;
  BYTE buffer[4096];
  for (DWORD got = read(buffer, sizeof buffer); got > 0; got = read(buffer, sizeof buffer))
    whole.append(reinterpret_cast<const char*>(buffer), got);
  return whole;
}

mg::support::ReadData dataOf(const std::string& whole) {
  return [rest = std::string_view(whole)](BYTE* buffer, DWORD size) mutable {
    const std::string_view piece = rest.substr(0, size);
    std::memcpy(buffer, piece.data(), piece.size());
    rest.remove_prefix(piece.size());
    return static_cast<DWORD>(piece.size());
  };
}

std::string print(const Document& document, wchar_t* spooled) {
  PortJob job = document.job;
  mg::PrinterHandle file;
  std::string drawn;
  mg::support::ReadData read;
  if (document.opened.isMetafile()) {
    drawn = document.opened.postScript(spooled);
    job.datatype = L"RAW";
    read = dataOf(drawn);
  } else {
    read = spooledData(file, spooled);
  }
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
  auto document = std::make_unique<Document>(Document{{}, mg::support::OpenedDocument(*data)});
  PortJob* const job = &document->job;
  job->port = portName(opened);
  job->printer = text(data->pPrinterName);
  job->job = data->JobId;
  job->document = text(data->pDocumentName);
  job->datatype = text(data->pDatatype);
  job->writeSize = writeSize();
  return document.release();
}

BOOL WINAPI PrintDocumentOnPrintProcessor(HANDLE processor, LPWSTR spooled) {
  const Document& document = *static_cast<Document*>(processor);
  std::string outcome;
  try {
    if (document.opened.isCaptured()) {
      mg::PrinterHandle file;
      mg::support::capture(wholeOf(spooledData(file, spooled)));
      return TRUE;
    }
    outcome = print(document, spooled);
  } catch (const std::exception& error) {
    outcome = error.what();
  }
  try {
    mg::support::writeOutcome(document.job.job, outcome);
  } catch (const std::exception& error) {
    OutputDebugStringA(error.what());
    return FALSE;
  }
  return outcome == mg::support::kPrinted;
}

BOOL WINAPI ClosePrintProcessor(HANDLE processor) {
  delete static_cast<Document*>(processor);
  return TRUE;
}

// Pause, resume and cancel do not exist: the job is printed within the call that ends its spooling.
BOOL WINAPI ControlPrintProcessor(HANDLE, DWORD) {
  SetLastError(ERROR_CALL_NOT_IMPLEMENTED);
  return FALSE;
}

BOOL WINAPI EnumPrintProcessorDatatypesW(LPWSTR, LPWSTR, DWORD level, LPBYTE buffer, DWORD size, LPDWORD needed,
                                         LPDWORD count) {
  const std::wstring_view types[] = {L"RAW", mg::support::kMetafileType};
  *count = 0;
  *needed = 0;
  for (const std::wstring_view type : types)
    *needed += static_cast<DWORD>(sizeof(DATATYPES_INFO_1W) + (type.size() + 1) * sizeof(wchar_t));
  if (level != 1 || size < *needed) {
    SetLastError(level != 1 ? ERROR_INVALID_LEVEL : ERROR_INSUFFICIENT_BUFFER);
    return FALSE;
  }
  auto* const information = reinterpret_cast<DATATYPES_INFO_1W*>(buffer);
  auto* text = reinterpret_cast<wchar_t*>(buffer + sizeof(DATATYPES_INFO_1W) * std::size(types));
  for (const std::wstring_view type : types) {
    information[(*count)++].pName = text;
    text = std::copy(type.begin(), type.end(), text);
    *text++ = L'\0';
  }
  return TRUE;
}

}  // extern "C"
