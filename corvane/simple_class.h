#pragma once

#include "corvane/class.h"
#include "corvane/component.h"

namespace corvane {

// The class of components that need nothing but their default constructor.
template <class T>
class SimpleClass : public CS_Class {
 public:
  using CS_Class::CS_Class;
  int currentSchema() const override { return 1; }
  CS_Component* createInstance() override {
    try {
      return new T;
    } catch (...) {
      return nullptr;
    }
  }
  bool destroyInstance(CS_Component* component) override {
    delete component;
    return true;
  }
};

}  // namespace corvane
