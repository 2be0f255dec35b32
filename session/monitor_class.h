#pragma once

#include "corvane/class.h"
#include "corvane/component.h"

// What the classes of the monitor's components have in common: one request layout, and destruction that never throws.
class MonitorClass : public CS_Class {
 public:
  using CS_Class::CS_Class;

  int currentSchema() const override { return 1; }
  bool destroyInstance(CS_Component* component) override;
};
