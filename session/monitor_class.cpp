#include "session/monitor_class.h"

#include "session/port_monitor_server.h"
#include "session/print_server.h"

bool MonitorClass::destroyInstance(CS_Component* component) {
  try {
    delete component;
  } catch (...) {
    // The component is gone all the same; nobody can do anything about a failure while it was torn down.
  }
  return true;
}

CS_Component* PortMonitorServerClass::createInstance() {
  try {
    return new PortMonitorServer;
  } catch (...) {
    return nullptr;
  }
}

CS_Component* PrintServerClass::createInstance() {
  try {
    return new PrintServer;
  } catch (...) {
    return nullptr;
  }
}
