#include "corvane/components/class_factory.h"

#include "corvane/components/channel.h"
#include "corvane/components/connection.h"
#include "corvane/records/exception.h"
#include "corvane/wire/link.h"

CS_ClassFactory::CS_ClassFactory(const CS_RCPtr<CS_Component>& owner, CS_Class* localClass,
                                 std::wstring remoteClassName, bool announce)
    : m_owner(owner), m_class(localClass), m_remoteClassName(std::move(remoteClassName)), m_announce(announce) {}

int CS_ClassFactory::removeRef() {
  const int left = m_references.remove();
  if (left == 0) delete this;
  return left;
}

void CS_ClassFactory::keep(CS_RCPtr<CS_Component> instance) {
  // Leaves with the one before it, which is let go after the lock.
  const std::lock_guard guard(m_lock);
  std::swap(m_made[std::this_thread::get_id()], instance);
}

CS_Component* CS_ClassFactory::newInstance(unsigned) {
  CS_Component* made = m_class->createInstance();
  if (made == nullptr) return nullptr;
  made->setClass(m_class);
  const CS_RCPtr<CS_Component> instance = made;  // destroyed here unless it is taken
  try {
    keep(instance);
    const CS_RCPtr<CS_Component> root = m_owner->getRootOwner();
    auto* connection = dynamic_cast<CS_Connection*>(root.get());
    if (connection == nullptr) return nullptr;
    made->setIdentifier(connection->nextIdentifier());
    if (!m_owner->addChild(made)) return nullptr;
    CS_Channel* channel = made->getChannel(true);
    if (channel != nullptr && made->initialize()) {
      if (m_announce) {
        corvane::FrameHeader header;
        header.kind = corvane::FrameKind::kCreate;
        header.bridge = channel->bridge();
        header.component = channel->component();
        corvane::ValueWriter values;
        values.writeText(m_remoteClassName.c_str());
        channel->link().announce(header, values);
      }
      return made;
    }
  } catch (const CS_Exception&) {
    // The connection has ended.
  } catch (const std::exception&) {
    // Not enough memory.
  }
  m_owner->removeChild(made);
  return nullptr;
}
