#pragma once

#include <condition_variable>
#include <mutex>
#include <string>
#include <sys/types.h>
#include <thread>
#include <vector>

namespace tests {

// One program started by a test, with its standard output and error output together, line by line. Used by one test;
// the lines are collected by a thread of its own. When the object dies the program is asked to stop, and a program that
// does not stop in order, or that a sanitizer has complained about, fails the test.
class ChildProcess {
 public:
  // The program's standard input is empty, or what say() writes.
  enum class Input { kNone, kLines };
  explicit ChildProcess(const std::vector<std::string>& command, Input input = Input::kNone);
  ~ChildProcess();
  ChildProcess(const ChildProcess&) = delete;
  ChildProcess& operator=(const ChildProcess&) = delete;

  // The next line that holds the text, after those that earlier calls returned. When the program ends or a minute
  // passes without it, throws std::runtime_error that shows everything that was written.
  std::string waitForLine(const std::string& text);
  // The same for several lines that come in any order.
  void waitForLines(const std::vector<std::string>& texts);
  // Everything written so far.
  std::string output();

  // Gives the program a line of input; it may have ended.
  void say(const std::string& line) const;
  void signal(int number) const;
  // The exit code, or 256 plus the number of the signal that ended the program. May be called again.
  int wait();
  pid_t id() const { return m_id; }

 private:
  void collect();

  pid_t m_id = -1;
  int m_pipe = -1;
  int m_input = -1;  // -1 without input
  int m_ended = -1;  // readable when the program has ended
  int m_status = -1;
  bool m_hasStatus = false;
  std::mutex m_lock;  // guards what follows
  std::condition_variable m_changed;
  std::vector<std::string> m_lines;
  std::size_t m_next = 0;
  bool m_closed = false;
  std::thread m_reader;
};

}  // namespace tests
