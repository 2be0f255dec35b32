#pragma once

#include "corvane/exception.h"
#include "corvane/message_numbers.h"
#include "ports/tag_port.h"

#include <windows.h>

namespace mg {

// The port behind a handle of the spooler. Throws CS_Exception (3015) for null and INVALID_HANDLE_VALUE.
inline tagPort& portOf(HANDLE handle) {
  if (handle == nullptr || handle == INVALID_HANDLE_VALUE) throw CS_Exception(corvane::kBadArgument, nullptr);
  return *static_cast<tagPort*>(handle);
}

}  // namespace mg
