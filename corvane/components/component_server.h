#pragma once

#include "corvane/components/class.h"

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
