#pragma once

#include "corvane/components/class.h"
#include "corvane/components/component_server.h"

// A component class that never has memory for its components. Lives under a name for as long as this object: another
// class, given to the constructor, takes the name over at its end.
class BarrenClass {
 public:
  BarrenClass(const wchar_t* name, CS_Class* afterwards) : m_name(name), m_afterwards(afterwards) {
    CS_ComponentServer::getServer()->registerClass(name, new Class(afterwards->version()));
  }
  ~BarrenClass() { CS_ComponentServer::getServer()->registerClass(m_name, m_afterwards); }
  BarrenClass(const BarrenClass&) = delete;
  BarrenClass& operator=(const BarrenClass&) = delete;

 private:
  class Class : public CS_Class {
   public:
    using CS_Class::CS_Class;
    int currentSchema() const override { return 1; }
    CS_Component* createInstance() override { return nullptr; }
    bool destroyInstance(CS_Component*) override { return true; }
  };

  const wchar_t* m_name;
  CS_Class* m_afterwards;
};
