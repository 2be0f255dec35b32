// An application as the spooler knows them: draws pages through GDI and the printer's driver.
//
//   gdi_page PRINTER TITLE TEXT...     one page for each text
//
// Ends with 0 only when the monitor took the job to its end.
#include "tests/support/spooler/job_outcome.h"
#include "tests/support/spooler/system_failure.h"
#include "util/unique_handle.h"

#include <windows.h>

#include <cstdio>
#include <stdexcept>
#include <string>
#include <vector>

namespace {

struct DeviceTraits {
  using Type = HDC;
  static Type invalid() noexcept { return nullptr; }
  static void close(Type device) noexcept { DeleteDC(device); }
};

void drawPage(HDC device, const std::wstring& text) {
  mg::support::require(StartPage(device) > 0, "the driver does not start a page");
  const int unit = GetDeviceCaps(device, LOGPIXELSX) / 72;
  Rectangle(device, 60 * unit, 60 * unit, 400 * unit, 110 * unit);
  TextOutW(device, 72 * unit, 72 * unit, text.c_str(), static_cast<int>(text.size()));
  mg::support::require(EndPage(device) > 0, "the driver does not end a page");
}

void print(const std::wstring& printer, const std::wstring& title, const std::vector<std::wstring>& pages) {
  const UniqueHandle<DeviceTraits> device(CreateDCW(L"WINSPOOL", printer.c_str(), nullptr, nullptr));
  mg::support::require(static_cast<bool>(device), "there is no printer \"" + mg::support::utf8(printer) + "\"");
  DOCINFOW document = {};
  document.cbSize = sizeof document;
  document.lpszDocName = title.c_str();
  const int job = StartDocW(device.get(), &document);
  mg::support::require(job > 0, "the document cannot be started");
  for (const std::wstring& page : pages)
    drawPage(device.get(), page);
  EndDoc(device.get());
  const std::string outcome = mg::support::takeOutcome(static_cast<DWORD>(job));
  if (outcome != mg::support::kPrinted) throw std::runtime_error("job " + std::to_string(job) + ": " + outcome);
}

}  // namespace

int wmain(int count, wchar_t** words) {
  if (count < 4) {
    std::fprintf(stderr, "usage: gdi_page PRINTER TITLE TEXT...\n");
    return 2;
  }
  try {
    print(words[1], words[2], {words + 3, words + count});
    return 0;
  } catch (const std::exception& error) {
    std::fprintf(stderr, "gdi_page: %s\n", error.what());
    return 1;
  }
}
