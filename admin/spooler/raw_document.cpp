#include "admin/spooler/raw_document.h"

#include "admin/base/failure.h"
#include "admin/spooler/wine_spooler.h"
#include "corvane/base/text.h"
#include "programs/text.h"
#include "util/win_handle.h"

#include <winspool.h>

#include <vector>

namespace admin {
namespace {

constexpr DWORD kPiece = 65536;

void spool(HANDLE file, HANDLE printer, const RawDocument& document, const TellProgress& tell) {
  LARGE_INTEGER size = {};
  require(GetFileSizeEx(file, &size), programs::quoted(document.file) + " cannot be read");
  unsigned long long done = 0;
  std::vector<BYTE> piece(kPiece);
  for (;;) {
    tell(done, static_cast<unsigned long long>(size.QuadPart));
    DWORD length = 0;
    require(ReadFile(file, piece.data(), kPiece, &length, nullptr),
            programs::quoted(document.file) + " cannot be read");
    if (length == 0) return;
    DWORD written = 0;
    require(WritePrinter(printer, piece.data(), length, &written), "the spooler refuses the data");
    if (written != length) throw SystemFailure("the spooler took a part of the data only", ERROR_DISK_FULL);
    done += length;
  }
}

}  // namespace

SpooledDocument printDocument(const RawDocument& document, const TellProgress& tell) {
  const DWORD attributes = GetFileAttributesW(document.file.c_str());
  if (attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_DIRECTORY) != 0) {
    throw Failure(ExitCode::kUsage, programs::quoted(document.file) + " is a folder", "Name a file.");
  }
  const mg::FileHandle file(
      CreateFileW(document.file.c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING, 0, nullptr));
  require(static_cast<bool>(file), programs::quoted(document.file) + " cannot be opened");
  DEVMODEW mode = {};
  mode.dmSize = sizeof mode;
  mode.dmSpecVersion = DM_SPECVERSION;
  mode.dmFields = DM_COPIES;
  mode.dmCopies = document.copies;
  PRINTER_DEFAULTSW defaults = {nullptr, &mode, PRINTER_ACCESS_USE};
  mg::PrinterHandle printer;
  require(OpenPrinterW(const_cast<wchar_t*>(document.printer.c_str()), printer.receive(), &defaults),
          "printer " + programs::quoted(document.printer) + " cannot be opened");
  std::wstring title = document.title;
  std::wstring datatype = L"RAW";
  DOC_INFO_1W information = {title.data(), nullptr, datatype.data()};
  const mg::ObjectHandle number = isWine() ? takeJobNumberInWine(printer.get()) : mg::ObjectHandle();
  const DWORD job = StartDocPrinterW(printer.get(), 1, reinterpret_cast<BYTE*>(&information));
  require(job != 0, "the spooler does not start the document");
  try {
    spool(file.get(), printer.get(), document, tell);
  } catch (...) {
    SetJobW(printer.get(), job, 0, nullptr, JOB_CONTROL_DELETE);
    AbortPrinter(printer.get());
    throw;
  }
  SpooledDocument spooled{job, 0};
  if (!EndDocPrinter(printer.get())) spooled.endError = GetLastError();
  return spooled;
}

}  // namespace admin
