#include "server/log.h"

#include "corvane/base/text.h"
#include "corvane/records/exception.h"
#include "programs/text.h"

#include <algorithm>
#include <chrono>
#include <fmt/format.h>
#include <stdexcept>
#include <utility>

namespace aps {
namespace {

// Whatever a caller has taken from a peer can neither forge a line here nor hide one, and no line is without end.
std::string timed(std::string_view text) {
  char now[64];
  const std::size_t length = corvane::writeLocalTime(now, sizeof now, std::chrono::system_clock::now());
  std::string line = fmt::format("{} {}", std::string_view(now, length), corvane::printable(text));
  if (line.size() > Log::kLineBytes) {
    std::size_t end = Log::kLineBytes;
    while ((static_cast<unsigned char>(line[end]) & 0xC0) == 0x80)
      --end;
    line.replace(end, std::string::npos, "...");
  }
  return line;
}

}  // namespace

// Counted like what peers cause: a disk that is full now and then could otherwise push everything else out.
void Log::Shared::note(std::string_view text) {
  if (!repeats.take("the log", {std::string(text), true}, now())) return;
  failures.add(timed(text), RecentLines::Shelf::kRefusals);
}

// What both kinds of output have in common. The thread of the queue keeps it, and with it what it shares with the log.
class Log::Output : public programs::LineOutput {
 public:
  explicit Output(std::shared_ptr<Shared> shared) : m_shared(std::move(shared)) {}

  std::string write(const std::string& text) override {
    std::string why = attempt(text);
    if (!why.empty())
      m_shared->lost = m_toldLost + static_cast<std::uint64_t>(std::count(text.begin(), text.end(), '\n'));
    return why;
  }

  std::string attempt(const std::string& text) {
    std::string why = deliver(text);
    if (!why.empty() && !m_isFailing)
      m_shared->note(fmt::format("the log cannot be written: {}; its lines are lost until it can", why));
    m_isFailing = !why.empty();
    return why;
  }

  std::string writeLost(std::uint64_t count, const std::string& why) override {
    const std::string lost = fmt::format("{} {} missing here: {}", count, count == 1 ? "line is" : "lines are", why);
    std::string still = attempt(timed(lost) + "\n");
    m_shared->lost = m_toldLost + count;
    if (still.empty()) m_toldLost += count;
    if (still.empty()) m_shared->note(fmt::format("in the log {}", lost));
    return still;
  }

  // By the clock that the queue waits by.
  Clock::time_point dueAt() override {
    const Clock::time_point due = m_shared->repeats.dueAt();
    if (due == Clock::time_point::max()) return due;
    const Clock::time_point now = m_shared->now();
    return due <= now ? Clock::time_point::min() : Clock::now() + (due - now);
  }
  std::vector<std::string> takeDue() override {
    std::vector<std::string> lines;
    for (const Repeats::Line& line : m_shared->repeats.due(m_shared->now())) {
      lines.push_back(timed(line.text));
      if (line.isFailure) m_shared->failures.add(lines.back(), RecentLines::Shelf::kRefusals);
      lines.back() += "\n";
    }
    return lines;
  }

 protected:
  virtual std::string deliver(const std::string& text) = 0;

  const std::shared_ptr<Shared> m_shared;

 private:
  bool m_isFailing = false;
  std::uint64_t m_toldLost = 0;  // lines that the log says are missing
};

class Log::FileOutput : public Log::Output {
 public:
  FileOutput(std::shared_ptr<Shared> shared, const std::filesystem::path& path, std::uint64_t limitBytes)
      : Output(std::move(shared)), m_file(path, limitBytes) {}

  LogFile& file() { return m_file; }

 protected:
  std::string deliver(const std::string& text) override {
    std::string why = m_file.write(text);
    if (const std::string trouble = m_file.takeReopenFailure(); !trouble.empty()) m_shared->note(trouble);
    return why;
  }

 private:
  LogFile m_file;
};

class Log::ErrorOutput : public Log::Output {
 public:
  using Output::Output;

 protected:
  std::string deliver(const std::string& text) override { return m_output->write(text); }

 private:
  const std::unique_ptr<programs::LineOutput> m_output = programs::outputTo(programs::kStandardError);
};

Log::Log(const std::filesystem::path& file, std::uint64_t limitBytes, Now now) {
  m_shared->now = std::move(now);
  std::unique_ptr<programs::LineOutput> output;
  if (file.empty()) {
    output = std::make_unique<ErrorOutput>(m_shared);
  } else {
    auto toFile = std::make_unique<FileOutput>(m_shared, file, limitBytes);
    m_file = &toFile->file();
    if (const std::string failure = m_file->open(); !failure.empty()) throw std::runtime_error(failure);
    output = std::move(toFile);
  }
  m_queue = std::make_unique<programs::LineQueue>(std::move(output));
}

Log::~Log() {
  finish();
}

void Log::finish() noexcept {
  try {
    for (const Repeats::Line& line : m_shared->repeats.all(m_shared->now()))
      put(timed(line.text));
  } catch (...) {  // no memory for it
  }
  flush();
}

void Log::put(const std::string& timedText) noexcept try {
  const bool isTaken = m_queue->put(timedText + "\n");
  if (!isTaken && !m_isStuck.exchange(true)) {
    m_shared->note("the log is blocked, so its lines are lost: nobody reads it, or its disk is stuck");
  }
  if (isTaken) m_isStuck = false;
} catch (...) {
}

void Log::line(std::string_view text) noexcept try { put(timed(text)); } catch (...) {
}

void Log::failure(std::string_view text) noexcept try {
  const std::string whole = timed(text);
  m_shared->failures.add(whole);
  put(whole);
} catch (...) {
}

void Log::counted(std::string_view kind, std::string_view text, bool isFailure) noexcept try {
  if (!m_shared->repeats.take(std::string(kind), {std::string(text), isFailure}, m_shared->now())) return;
  const std::string whole = timed(text);
  if (isFailure) m_shared->failures.add(whole, RecentLines::Shelf::kRefusals);
  put(whole);
} catch (...) {
}

void Log::refusal(std::string_view kind, std::string_view text) noexcept {
  counted(kind, text, true);
}

void Log::repeatable(std::string_view kind, std::string_view text) noexcept {
  counted(kind, text, false);
}

void Log::notServed(std::string_view who, int request) noexcept try {
  std::string cause = "out of memory";
  try {
    throw;
  } catch (const CS_Exception& failure) {
    cause = programs::describe(failure);
  } catch (...) {
  }
  refusal("requests", fmt::format("{} {} was not served: {}", who, request, cause));
} catch (...) {
}

void Log::reopen() noexcept {
  if (m_file == nullptr) return;
  m_file->reopen();
  line("the log was reopened");
}

}  // namespace aps
