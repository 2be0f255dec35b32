#pragma once

#include "programs/line_queue.h"
#include "server/log_file.h"
#include "server/log_lines.h"

#include <atomic>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <string>
#include <string_view>

namespace aps {

// The log of the application server: one line per event, UTF-8 that can be seen, with local time in front. It is a file
// (log_file.h) or the standard error output.
//
// Any thread may write, and none ever waits for it: a thread of the log's own brings the lines out (line_queue.h). What
// a full disk, a full pipe or a stopped terminal does not take is lost; how many lines that were stands in the log at
// their place once it takes lines again, and among the failures at once.
class Log {
 public:
  static constexpr std::uint64_t kLimitBytes = 8 * 1024 * 1024;
  static constexpr std::size_t kLineBytes = 16 * 1024;  // of a line; the rest is "..."

  using Now = std::function<Repeats::Clock::time_point()>;

  // Appends to the file, or to the standard error output when the path is empty. Throws std::runtime_error when the
  // file cannot be opened. What repeats itself is counted by the clock that is given.
  explicit Log(const std::filesystem::path& file, std::uint64_t limitBytes = kLimitBytes,
               Now now = Repeats::Clock::now);
  ~Log();
  Log(const Log&) = delete;
  Log& operator=(const Log&) = delete;

  // The text is one line without its end.
  void line(std::string_view text) noexcept;
  // Such a line that tells of a failure: of a job that did not arrive, or of the server itself.
  void failure(std::string_view text) noexcept;
  // Such a line about what a peer brought about and can bring about again at once: something refused, or a print client
  // that comes and goes. What repeats itself becomes one counted line (log_lines.h). The kind says what is counted
  // together: a few words of ours and, where the peer has proven it, who it is.
  void refusal(std::string_view kind, std::string_view text) noexcept;
  void repeatable(std::string_view kind, std::string_view text) noexcept;
  // A peer's request that was not served because of the exception that is being handled. Such lines are counted
  // together, whichever peer sent the request.
  void notServed(std::string_view who, int request) noexcept;

  // The latest lines that reported a failure, with their times.
  const RecentLines& failures() const { return m_shared->failures; }

  // How many lines the output has not taken so far, as far as it has been tried.
  std::uint64_t linesLost() const { return m_shared->lost; }

  // The file was renamed: what follows goes to a new one of that name. Without a file nothing happens.
  void reopen() noexcept;
  bool isFile() const { return m_file != nullptr; }
  // At the end of the program, which may keep this object: tells what was only counted, and waits for a moment until
  // everything is written.
  void finish() noexcept;
  // Waits until everything that was said before is written or lost; false when that takes longer.
  bool flush(std::chrono::milliseconds time = programs::LineQueue::kFarewell) noexcept { return m_queue->flush(time); }

 private:
  class Output;
  class FileOutput;
  class ErrorOutput;

  // What the log shares with the thread that brings its lines out.
  struct Shared {
    // Keeps a failure of the log itself for those who ask for failures.
    void note(std::string_view text);

    RecentLines failures;
    Repeats repeats;
    Now now;
    std::atomic<std::uint64_t> lost{0};  // lines
  };

  void put(const std::string& timed) noexcept;
  void counted(std::string_view kind, std::string_view text, bool isFailure) noexcept;

  const std::shared_ptr<Shared> m_shared = std::make_shared<Shared>();
  LogFile* m_file = nullptr;  // belongs to the queue; null for the standard error output
  std::atomic<bool> m_isStuck{false};
  std::unique_ptr<programs::LineQueue> m_queue;
};

// Serves a request and passes on what is thrown, after a line of the log: the peer may not wait for an answer, and then
// the loss of the request would stay unknown. who() says whose request it was.
template <class Who, class Serve>
bool logThrown(Log& log, Who&& who, int request, Serve&& serve) {
  try {
    return serve();
  } catch (...) {
    log.notServed(who(), request);
    throw;
  }
}

}  // namespace aps
