#include "monitor/port_call.h"

#include "corvane/records/exception.h"
#include "corvane/records/messages.h"
#include "monitor/job_end.h"

namespace mg {

PortCall::~PortCall() {
  if (m_port == nullptr) return;
  const PortRecords::Owner deleted = PortRecords::instance().leave(*m_port);
  if (deleted != nullptr) endJobOfDeletedPort(*deleted);
}

tagPort& PortCall::enter(HANDLE handle) {
  m_port = PortRecords::instance().enter(handle);
  if (m_port == nullptr) throw CS_Exception(corvane::kBadArgument, nullptr);
  return *m_port;
}

}  // namespace mg
