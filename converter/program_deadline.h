#pragma once

#include "util/win_handle.h"

#include <windows.h>

#include <functional>
#include <thread>
#include <utility>

namespace mg::converter {

// Ends the process after a time, wherever it hangs: its caller waits for it without a limit. Does nothing when the
// object is destroyed before.
class ProgramDeadline {
 public:
  // After `milliseconds`, calls `say` on its own thread and ends the process with `code`.
  ProgramDeadline(DWORD milliseconds, unsigned code, std::function<void()> say)
      : m_isOver(CreateEventW(nullptr, TRUE, FALSE, nullptr)),
        m_thread([isOver = m_isOver.get(), milliseconds, code, say = std::move(say)] {
          if (WaitForSingleObject(isOver, milliseconds) != WAIT_TIMEOUT) return;
          say();
          TerminateProcess(GetCurrentProcess(), code);
        }) {}
  ~ProgramDeadline() {
    SetEvent(m_isOver.get());
    m_thread.join();
  }
  ProgramDeadline(const ProgramDeadline&) = delete;
  ProgramDeadline& operator=(const ProgramDeadline&) = delete;

 private:
  ObjectHandle m_isOver;
  std::thread m_thread;
};

}  // namespace mg::converter
