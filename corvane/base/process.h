#pragma once

#include <ctime>
#include <string>

// The few facts about this process, its thread and its system that logs need.
namespace corvane {

unsigned long processId();
unsigned long threadId();
std::tm localTime(std::time_t seconds);
// The system's words for an error number (GetLastError's on Windows, errno elsewhere), without the full stop at their
// end unless it is wanted; on Windows empty for a number that it has none for.
std::wstring systemErrorWords(unsigned long error, bool withFullStop = false);

// For as long as one lives, its thread acts as the process and not as the user whom it impersonates: for what belongs
// to the module itself, such as its key and its log, which that user may not read or write. Windows only.
//
// The user's token is put aside and put back at the end, also when an exception comes in between. A thread without one
// is left as it is, and so is one whose token cannot be put aside; then what follows is done as the user. They nest.
// The thread's last error stays. Belongs to its thread, and to a scope of a few calls: nothing of the user's is done
// within.
//
// A token that cannot be put back is not made up for with the rights of the process: the thread goes on as nobody, so
// that what follows is refused, and the log says why with its next line. Where not even that can be had, the process
// ends.
class ProcessIdentity {
 public:
  ProcessIdentity() noexcept;
  ~ProcessIdentity();
  ProcessIdentity(const ProcessIdentity&) = delete;
  ProcessIdentity& operator=(const ProcessIdentity&) = delete;

  // For the log: the error with which a token could not be put back since this was asked last, or 0.
  static unsigned long takeError() noexcept;

 private:
  void* m_token = nullptr;  // put aside; null when there is none
};

}  // namespace corvane
