#pragma once

#include "corvane/components/class.h"
#include "corvane/components/component.h"

#include <memory>
#include <tuple>
#include <utility>

namespace corvane {

// The class of components with one request layout. Every new component gets what all components of the class share, in
// std::shared_ptr, or nothing where there is none. Called from any thread that makes components; lets no exception out.
template <class Component, class... Shared>
class ComponentClass : public CS_Class {
 public:
  explicit ComponentClass(const CS_Version& version, std::shared_ptr<Shared>... shared)
      : CS_Class(version), m_shared(std::move(shared)...) {}

  int currentSchema() const override { return 1; }

  CS_Component* createInstance() override {
    try {
      return std::apply([](const auto&... shared) { return new Component(shared...); }, m_shared);
    } catch (...) {
      return nullptr;
    }
  }

  bool destroyInstance(CS_Component* component) override {
    try {
      delete component;
    } catch (...) {
      // The component is gone all the same; nobody can do anything about a failure while it was torn down.
    }
    return true;
  }

 private:
  std::tuple<std::shared_ptr<Shared>...> m_shared;
};

}  // namespace corvane
