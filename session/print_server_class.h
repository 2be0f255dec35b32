#pragma once

#include "session/monitor_class.h"

// Makes PrintServer components. Registered as "Quillfern::NTR::PrintServer", version 4.0.1.0; the component server owns
// it from then on and calls it from any thread.
class PrintServerClass : public MonitorClass {
 public:
  using MonitorClass::MonitorClass;

  CS_Component* createInstance() override;
};
