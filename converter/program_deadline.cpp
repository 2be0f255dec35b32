#include "converter/program_deadline.h"

#include <utility>

namespace mg::converter {

ProgramDeadline::ProgramDeadline(DWORD milliseconds, unsigned code, std::function<void()> say)
    : m_isOver(CreateEventW(nullptr, TRUE, FALSE, nullptr)),
      m_thread([isOver = m_isOver.get(), milliseconds, code, say = std::move(say)] {
        if (WaitForSingleObject(isOver, milliseconds) != WAIT_TIMEOUT) return;
        say();
        TerminateProcess(GetCurrentProcess(), code);
      }) {}

ProgramDeadline::~ProgramDeadline() {
  SetEvent(m_isOver.get());
  m_thread.join();
}

}  // namespace mg::converter
