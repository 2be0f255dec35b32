#pragma once

#include "util/win_handle.h"

#include <windows.h>

#include <functional>
#include <thread>

namespace mg::converter {

// Ends the process at a time, whatever it hangs in then: whoever waits for it waits without limit. Goes quietly when
// the object goes before.
class ProgramDeadline {
 public:
  // After `milliseconds`, calls `say` on a thread of its own and ends the process with `code`.
  ProgramDeadline(DWORD milliseconds, unsigned code, std::function<void()> say);
  ~ProgramDeadline();
  ProgramDeadline(const ProgramDeadline&) = delete;
  ProgramDeadline& operator=(const ProgramDeadline&) = delete;

 private:
  ObjectHandle m_isOver;
  std::thread m_thread;
};

}  // namespace mg::converter
