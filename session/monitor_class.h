#pragma once

#include "corvane/components/class.h"
#include "corvane/components/component.h"

// What the classes of the monitor's components have in common: one request layout, and destruction that never throws.
class MonitorClass : public CS_Class {
 public:
  using CS_Class::CS_Class;

  int currentSchema() const override { return 1; }
  bool destroyInstance(CS_Component* component) override;
};

// Makes PortMonitorServer components. Registered as "Quillfern::NTR::PortMonitorServer", version 4.0.1.0; the component
// server owns it from then on and calls it from any thread.
class PortMonitorServerClass : public MonitorClass {
 public:
  using MonitorClass::MonitorClass;

  CS_Component* createInstance() override;
};

// Makes PrintServer components. Registered as "Quillfern::NTR::PrintServer", version 4.0.1.0; the component server owns
// it from then on and calls it from any thread.
class PrintServerClass : public MonitorClass {
 public:
  using MonitorClass::MonitorClass;

  CS_Component* createInstance() override;
};
