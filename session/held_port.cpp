#include "session/held_port.h"

#include "corvane/records/exception.h"
#include "corvane/records/messages.h"
#include "ports/port_list.h"

#include <cwchar>

namespace mg {

CPortList& portList() {
  CPortList* list = CPortList::instance();
  if (list == nullptr) throw CS_Exception(corvane::kMissingObject, nullptr);
  return *list;
}

HeldPort::HeldPort(CPortList& list, const wchar_t* name) : m_port(list.FindPort(name)) {}

HeldPort::~HeldPort() {
  if (m_port != nullptr && CPortList::instance() != nullptr) m_port->lock->unlock();
}

SessionPortName::SessionPortName(unsigned int sessionId) {
  // Session numbers are written as signed ones.
  std::swprintf(text, std::size(text), L"CPP%d", static_cast<int>(sessionId));
}

}  // namespace mg
