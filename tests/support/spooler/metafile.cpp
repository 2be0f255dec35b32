#include "tests/support/spooler/metafile.h"

#include "tests/support/spooler/job_number.h"
#include "tests/support/spooler/system_failure.h"
#include "util/win_handle.h"

#include <winspool.h>

#include <utility>

namespace mg::support {
namespace {

thread_local std::string captured;

std::wstring text(const wchar_t* text) {
  return text != nullptr ? text : L"";
}

template <typename Function>
Function exportOf(HMODULE module, const char* name) {
  const auto function = reinterpret_cast<Function>(reinterpret_cast<void*>(GetProcAddress(module, name)));
  require(function != nullptr, std::string("the PostScript driver has no ") + name);
  return function;
}

}  // namespace

OpenedDocument::OpenedDocument(const PRINTPROCESSOROPENDATA& data)
    : m_datatype(text(data.pDatatype)),
      m_printer(text(data.pPrinterName)),
      m_document(text(data.pDocumentName)),
      m_job(data.JobId) {
  if (data.pDevMode == nullptr) return;
  const auto* const mode = reinterpret_cast<const BYTE*>(data.pDevMode);
  m_mode.assign(mode, mode + data.pDevMode->dmSize + data.pDevMode->dmDriverExtra);
}

std::string OpenedDocument::postScript(const std::wstring& spooled) const {
  const HMODULE driver = LoadLibraryW(L"wineps.drv");
  require(driver != nullptr, "the PostScript driver cannot be loaded");
  const auto open = exportOf<HANDLE(WINAPI*)(LPWSTR, PPRINTPROCESSOROPENDATA)>(driver, "OpenPrintProcessor");
  const auto print = exportOf<BOOL(WINAPI*)(HANDLE, LPWSTR)>(driver, "PrintDocumentOnPrintProcessor");
  const auto close = exportOf<BOOL(WINAPI*)(HANDLE)>(driver, "ClosePrintProcessor");
  // Its calls take writable text.
  std::wstring queue = kCaptureQueue, datatype = m_datatype, printer = m_printer, document = m_document, file = spooled;
  std::vector<BYTE> mode = m_mode;
  PRINTPROCESSOROPENDATA data = {};
  data.pDevMode = mode.empty() ? nullptr : reinterpret_cast<DEVMODEW*>(mode.data());
  data.pDatatype = datatype.data();
  data.pDocumentName = document.data();
  data.JobId = m_job;
  data.pPrinterName = printer.data();
  PrinterHandle ownQueue;
  require(OpenPrinterW(queue.data(), ownQueue.receive(), nullptr), "the capture queue cannot be opened");
  const ObjectHandle number = takeJobNumber(ownQueue.get());
  captured.clear();
  const HANDLE processor = open(queue.data(), &data);
  require(processor != nullptr, "the PostScript driver takes no metafile");
  const bool isPrinted = print(processor, file.data()) != FALSE;
  const DWORD error = GetLastError();
  close(processor);
  if (!isPrinted) throw SystemFailure("the PostScript driver does not print the metafile", error);
  return std::exchange(captured, {});
}

void capture(std::string bytes) {
  captured = std::move(bytes);
}

}  // namespace mg::support
