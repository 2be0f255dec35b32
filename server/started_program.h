#pragma once

#include <memory>
#include <optional>
#include <string>

namespace aps {

// A program to be started for the user of a session, as the port monitor asks for it. A plain value.
struct Launch {
  std::wstring program;
  std::wstring arguments;
  std::wstring printer;  // its name on this server; empty when the request names none
  int session = 0;       // the printer's
};

// A program that runs. The object owns the system's handles of it and not its life: the program goes on when the object
// dies. wait() belongs to one thread.
class StartedProgram {
 public:
  virtual ~StartedProgram() = default;
  virtual unsigned long processId() const = 0;
  // Waits for the program's end and returns its exit code, where 128 and more stands for a signal that ended it;
  // nothing after leave(). The system forgets the program with this call.
  virtual std::optional<int> wait() = 0;
  // Ends a wait() that goes on or comes. May be called by any thread.
  virtual void leave() noexcept = 0;
};

// Whether the user's session is reached through a command of this machine's administrator, or by the system itself.
#ifdef _WIN32
inline constexpr bool kLaunchesByCommand = false;
#else
inline constexpr bool kLaunchesByCommand = true;
#endif

// Starts the program; returns only when it runs. Throws std::runtime_error with the cause and what to do about it.
//
// On Windows it runs in the session, on its desktop and as its user, from the system folder; the command is not used.
// Elsewhere the command is a program of this machine that is started with four arguments: the session, the program, its
// arguments as one text, and the printer's name. No shell sees them unless the command is one.
std::unique_ptr<StartedProgram> startProgram(const Launch& launch, const std::string& command);

}  // namespace aps
