#pragma once

#include "corvane/components/class.h"
#include "corvane/components/component.h"

#include <memory>
#include <utility>

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

namespace programs {

// The class of a component that needs something of its program: every new component gets the shared context. The
// component names the type as Component::Context and takes a std::shared_ptr to it. Called from any thread that
// creates components.
template <class Component>
class ComponentClass : public CS_Class {
 public:
  using Context = typename Component::Context;

  ComponentClass(const CS_Version& version, std::shared_ptr<Context> context)
      : CS_Class(version), m_context(std::move(context)) {}

  int currentSchema() const override { return 1; }

  CS_Component* createInstance() override {
    try {
      return new Component(m_context);
    } catch (...) {
      return nullptr;
    }
  }

  bool destroyInstance(CS_Component* component) override {
    delete component;
    return true;
  }

 private:
  std::shared_ptr<Context> m_context;
};

}  // namespace programs
