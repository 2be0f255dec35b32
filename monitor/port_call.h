#pragma once

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
  ~PortCall();
  PortCall(const PortCall&) = delete;
  PortCall& operator=(const PortCall&) = delete;

  // Once per call. Throws CS_Exception (3015) when the handle is that of no live port, so also for null and for
  // INVALID_HANDLE_VALUE.
  tagPort& enter(HANDLE handle);

 private:
  tagPort* m_port = nullptr;
};

}  // namespace mg
