#pragma once

#include "server/log.h"

#include <condition_variable>
#include <cstddef>
#include <future>
#include <list>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

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

// Starts programs for the users of sessions and waits for their ends: only programs that this machine's administrator
// has named, and a limited number at a time. The programs run on when this object dies.
//
// Safe from any thread. Each start, each refusal with its cause and each end is a line of the log.
class Launcher {
 public:
  struct Settings {
    std::string command;                                  // what startProgram() asks for
    std::vector<std::string> programs = {"notepad.exe"};  // compared without regard to the case of letters A to Z
    std::size_t limit = 32;                               // of programs that run
  };

  Launcher(Settings settings, std::shared_ptr<Log> log);
  ~Launcher() { endAll(); }
  Launcher(const Launcher&) = delete;
  Launcher& operator=(const Launcher&) = delete;

  // True when the program runs.
  bool launch(const Launch& launch);
  // Writes the line of a program that is not started.
  void refuse(const Launch& launch, const std::string& cause) const;
  // Waits for no program any more and starts none.
  void endAll();

 private:
  struct Watch {
    std::thread thread;
    StartedProgram* program = nullptr;  // lives on the thread; null before and after
    bool ended = false;
  };
  using Position = std::list<Watch>::iterator;

  // The cause of a refusal; empty when the program may be started.
  std::string refusal(const Launch& launch) const;
  // Starts the program on a thread that then waits for its end. An empty answer is success, otherwise the cause.
  std::string start(const Launch& launch);
  void run(Position position, const Launch& launch, std::promise<std::string> outcome) noexcept;
  void watch(Position position, const Launch& launch, StartedProgram& program) noexcept;
  // Joins the threads whose programs have ended.
  void joinEnded();

  const Settings m_settings;
  const std::shared_ptr<Log> m_log;
  std::mutex m_lock;  // guards what follows
  std::list<Watch> m_watches;
  bool m_closing = false;
};

// What follows the program in a Windows command line. The port monitor sends a program's arguments as one quoted word,
// as for a program that starts another one: "/PT \"a.txt\" \"Laser\"" stands for /PT "a.txt" "Laser". Such a word is
// opened; every other text is the command line already and comes back as it is.
std::wstring commandTail(const std::wstring& arguments);

}  // namespace aps
