#include "session/monitor_class.h"

bool MonitorClass::destroyInstance(CS_Component* component) {
  try {
    delete component;
  } catch (...) {
    // The component is gone all the same; nobody can do anything about a failure while it was torn down.
  }
  return true;
}
