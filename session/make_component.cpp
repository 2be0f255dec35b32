#include "session/make_component.h"

#include "corvane/components/component.h"
#include "corvane/records/operation.h"

namespace mg {

CS_RCPtr<CS_Component> makeComponent(Operation& operation, CS_Component& owner, const ComponentKind& kind) {
  const CS_RCPtr<CS_ClassFactory> factory = owner.getClassFactory(kind.localClass, kind.remoteClass, true);
  if (!factory) operation.fail(kind.level, kind.withoutFactory);
  CS_RCPtr<CS_Component> component(factory->newInstance(0));
  if (!component) operation.fail(kind.level, kind.withoutInstance);
  return component;
}

}  // namespace mg
