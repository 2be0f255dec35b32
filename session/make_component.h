#pragma once

#include "corvane/base/rc_ptr.h"
#include "corvane/components/channel.h"
#include "corvane/components/component.h"
#include "corvane/records/exception.h"
#include "corvane/records/messages.h"
#include "corvane/records/operation.h"
#include "protocol/names.h"

namespace mg {

// A kind of component that the monitor makes together with its peer, and what is recorded, at which level, when its
// owner gives no factory for it or the factory gives no instance. The texts have static lifetime.
struct ComponentKind {
  const wchar_t* localClass;
  const wchar_t* remoteClass;
  int level;
  const wchar_t* withoutFactory;
  const wchar_t* withoutInstance;
};

// The monitor's own component towards the application server; a job has one of its own on its connection.
inline constexpr ComponentKind kPortMonitorServerKind{
    protocol::kPortMonitorServerClass, protocol::kPortMonitorClientClass, corvane::kLevelException,
    L"Failed to get port monitor class factory.", L"Failed to create port monitor server instance."};

// Makes a component of that kind on its owner, a connection or a bridge. Never null: throws CS_Exception, with the
// kind's text recorded on the operation, when the class is not registered, the owner has ended or the peer has no class
// that fits. Nothing is sent before the component's channel is started and its first request. Any thread may call it.
inline CS_RCPtr<CS_Component> makeComponent(Operation& operation, CS_Component& owner, const ComponentKind& kind) {
  const CS_RCPtr<CS_ClassFactory> factory = owner.getClassFactory(kind.localClass, kind.remoteClass, true);
  if (!factory) operation.fail(kind.level, kind.withoutFactory);
  CS_RCPtr<CS_Component> component(factory->newInstance(0));
  if (!component) operation.fail(kind.level, kind.withoutInstance);
  return component;
}

// The same for a component of this module's own class, which is registered under the kind's name.
template <class Component>
CS_RCPtr<Component> makeOwnComponent(Operation& operation, CS_Component& owner, const ComponentKind& kind) {
  return static_cast<Component*>(makeComponent(operation, owner, kind).get());
}

// Makes a component that was just created ready for use: first what it sends may leave, then what its peer sends may
// reach it. Every new remote component of the monitor goes through here before its first request. Throws CS_Exception
// when the component has no channel because its owner has ended.
inline void startChannel(CS_Component& component) {
  CS_Channel* sending = component.getChannel(true);
  if (sending == nullptr) throw CS_Exception(corvane::kMissingObject, nullptr);
  sending->startSending();
  CS_Channel* receiving = component.getChannel(true);
  if (receiving == nullptr) throw CS_Exception(corvane::kMissingObject, nullptr);
  receiving->startReceiving();
}

}  // namespace mg
