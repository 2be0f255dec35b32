#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <thread>
#include <vector>

namespace programs {

// Where the lines of a LineQueue go. Called on the queue's own thread only, which may wait in it for as long as it
// takes. Owned by the queue, and by its thread when that one is stuck in it while the program ends.
class LineOutput {
 public:
  using Clock = std::chrono::steady_clock;

  virtual ~LineOutput() = default;
  // Writes the text, one or several lines with their ends. Empty when all of it is written, otherwise why not.
  virtual std::string write(const std::string& text) = 0;
  // Says that so many lines are missing at this place; the result is that of write().
  virtual std::string writeLost(std::uint64_t count, const std::string& why) = 0;
  // When something is to be written although no line is put; asked after each line. The lines, with their ends, are
  // taken then.
  virtual Clock::time_point dueAt() { return Clock::time_point::max(); }
  virtual std::vector<std::string> takeDue() { return {}; }
};

inline constexpr int kStandardOutput = 1;
inline constexpr int kStandardError = 2;

// An open file descriptor owned elsewhere, such as the standard output. Nothing is kept back in a buffer.
std::unique_ptr<LineOutput> outputTo(int descriptor);

// Lines on their way to an output that may be slow, stopped, full or gone: a pipe that nobody reads, a terminal that
// somebody holds, a disk without space. put() never waits; a thread of the queue's own writes, in order. A line that
// finds no place or cannot be written is lost, and counted at its place until the output takes a line that says so.
//
// Any thread may put lines. When the object dies it waits for a moment until everything is written; a thread that is
// stuck in the output by then is left to the end of the process, with all that it needs.
class LineQueue {
 public:
  static constexpr std::size_t kBytes = 1024 * 1024;  // of lines that wait, each counted with kLineCost more
  static constexpr std::size_t kLineCost = 128;
  static constexpr std::chrono::milliseconds kFarewell{1000};

  // Throws std::system_error when there is no thread for it.
  explicit LineQueue(std::unique_ptr<LineOutput> output, std::size_t bytes = kBytes);
  ~LineQueue();
  LineQueue(const LineQueue&) = delete;
  LineQueue& operator=(const LineQueue&) = delete;

  // The text with its end. False when it is lost at once.
  bool put(std::string text) noexcept;
  // Waits until everything that was put before is written or lost; false when that takes longer.
  bool flush(std::chrono::milliseconds time = kFarewell) noexcept;

 private:
  struct State;

  const std::shared_ptr<State> m_state;
  std::thread m_thread;
};

}  // namespace programs
