#include "monitor/monitor_table.h"

#include "monitor/entries.h"

#include <cstddef>

namespace {

// What comes behind the 19 slots belongs to newer spoolers and is not ours to fill.
constexpr DWORD kTableSize = offsetof(MONITOR2, pfnNotifyUsedPorts);
static_assert(kTableSize == 160 && offsetof(MONITOR2, pfnEnumPorts) == 8);

constexpr MONITOR2 makeTable() {
  MONITOR2 table{};
  table.cbSize = kTableSize;
  table.pfnEnumPorts = MGEnumPorts;
  table.pfnOpenPort = MGOpenPort;
  table.pfnOpenPortEx = nullptr;
  table.pfnStartDocPort = MGStartDocPort;
  table.pfnWritePort = MGWritePort;
  table.pfnReadPort = MGReadPort;
  table.pfnEndDocPort = MGEndDocPort;
  table.pfnClosePort = MGClosePort;
  table.pfnAddPort = MGAddPort;
  table.pfnAddPortEx = MGAddPortEx;
  table.pfnConfigurePort = MGConfigurePort;
  table.pfnDeletePort = MGDeletePort;
  table.pfnGetPrinterDataFromPort = nullptr;
  table.pfnSetPortTimeOuts = MGSetPortTimeOuts;
  table.pfnXcvOpenPort = MGXcvOpenPort;
  table.pfnXcvDataPort = MGXcvDataPort;
  table.pfnXcvClosePort = MGXcvClosePort;
  table.pfnShutdown = MGShutdown;
  table.pfnSendRecvBidiDataFromPort = nullptr;
  return table;
}

}  // namespace

constinit const MONITOR2 g_monitorTable = makeTable();
