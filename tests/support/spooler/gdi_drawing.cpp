#include "tests/support/spooler/gdi_drawing.h"

#include "tests/support/spooler/job_number.h"
#include "tests/support/spooler/system_failure.h"
#include "util/unique_handle.h"
#include "util/win_handle.h"

#include <winspool.h>

#include <array>
#include <cstdint>
#include <stdexcept>

namespace mg::support {
namespace {

struct DeviceTraits {
  using Type = HDC;
  static Type invalid() noexcept { return nullptr; }
  static void close(Type device) noexcept { DeleteDC(device); }
};

// Wine's driver reads its description of the printer, once per process, from a file that it opens for nobody else to
// open meanwhile. Programs that draw at the same moment ask again.
LONG sizeOfDeviceMode(HANDLE printer, std::wstring& name) {
  constexpr ULONGLONG kMilliseconds = 30000;
  for (const ULONGLONG end = GetTickCount64() + kMilliseconds;; Sleep(20)) {
    const LONG size = DocumentPropertiesW(nullptr, printer, name.data(), nullptr, nullptr, 0);
    if (size >= 0 || GetLastError() != ERROR_SHARING_VIOLATION || GetTickCount64() >= end) return size;
  }
}

// The printer's own device mode with the copies changed, and checked by the driver. Bytes, because a driver's private
// part follows the structure.
std::vector<BYTE> deviceMode(HANDLE printer, std::wstring name, short copies) {
  const LONG size = sizeOfDeviceMode(printer, name);
  require(size >= static_cast<LONG>(sizeof(DEVMODEW)), "the driver does not say how large its device mode is");
  std::vector<BYTE> bytes(static_cast<std::size_t>(size));
  auto* const mode = reinterpret_cast<DEVMODEW*>(bytes.data());
  require(DocumentPropertiesW(nullptr, printer, name.data(), mode, nullptr, DM_OUT_BUFFER) == IDOK,
          "the driver gives no device mode");
  mode->dmFields |= DM_COPIES;
  mode->dmCopies = copies;
  require(DocumentPropertiesW(nullptr, printer, name.data(), mode, mode, DM_IN_BUFFER | DM_OUT_BUFFER) == IDOK,
          "the driver does not take the device mode");
  return bytes;
}

// A picture of 64 x 64 dots, red from left to right and green from bottom to top.
void drawPicture(HDC device, int left, int top, int size) {
  constexpr int kSide = 64;
  std::array<std::uint32_t, kSide * kSide> dots;
  for (int y = 0; y < kSide; ++y) {
    for (int x = 0; x < kSide; ++x)
      dots[static_cast<std::size_t>(y * kSide + x)] =
          static_cast<std::uint32_t>(x * 4) << 16 | static_cast<std::uint32_t>(y * 4) << 8;
  }
  BITMAPINFO picture = {};
  picture.bmiHeader = {sizeof picture.bmiHeader, kSide, kSide, 1, 32, BI_RGB, 0, 0, 0, 0, 0};
  require(StretchDIBits(device, left, top, size, size, 0, 0, kSide, kSide, dots.data(), &picture, DIB_RGB_COLORS,
                        SRCCOPY) == kSide,
          "the driver does not take the picture");
}

void drawPage(HDC device, const std::wstring& text) {
  require(StartPage(device) > 0, "the driver does not start a page");
  const int unit = GetDeviceCaps(device, LOGPIXELSX) / 72;
  Rectangle(device, 60 * unit, 60 * unit, 400 * unit, 110 * unit);
  TextOutW(device, 72 * unit, 72 * unit, text.c_str(), static_cast<int>(text.size()));
  drawPicture(device, 72 * unit, 144 * unit, 200 * unit);
  require(EndPage(device) > 0, "the driver does not end a page");
}

}  // namespace

DWORD printDrawing(const std::wstring& name, const Drawing& drawing, short copies) {
  PrinterHandle printer;
  require(OpenPrinterW(const_cast<wchar_t*>(name.c_str()), printer.receive(), nullptr),
          "there is no printer \"" + utf8(name) + "\"");
  std::vector<BYTE> mode = deviceMode(printer.get(), name, copies);
  const UniqueHandle<DeviceTraits> device(
      CreateDCW(L"WINSPOOL", name.c_str(), nullptr, reinterpret_cast<DEVMODEW*>(mode.data())));
  require(static_cast<bool>(device), "the driver of \"" + utf8(name) + "\" does not start");
  DOCINFOW document = {};
  document.cbSize = sizeof document;
  document.lpszDocName = drawing.title.c_str();
  const ObjectHandle number = takeJobNumber(printer.get());
  const int job = StartDocW(device.get(), &document);
  require(job > 0, "the document cannot be started");
  for (const std::wstring& page : drawing.pages)
    drawPage(device.get(), page);
  require(EndDoc(device.get()) > 0, "the document cannot be ended");
  return static_cast<DWORD>(job);
}

}  // namespace mg::support
