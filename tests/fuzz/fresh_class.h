#pragma once

#include "corvane/components/class.h"
#include "corvane/components/component.h"

#include <memory>

namespace fuzz {

// A class whose components work for the context of the input that is being played.
template <class Component>
class FreshClass : public CS_Class {
 public:
  using Context = typename Component::Context;

  explicit FreshClass(const std::shared_ptr<Context>& current) : CS_Class(CS_Version(4, 0, 1, 0)), m_current(current) {}

  int currentSchema() const override { return 1; }
  CS_Component* createInstance() override { return new Component(m_current); }
  bool destroyInstance(CS_Component* component) override {
    delete component;
    return true;
  }

 private:
  const std::shared_ptr<Context>& m_current;  // outlives every component of it
};

}  // namespace fuzz
