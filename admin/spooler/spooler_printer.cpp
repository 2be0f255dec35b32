#include "admin/spooler/spooler_printer.h"

#include "admin/base/failure.h"
#include "admin/spooler/spooler_list.h"
#include "admin/spooler/wine_spooler.h"
#include "corvane/base/text.h"
#include "programs/text.h"
#include "util/win_handle.h"

#include <winspool.h>

#include <algorithm>
#include <fmt/format.h>
#include <vector>

namespace admin {
namespace {

std::string namedPrinter(const std::wstring& name) {
  return fmt::format("printer \"{}\"", corvane::toUtf8(name));
}

mg::PrinterHandle openPrinter(const std::wstring& name, ACCESS_MASK access, const std::string& tried) {
  PRINTER_DEFAULTSW defaults = {nullptr, nullptr, access};
  mg::PrinterHandle handle;
  require(OpenPrinterW(const_cast<wchar_t*>(name.c_str()), handle.receive(), &defaults), tried);
  return handle;
}

// The spooler's record, with pointers into a copy of the printer.
class Information {
 public:
  explicit Information(const SpoolerPrinter& printer) : m_printer(printer) {
    m_record.pPrinterName = m_printer.name.data();
    m_record.pPortName = m_printer.port.data();
    m_record.pDriverName = m_printer.driver.data();
    m_record.pPrintProcessor = m_printer.processor.data();
    m_record.pComment = m_printer.comment.data();
    m_record.pDatatype = m_datatype.data();
  }
  BYTE* bytes() { return reinterpret_cast<BYTE*>(&m_record); }

 private:
  SpoolerPrinter m_printer;
  std::wstring m_datatype = L"RAW";
  PRINTER_INFO_2W m_record = {};
};

}  // namespace

std::vector<SpoolerPrinter> localPrinters() {
  const SpoolerList<PRINTER_INFO_2W> list(
      "the printers cannot be listed", [](BYTE* buffer, DWORD size, DWORD* needed, DWORD* count) {
        return EnumPrintersW(PRINTER_ENUM_LOCAL, nullptr, 2, buffer, size, needed, count);
      });
  std::vector<SpoolerPrinter> printers;
  for (const PRINTER_INFO_2W& printer : list) {
    printers.push_back(
        {textOf(printer.pPrinterName), textOf(printer.pPortName), textOf(printer.pDriverName),
         textOf(printer.pPrintProcessor), textOf(printer.pComment),
         (printer.Status & PRINTER_STATUS_PENDING_DELETION) != 0, (printer.Status & PRINTER_STATUS_PAUSED) != 0,
         (printer.Status & PRINTER_STATUS_OFFLINE) != 0 || (printer.Attributes & PRINTER_ATTRIBUTE_WORK_OFFLINE) != 0});
  }
  return printers;
}

std::vector<SpoolerPrinter> printersOn(const std::vector<std::wstring>& ports) {
  std::vector<SpoolerPrinter> printers = localPrinters();
  std::erase_if(printers, [&](const SpoolerPrinter& printer) {
    return std::find(ports.begin(), ports.end(), printer.port) == ports.end();
  });
  return printers;
}

void addPrinter(const SpoolerPrinter& printer) {
  Information information(printer);
  const mg::PrinterHandle handle(AddPrinterW(nullptr, 2, information.bytes()));
  require(static_cast<bool>(handle), fmt::format("{} cannot be added", namedPrinter(printer.name)));
}

void changePrinter(const SpoolerPrinter& printer) {
  const std::string tried = fmt::format("{} cannot be changed", namedPrinter(printer.name));
  const mg::PrinterHandle handle = openPrinter(printer.name, PRINTER_ALL_ACCESS, tried);
  Information information(printer);
  require(SetPrinterW(handle.get(), 2, information.bytes(), 0), tried);
}

void deletePrinter(const std::wstring& name) {
  const std::string tried = fmt::format("{} cannot be removed", namedPrinter(name));
  const mg::PrinterHandle handle = openPrinter(name, PRINTER_ALL_ACCESS, tried);
  require(DeletePrinter(handle.get()), tried);
}

std::wstring defaultPrinter() {
  wchar_t name[1024];
  DWORD size = static_cast<DWORD>(std::size(name));
  return GetDefaultPrinterW(name, &size) ? name : std::wstring();
}

void setDefaultPrinter(const std::wstring& name) {
  require(SetDefaultPrinterW(name.c_str()), fmt::format("{} cannot be made the default printer", namedPrinter(name)));
}

namespace {

constexpr DWORD kSpooledPiece = 65536;

void spool(HANDLE file, HANDLE printer, const RawDocument& document, const TellProgress& tell) {
  LARGE_INTEGER size = {};
  require(GetFileSizeEx(file, &size), fmt::format("{} cannot be read", programs::quoted(document.file)));
  unsigned long long done = 0;
  std::vector<BYTE> piece(kSpooledPiece);
  for (;;) {
    tell(done, static_cast<unsigned long long>(size.QuadPart));
    DWORD length = 0;
    require(ReadFile(file, piece.data(), kSpooledPiece, &length, nullptr),
            fmt::format("{} cannot be read", programs::quoted(document.file)));
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
    throw Failure(ExitCode::kUsage, fmt::format("{} is a folder", programs::quoted(document.file)), "Name a file.");
  }
  const mg::FileHandle file(
      CreateFileW(document.file.c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING, 0, nullptr));
  require(static_cast<bool>(file), fmt::format("{} cannot be opened", programs::quoted(document.file)));
  DEVMODEW mode = {};
  mode.dmSize = sizeof mode;
  mode.dmSpecVersion = DM_SPECVERSION;
  mode.dmFields = DM_COPIES;
  mode.dmCopies = document.copies;
  PRINTER_DEFAULTSW defaults = {nullptr, &mode, PRINTER_ACCESS_USE};
  mg::PrinterHandle printer;
  require(OpenPrinterW(const_cast<wchar_t*>(document.printer.c_str()), printer.receive(), &defaults),
          fmt::format("printer {} cannot be opened", programs::quoted(document.printer)));
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
