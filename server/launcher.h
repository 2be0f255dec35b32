#pragma once

#include "server/log.h"
#include "server/started_program.h"

#include <condition_variable>
#include <cstddef>
#include <future>
#include <list>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace aps {

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
