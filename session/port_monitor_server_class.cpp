#include "session/port_monitor_server_class.h"

#include "session/port_monitor_server.h"

CS_Component* PortMonitorServerClass::createInstance() {
  try {
    return new PortMonitorServer;
  } catch (...) {
    return nullptr;
  }
}
