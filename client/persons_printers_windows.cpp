#include "client/persons_printers.h"
#include "corvane/base/text.h"

#include <windows.h>
#include <winspool.h>

#include <algorithm>
#include <array>
#include <cwchar>
#include <fmt/format.h>
#include <fmt/xchar.h>
#include <map>
#include <mutex>
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

// What a printer can do, as its driver says.
struct Abilities {
  std::vector<std::string> words;  // colour and duplex
  std::vector<std::string> papers;
  int mostDots = 0;  // an inch; 0 when the driver does not say
};

std::vector<std::string> paperNames(const wchar_t* name, const wchar_t* port) {
  constexpr std::size_t kLength = 64;  // of each, and terminated only when it is shorter
  const int count = DeviceCapabilitiesW(name, port, DC_PAPERNAMES, nullptr, nullptr);
  if (count <= 0) return {};
  std::vector<wchar_t> room(static_cast<std::size_t>(count) * kLength);
  const int written = std::min(count, DeviceCapabilitiesW(name, port, DC_PAPERNAMES, room.data(), nullptr));
  std::vector<std::string> names;
  for (int i = 0; i < written; ++i) {
    const wchar_t* const begin = room.data() + static_cast<std::size_t>(i) * kLength;
    names.push_back(corvane::printable(std::wstring_view(begin, wcsnlen(begin, kLength))));
  }
  return names;
}

int mostDots(const wchar_t* name, const wchar_t* port) {
  const int count = DeviceCapabilitiesW(name, port, DC_ENUMRESOLUTIONS, nullptr, nullptr);
  if (count <= 0) return 0;
  std::vector<std::array<LONG, 2>> room(static_cast<std::size_t>(count));  // across and down
  const int written = std::min(
      count, DeviceCapabilitiesW(name, port, DC_ENUMRESOLUTIONS, reinterpret_cast<wchar_t*>(room.data()), nullptr));
  LONG most = 0;
  for (int i = 0; i < written; ++i)
    most = std::max(most, room[static_cast<std::size_t>(i)][0]);
  return static_cast<int>(most);
}

Abilities ask(const PRINTER_INFO_2W& found) {
  const wchar_t* const name = found.pPrinterName;
  const wchar_t* const port = found.pPortName;
  Abilities abilities;
  const int colours = DeviceCapabilitiesW(name, port, DC_COLORDEVICE, nullptr, nullptr);
  if (colours >= 0) abilities.words.emplace_back(colours > 0 ? "colour" : "black and white");
  const int sides = DeviceCapabilitiesW(name, port, DC_DUPLEX, nullptr, nullptr);
  if (sides >= 0) abilities.words.emplace_back(sides > 0 ? "two-sided" : "one-sided");
  abilities.papers = paperNames(name, port);
  abilities.mostDots = mostDots(name, port);
  return abilities;
}

// The driver is loaded into this process to be asked, which is done once: the list of printers is looked at often.
Abilities abilitiesOf(const PRINTER_INFO_2W& found) {
  static std::mutex lock;
  static std::map<std::wstring, Abilities> known;
  const std::wstring key = fmt::format(L"{}\n{}\n{}", found.pPrinterName, found.pPortName ? found.pPortName : L"",
                                       found.pDriverName ? found.pDriverName : L"");
  const std::lock_guard guard(lock);
  const auto present = known.find(key);
  return present != known.end() ? present->second : known.emplace(key, ask(found)).first->second;
}

// The dots per inch of a document that asks for none; 0 when the printer's settings do not say.
int usualDots(const DEVMODEW* mode) {
  return mode != nullptr && (mode->dmFields & DM_PRINTQUALITY) != 0 ? std::max<int>(mode->dmPrintQuality, 0) : 0;
}

// The usual paper first.
void moveToFront(std::vector<std::string>& papers, const DEVMODEW* mode) {
  if (mode == nullptr || (mode->dmFields & DM_FORMNAME) == 0 || mode->dmFormName[0] == 0) return;
  const std::wstring_view form(mode->dmFormName, wcsnlen(mode->dmFormName, CCHFORMNAME));
  const std::string usual = corvane::printable(form);
  std::erase(papers, usual);
  papers.insert(papers.begin(), usual);
}

void describeAbilities(const PRINTER_INFO_2W& found, protocol::Printer& printer) {
  Abilities abilities = abilitiesOf(found);
  moveToFront(abilities.papers, found.pDevMode);
  const int usual = usualDots(found.pDevMode);
  printer.resolution = usual != 0 ? usual : abilities.mostDots;
  std::string comment = found.pComment == nullptr ? "" : corvane::toUtf8(found.pComment);
  for (const std::string& word : abilities.words)
    comment += fmt::format("{}{}", comment.empty() ? "" : ", ", word);
  comment += paperWords(abilities.papers, printer.resolution);
  if (!comment.empty()) printer.texts[1] = corvane::fromUtf8(comment);
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
    describeAbilities(found[i], result.printer);
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
