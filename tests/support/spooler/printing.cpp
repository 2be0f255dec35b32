#include "tests/support/spooler/printing.h"

#include "tests/support/spooler/job_number.h"
#include "tests/support/spooler/job_outcome.h"
#include "tests/support/spooler/system_failure.h"
#include "util/win_handle.h"

#include <winspool.h>

#include <stdexcept>
#include <vector>

namespace mg::support {
namespace {

constexpr DWORD kPiece = 65536;

void spoolFile(HANDLE file, HANDLE printer) {
  std::vector<BYTE> buffer(kPiece);
  for (;;) {
    DWORD size = 0;
    require(ReadFile(file, buffer.data(), kPiece, &size, nullptr), "the file cannot be read");
    if (size == 0) return;
    DWORD written = 0;
    require(WritePrinter(printer, buffer.data(), size, &written), "the spooler refuses the data");
    if (written != size) throw std::runtime_error("the spooler took a part of the data only");
  }
}

}  // namespace

DWORD printFile(const PrintRequest& request) {
  const FileHandle file(
      CreateFileW(request.file.c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING, 0, nullptr));
  require(static_cast<bool>(file), "\"" + utf8(request.file) + "\" cannot be opened");
  if (request.writeSize > 0) {
    SetEnvironmentVariableW(L"MGTESTPROC_WRITE_SIZE", std::to_wstring(request.writeSize).c_str());
  }
  DEVMODEW mode = {};
  mode.dmSize = sizeof mode;
  mode.dmSpecVersion = DM_SPECVERSION;
  mode.dmFields = DM_COPIES;
  mode.dmCopies = request.copies;
  PRINTER_DEFAULTSW defaults = {nullptr, &mode, PRINTER_ACCESS_USE};
  PrinterHandle printer;
  require(OpenPrinterW(const_cast<wchar_t*>(request.printer.c_str()), printer.receive(), &defaults),
          "printer \"" + utf8(request.printer) + "\" cannot be opened");
  std::wstring title = request.title;
  std::wstring datatype = L"RAW";
  DOC_INFO_1W information = {title.data(), nullptr, datatype.data()};
  const ObjectHandle number = takeJobNumber(printer.get());
  const DWORD job = StartDocPrinterW(printer.get(), 1, reinterpret_cast<BYTE*>(&information));
  require(job != 0, "the spooler does not start the document");
  takeOutcome(job);  // of an earlier process that had our number
  spoolFile(file.get(), printer.get());
  const BOOL ended = EndDocPrinter(printer.get());
  const DWORD error = GetLastError();
  const std::string outcome = takeOutcome(job);
  if (outcome == kPrinted) return job;
  if (!outcome.empty()) throw std::runtime_error("job " + std::to_string(job) + " was not printed: " + outcome);
  if (!ended) throw SystemFailure("the spooler does not end the document", error);
  throw std::runtime_error("the spooler did not hand the job to the print processor");
}

}  // namespace mg::support
