#pragma once

#include "session/monitor_class.h"

// Makes PortMonitorServer components. Registered as "Quillfern::NTR::PortMonitorServer", version 4.0.1.0; the component
// server owns it from then on and calls it from any thread.
class PortMonitorServerClass : public MonitorClass {
 public:
  using MonitorClass::MonitorClass;

  CS_Component* createInstance() override;
};
