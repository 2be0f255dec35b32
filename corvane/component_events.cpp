// The events of CS_Component: what happens to a component and to everything standing on it.

#include "corvane/component.h"

#include <algorithm>

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
