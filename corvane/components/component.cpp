#include "corvane/components/component.h"

#include "corvane/components/channel.h"
#include "corvane/components/in_request.h"
#include "corvane/records/exception.h"
#include "corvane/records/messages.h"
#include "corvane/wire/link.h"

#include <algorithm>
#include <exception>

CS_Component::CS_Component(std::size_t maxChildren) : m_maxChildren(maxChildren) {}
CS_Component::~CS_Component() = default;

int CS_Component::addRef() {
  return m_references.add();
}

int CS_Component::removeRef() {
  const int left = m_references.remove();
  if (left != 0) return left;
  if (m_class != nullptr) {
    m_class->destroyInstance(this);
  } else {
    delete this;
  }
  return 0;
}

bool CS_Component::release() {
  releaseChildren();
  return true;
}

bool CS_Component::releasePeer() {
  const CS_Channel* channel = getChannel(false);
  if (channel == nullptr || !channel->isSending()) return false;
  corvane::FrameHeader header;
  header.kind = corvane::FrameKind::kRelease;
  header.bridge = channel->bridge();
  header.component = channel->component();
  try {
    channel->link().sendText(header, L"the other side no longer needs it");
    return true;
  } catch (const CS_Exception&) {
    return false;
  }
}

// Requests

bool CS_Component::processRequest(CS_InRequest& request) {
  return processRequest(request.number(), &request.getChannel());
}

bool CS_Component::processRequest(int, CS_Channel*) {
  return false;
}

void CS_Component::waitForReply(CS_InRequest&, unsigned) {
  // CS_OutRequest::execute has waited already: a reply is complete when its request can be read.
}

// Channel

CS_Channel* CS_Component::getChannel(bool create) {
  const std::lock_guard guard(m_lock);
  if (m_channel == nullptr && create && m_owner) {
    const CS_Component* owner = m_owner.get();
    const bool onBridge = owner->getOwner() != nullptr;
    const auto& link = (onBridge ? owner->getOwner() : owner)->link();
    if (link == nullptr) return nullptr;
    m_channel = std::make_unique<CS_Channel>(link, onBridge ? owner->getIdentifier() : 0, m_identifier);
  }
  return m_channel.get();
}

void CS_Component::destroyChannel() {
  const std::lock_guard guard(m_lock);
  m_channel.reset();
}

void CS_Component::releaseChannel() {
  destroyChannel();
}

bool CS_Component::isConnected() const {
  return m_owner && m_owner->isConnected();
}

CS_RCPtr<CS_Component> CS_Component::getRootOwner() {
  if (!m_owner) return this;
  return m_owner->getRootOwner();
}

CS_Connection* CS_Component::getConnection() {
  return m_owner ? m_owner->getConnection() : nullptr;
}

const std::shared_ptr<corvane::Link>& CS_Component::link() const {
  static const std::shared_ptr<corvane::Link> none;
  return none;
}

std::wstring CS_Component::refusalOf(const std::wstring& className) const {
  return m_owner ? m_owner->refusalOf(className) : std::wstring();
}

// Children

CS_RCPtr<CS_Component> CS_Component::getChild(std::uint32_t identifier) {
  const std::lock_guard guard(m_lock);
  const auto found = m_children.find(identifier);
  return found == m_children.end() ? CS_RCPtr<CS_Component>() : found->second;
}

std::size_t CS_Component::childCount() {
  const std::lock_guard guard(m_lock);
  return m_children.size();
}

bool CS_Component::addChild(CS_Component* child) {
  if (child == nullptr) return false;
  const std::lock_guard guard(m_lock);
  if (m_ended || m_children.size() >= m_maxChildren) return false;
  if (!m_children.emplace(child->getIdentifier(), child).second) return false;
  child->m_owner = this;
  return true;
}

bool CS_Component::removeChild(CS_Component* child) {
  CS_RCPtr<CS_Component> removed;  // released after the lock
  if (child == nullptr) return false;
  const std::lock_guard guard(m_lock);
  const auto found = m_children.find(child->getIdentifier());
  if (found == m_children.end() || found->second.get() != child) return false;
  removed = found->second;
  m_children.erase(found);
  return true;
}

std::vector<CS_RCPtr<CS_Component>> CS_Component::children() {
  std::vector<CS_RCPtr<CS_Component>> result;
  const std::lock_guard guard(m_lock);
  result.reserve(m_children.size());
  for (const auto& [identifier, child] : m_children)
    result.push_back(child);
  return result;
}

void CS_Component::releaseChildren() {
  std::map<std::uint32_t, CS_RCPtr<CS_Component>> released;
  {
    const std::lock_guard guard(m_lock);
    m_ended = true;
    released.swap(m_children);
  }
  std::exception_ptr failure;
  for (const auto& [identifier, child] : released) {
    try {
      child->release();
    } catch (...) {
      failure = std::current_exception();  // the others are told all the same
    }
  }
  if (failure) std::rethrow_exception(failure);
}

// Versions and factories

bool CS_Component::setVersionsOfClassesInPeerProcess(const CS_ClassVersionMap& versions, int option) {
  if (option != kSetVersionsOnOwnPeer || versions.isEmpty()) return false;
  const std::lock_guard guard(m_lock);
  m_peerVersions = versions;
  return true;
}

CS_RCPtr<CS_ClassFactory> CS_Component::getClassFactory(const wchar_t* localClassName, const wchar_t* remoteClassName,
                                                        bool announce) {
  if (localClassName == nullptr || remoteClassName == nullptr || !isConnected()) return nullptr;
  CS_Class* localClass = corvane::ClassRegistry::instance().find(localClassName);
  if (localClass == nullptr) return nullptr;
  {
    const std::lock_guard guard(m_lock);
    if (m_ended) return nullptr;
    if (!m_peerVersions.isEmpty()) {
      const auto theirs = m_peerVersions.find(remoteClassName);
      if (!theirs || theirs->major != localClass->version().major) return nullptr;
    }
  }
  return new CS_ClassFactory(this, localClass, remoteClassName, announce);
}

// Monitor

void CS_Component::setProgramMonitor(const CS_RCPtr<CS_ProgramMonitor>& monitor) {
  CS_RCPtr<CS_ProgramMonitor> old = monitor;  // released after the lock
  const std::lock_guard guard(m_lock);
  std::swap(old, m_monitor);
}

CS_RCPtr<CS_ProgramMonitor> CS_Component::getProgramMonitor() {
  {
    const std::lock_guard guard(m_lock);
    if (m_monitor) return m_monitor;
  }
  return m_owner ? m_owner->getProgramMonitor() : CS_ProgramMonitor::getDefaultMonitor();
}

// The events of CS_Component: what happens to a component and to everything standing on it.
bool CS_Component::onProcessEvent(int) {
  return true;
}
bool CS_Component::onSoloClient(bool) {
  return true;
}

bool CS_Component::allChildren(bool (CS_Component::*operation)()) {
  bool all = true;
  for (const auto& child : children())
    all = (child.get()->*operation)() && all;
  return all;
}

bool CS_Component::processEvent(int event) {
  bool all = onProcessEvent(event);
  std::vector<CS_Listener*> listeners;
  {
    const std::lock_guard guard(m_lock);
    listeners = m_listeners;
  }
  for (CS_Listener* listener : listeners)
    all = listener->onEvent(*this, event) && all;
  return all;
}

bool CS_Component::refresh() {
  const bool own = onRefresh();
  return allChildren(&CS_Component::refresh) && own;
}

bool CS_Component::soloClient(bool solo) {
  bool all = onSoloClient(solo);
  for (const auto& child : children())
    all = child->soloClient(solo) && all;
  return all;
}

bool CS_Component::suspend() {
  m_suspended = true;
  const bool own = onSuspend();
  return allChildren(&CS_Component::suspend) && own;
}

bool CS_Component::resume() {
  m_suspended = false;
  const bool own = onResume();
  return allChildren(&CS_Component::resume) && own;
}

bool CS_Component::addListener(CS_Listener* listener) {
  if (listener == nullptr) return false;
  const std::lock_guard guard(m_lock);
  if (std::find(m_listeners.begin(), m_listeners.end(), listener) != m_listeners.end()) return false;
  m_listeners.push_back(listener);
  return true;
}

bool CS_Component::lookupListener(CS_Listener* listener) {
  const std::lock_guard guard(m_lock);
  return std::find(m_listeners.begin(), m_listeners.end(), listener) != m_listeners.end();
}

bool CS_Component::removeListener(CS_Listener* listener) {
  const std::lock_guard guard(m_lock);
  return std::erase(m_listeners, listener) > 0;
}

// The factory

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
    if (root->getConnection() == nullptr) return nullptr;
    made->setIdentifier(root->nextIdentifier());
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
