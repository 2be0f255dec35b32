#pragma once

#include "client/sinks/sink.h"
#include "programs/child_program.h"

#include <chrono>
#include <list>
#include <mutex>
#include <string>
#include <vector>

namespace printclient {

// Gives each job to a program, which is started with its own arguments and, behind them, the path of the file. The rest
// stands in its environment, where no text can be taken for an option: PRINTCLIENT_TITLE, PRINTCLIENT_COPIES,
// PRINTCLIENT_PRINTER (as the client knows it) and PRINTCLIENT_USER (the account of this process). No shell reads any
// of it. The file's name ends with the kind of its data; it goes when the program has ended. The copies are the
// program's to make, but for those that the data ask for themselves. A job is taken when the program ends with 0.
class CommandSink : public Sink {
 public:
  struct Settings {
    std::string program;
    std::vector<std::string> arguments;
    bool hasPathForEachCopy = false;             // as many paths as copies, for a program that prints one after another
    std::chrono::seconds limit = kDefaultLimit;  // a program that takes longer is ended, and the job is refused
  };
  // Throws std::runtime_error when the program cannot be one.
  explicit CommandSink(Settings settings);

  TakenJob take(const ArrivedJob& job) override;
  void stop() noexcept override;

  // The port monitor waits 10 minutes for the answer to a job's end: what takes longer would be told as a failure there
  // and could be printed all the same.
  static constexpr std::chrono::seconds kDefaultLimit{540};
  static constexpr std::chrono::seconds kLongestLimit{570};

 private:
  // Counts a program among those that stop() reaches.
  class Running;

  void refuseWhenStopped(const std::string& words);
  programs::ChildCommand commandFor(const ArrivedJob& job) const;
  std::unique_ptr<programs::ChildProgram> start(const ArrivedJob& job) const;

  const Settings m_settings;
  std::mutex m_lock;  // guards what follows
  std::list<programs::ChildProgram*> m_running;
  bool m_stopping = false;
};

}  // namespace printclient
