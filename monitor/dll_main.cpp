#include "ports/port_list.h"
#include "session/port_monitor_server.h"

#include <windows.h>

// The module's entry. Everything is created by InitializePrintMonitor2; only the end is here.
extern "C" BOOL WINAPI DllMain(HINSTANCE module, DWORD reason, LPVOID) {
  switch (reason) {
    case DLL_PROCESS_ATTACH:
    case DLL_THREAD_ATTACH:
      DisableThreadLibraryCalls(module);
      break;
    case DLL_PROCESS_DETACH:
      PortMonitorServer::shutdown();
      if (CPortList* list = CPortList::instance()) {
        CPortList::setInstance(nullptr);
        delete list;
      }
      break;
    default:
      break;
  }
  return TRUE;
}
