#include "client/persons_printers.h"
#include "corvane/base/text.h"

#include <windows.h>
#include <winspool.h>

#include <array>
#include <fmt/format.h>
#include <stdexcept>
#include <string>

namespace printclient {
namespace {

std::vector<unsigned char> enumeratePrinters(DWORD& count) {
  constexpr DWORD kWhich = PRINTER_ENUM_LOCAL | PRINTER_ENUM_CONNECTIONS;
  std::vector<unsigned char> room;
  DWORD needed = 0;
  // The list may grow between the calls.
  while (!EnumPrintersW(kWhich, nullptr, 2, room.data(), static_cast<DWORD>(room.size()), &needed, &count)) {
    const DWORD error = GetLastError();
    if (error != ERROR_INSUFFICIENT_BUFFER || needed <= room.size()) {
      throw std::runtime_error(
          fmt::format("the printers of this user are not known: error {}; see that the spooler "
                      "runs, or name printers with --printer",
                      error));
    }
    room.resize(needed);
  }
  return room;
}

std::wstring defaultPrinter() {
  std::array<wchar_t, 1024> name{};
  DWORD size = name.size();
  return GetDefaultPrinterW(name.data(), &size) ? name.data() : L"";
}

// A session's printer on the server: the port's name is CPP and a number.
bool isOfThisSystem(const wchar_t* port) {
  const std::wstring name = port == nullptr ? L"" : port;
  return name.starts_with(L"CPP") && name.find_first_of(L"0123456789") == 3;
}

void setText(protocol::Printer& printer, std::size_t index, const wchar_t* text) {
  if (text != nullptr && *text != 0) printer.texts[index] = text;
}

}  // namespace

std::vector<PrinterOption> systemPrinters() {
  DWORD count = 0;
  const std::vector<unsigned char> room = enumeratePrinters(count);
  const auto* const found = reinterpret_cast<const PRINTER_INFO_2W*>(room.data());
  const std::wstring chosen = defaultPrinter();
  std::vector<PrinterOption> printers;
  for (DWORD i = 0; i < count; ++i) {
    if (found[i].pPrinterName == nullptr || isOfThisSystem(found[i].pPortName)) continue;
    PrinterOption result;
    result.target.queue = corvane::toUtf8(found[i].pPrinterName);
    setText(result.printer, protocol::Printer::kNameText, found[i].pPrinterName);
    setText(result.printer, 1, found[i].pComment);
    setText(result.printer, 2, found[i].pLocation);
    setText(result.printer, protocol::Printer::kDriverText, found[i].pDriverName);
    setText(result.printer, 4, found[i].pPortName);
    setText(result.printer, 7, found[i].pShareName);
    result.printer.isDefault = found[i].pPrinterName == chosen;
    printers.push_back(std::move(result));
  }
  return printers;
}

}  // namespace printclient
