#pragma once

#include <chrono>
#include <cstddef>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace programs {

// A program of this machine and what it is given. A plain value; all texts are UTF-8.
struct ChildCommand {
  std::string program;                 // its path; nothing is looked for in folders of programs
  std::vector<std::string> arguments;  // each one arrives as it is: no shell reads them
  std::vector<std::pair<std::string, std::string>> environment;  // in addition to this process's own
  bool keepsErrors = false;  // whether the end of its standard error is kept; otherwise nobody reads it
};

// A program that runs, with nothing of this process but its environment: no connections, no files, no output, no
// blocked or ignored signals, a process group of its own. The object owns the system's handles of it and, unless end()
// is called, not its life: the program goes on when the object dies. The waits belong to one thread.
class ChildProgram {
 public:
  // Returns when the program runs. Throws std::system_error with the system's words when it does not start.
  static std::unique_ptr<ChildProgram> start(const ChildCommand& command);
  virtual ~ChildProgram() = default;

  virtual unsigned long processId() const = 0;
  // Waits for the program's end and returns its exit code, where 128 and more stands for a signal that ended it;
  // nothing after leave(), or when the time has come. The system forgets the program with its code.
  using Deadline = std::chrono::steady_clock::time_point;
  virtual std::optional<int> wait(Deadline deadline = Deadline::max()) = 0;
  // Ends a wait() that goes on or comes. May be called by any thread.
  virtual void leave() noexcept = 0;
  // Ends the program and what it has started, and waits for that: where there are signals it is asked first and has
  // kEndMilliseconds. For the thread that waits.
  virtual void end() noexcept = 0;
  // The last line of its standard error that is not empty; "" without keepsErrors. Complete once wait() has given a
  // code. At most kErrorBytes, as it was written.
  virtual std::string lastErrorLine() const = 0;

  static constexpr std::size_t kErrorBytes = 4096;
  static constexpr unsigned kEndMilliseconds = 2000;
};

}  // namespace programs
