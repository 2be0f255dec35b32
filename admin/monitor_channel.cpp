#include "admin/monitor_channel.h"

#include "admin/places.h"
#include "admin/system_failure.h"
#include "admin/wine_spooler.h"
#include "util/win_handle.h"

namespace admin {

void sendToMonitor(const wchar_t* command, std::wstring port, const std::string& tried) {
  const DWORD size = static_cast<DWORD>((port.size() + 1) * sizeof(wchar_t));
  BYTE* const name = reinterpret_cast<BYTE*>(port.data());
  if (isWine()) {
    requireStatus(static_cast<LSTATUS>(askMonitorInWine(command, name, size)), tried);
    return;
  }
  std::wstring channel = std::wstring(L",XcvMonitor ") + kMonitorName;
  PRINTER_DEFAULTSW defaults = {nullptr, nullptr, SERVER_ACCESS_ADMINISTER};
  mg::PrinterHandle monitor;
  require(OpenPrinterW(channel.data(), monitor.receive(), &defaults), tried);
  DWORD needed = 0;
  DWORD status = 0;
  require(XcvDataW(monitor.get(), command, name, size, nullptr, 0, &needed, &status), tried);
  requireStatus(static_cast<LSTATUS>(status), tried);
}

}  // namespace admin
