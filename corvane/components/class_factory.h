#pragma once

#include "corvane/components/component.h"

#include <map>
#include <mutex>
#include <string>
#include <thread>

// Makes pairs of components on one owner; got from CS_Component::getClassFactory. Keeps its owner alive. Safe from any
// thread.
class CS_ClassFactory {
 public:
  CS_ClassFactory(const CS_RCPtr<CS_Component>& owner, CS_Class* localClass, std::wstring remoteClassName,
                  bool announce);

  int addRef() { return m_references.add(); }
  int removeRef();

  // A new component standing on the owner, which holds its first reference; null when it cannot be made, refuses to
  // initialise, or the owner has ended. The options are 0. Nothing is sent before the channel's start operations and
  // the first request, so the peer's refusal of the class shows in the reply of that request.
  //
  // The owner may end at any moment, on another thread. The factory therefore holds the component for the calling
  // thread as well, until that thread asks it for the next one or the factory dies: the caller takes its own reference
  // before either, and has a component that is safe to use.
  CS_Component* newInstance(unsigned options);

 private:
  void keep(CS_RCPtr<CS_Component> instance);

  corvane::RefCount m_references;
  CS_RCPtr<CS_Component> m_owner;
  CS_Class* m_class;
  std::wstring m_remoteClassName;
  bool m_announce;
  std::mutex m_lock;                                         // guards what follows
  std::map<std::thread::id, CS_RCPtr<CS_Component>> m_made;  // the last one of each thread
};
