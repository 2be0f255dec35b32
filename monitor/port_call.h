#pragma once

#include "corvane/records/exception.h"
#include "corvane/records/messages.h"
#include "monitor/job_end.h"
#include "ports/port_records.h"

#include <windows.h>

namespace mg {

// One call of the spooler on a port: finds the port behind its handle and keeps the record until the call is over,
// whatever becomes of the port meanwhile. The last call on a port that was deleted ends the port's job and frees the
// record. Declared outside of the operation whose clean-up needs the port, too; belongs to the call's thread. Holds no
// lock.
class PortCall {
 public:
  PortCall() = default;
  ~PortCall() {
    if (m_port == nullptr) return;
    const PortRecords::Owner deleted = PortRecords::instance().leave(*m_port);
    if (deleted != nullptr) endJobOfDeletedPort(*deleted);
  }
  PortCall(const PortCall&) = delete;
  PortCall& operator=(const PortCall&) = delete;

  // Once per call. Throws CS_Exception (3015) when the handle is that of no live port, so also for null and for
  // INVALID_HANDLE_VALUE.
  tagPort& enter(HANDLE handle) {
    m_port = PortRecords::instance().enter(handle);
    if (m_port == nullptr) throw CS_Exception(corvane::kBadArgument, nullptr);
    return *m_port;
  }

 private:
  tagPort* m_port = nullptr;
};

}  // namespace mg
