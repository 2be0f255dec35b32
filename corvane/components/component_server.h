#pragma once

#include "corvane/components/class.h"
#include "corvane/components/component.h"

#include <memory>
#include <tuple>
#include <utility>

// The process's side of the framework: its registered classes. One per process; all operations are safe from any
// thread.
class CS_ComponentServer {
 public:
  // Brings the framework up: the network, the local monitor and the configuration. The arguments are reserved and 0.
  // False when the network cannot be used. May be called again.
  static bool initialize(unsigned first, unsigned second);
  static CS_ComponentServer* getServer();

  // Takes the class over under that name; a class registered before under it is replaced for new components, and kept
  // for those that exist. False for a null name or class.
  bool registerClass(const wchar_t* name, CS_Class* componentClass);
  // Lets a peer create components of the registered class; false when no class has that name. Without it a peer's wish
  // for one is refused, so a process that only dials out can be made to do nothing.
  bool offerClass(const wchar_t* name);
  // Null when no class has that name.
  CS_Class* findClass(const wchar_t* name);
  // The same for what peers may create.
  CS_Class* findOfferedClass(const wchar_t* name);
  void copyRegisteredClassVersionMap(CS_ClassVersionMap& map);
};

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
      // The component is gone all the same; a failure of its destructor cannot be handled.
    }
    return true;
  }

 private:
  std::tuple<std::shared_ptr<Shared>...> m_shared;
};

}  // namespace corvane
