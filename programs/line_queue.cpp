#include "programs/line_queue.h"

#include <algorithm>
#include <cerrno>
#include <condition_variable>
#include <deque>
#include <fmt/format.h>
#include <mutex>
#include <system_error>
#include <utility>

#ifdef _WIN32
#include <io.h>
#else
#include <poll.h>
#include <pthread.h>
#include <signal.h>
#include <unistd.h>
#endif

namespace programs {
namespace {

// Signals are for the threads that wait for them; a thread that is made while this lives takes none.
class SignalsBlocked {
 public:
#ifdef _WIN32
  SignalsBlocked() = default;
  ~SignalsBlocked() {}
#else
  SignalsBlocked() {
    sigset_t all;
    sigfillset(&all);
    pthread_sigmask(SIG_BLOCK, &all, &m_before);
  }
  ~SignalsBlocked() {
    pthread_sigmask(SIG_SETMASK, &m_before, nullptr);
  }
#endif
  SignalsBlocked(const SignalsBlocked&) = delete;
  SignalsBlocked& operator=(const SignalsBlocked&) = delete;

#ifndef _WIN32
 private:
  sigset_t m_before;
#endif
};

constexpr char kTooFast[] = "they came faster than they could be written";

struct Line {
  std::string text;
  std::uint64_t lostBehind = 0;  // lines that found no place behind this one
};

}  // namespace

// What the queue and its thread share, and the thread keeps when it outlives the queue.
struct LineQueue::State {
  State(std::unique_ptr<LineOutput> to, std::size_t most) : output(std::move(to)), limit(most) {}

  void run() noexcept;
  // The next line, after waiting for it; false at the end. Writes what is due meanwhile.
  bool next(Line& line) noexcept;
  void write(const std::string& text) noexcept;
  void writeDue() noexcept;
  void sayLost();
  // The line is written or lost. Reports lines that found no place behind it at once when none waits any more.
  void settle(const Line& line) noexcept;

  const std::unique_ptr<LineOutput> output;  // the thread's
  const std::size_t limit;
  std::uint64_t lost = 0;  // the thread's: not reported yet
  std::string why;         // the thread's: of the latest loss

  std::mutex lock;  // guards what follows
  std::condition_variable changed;
  std::deque<Line> lines;
  std::size_t bytes = 0;      // of all lines, the one that is being written included
  std::uint64_t taken = 0;    // lines that were put into the queue
  std::uint64_t settled = 0;  // of those: written or lost
  std::uint64_t lostNow = 0;  // lines lost while the queue had none to remember them
  bool ending = false;
  bool ended = false;
};

bool LineQueue::State::next(Line& line) noexcept {
  while (true) {
    const auto due = output->dueAt();
    std::unique_lock<std::mutex> guard(lock);
    if (!lines.empty()) {
      line = std::move(lines.front());
      lines.pop_front();
      return true;
    }
    if (ending) return false;
    if (due == LineOutput::Clock::time_point::max()) {
      changed.wait(guard);
    } else if (changed.wait_until(guard, due) == std::cv_status::timeout) {
      guard.unlock();
      writeDue();
    }
  }
}

void LineQueue::State::sayLost() {
  if (lost == 0) return;
  const std::string still = output->writeLost(lost, why);
  if (still.empty()) {
    lost = 0;
  } else {
    why = still;
  }
}

void LineQueue::State::write(const std::string& text) noexcept try {
  sayLost();
  std::string failure = lost > 0 ? why : output->write(text);
  if (failure.empty()) return;
  ++lost;
  why = std::move(failure);
} catch (...) {
  ++lost;
}

void LineQueue::State::writeDue() noexcept try {
  for (const std::string& text : output->takeDue())
    write(text);
} catch (...) {  // no memory for them
}

void LineQueue::State::settle(const Line& line) noexcept {
  std::uint64_t behind = line.lostBehind;
  while (true) {
    bool isLast;
    {
      const std::lock_guard<std::mutex> guard(lock);
      behind += std::exchange(lostNow, 0);
      isLast = lines.empty();
      if (behind == 0) {
        bytes -= line.text.size() + kLineCost;
        ++settled;
        changed.notify_all();
        return;
      }
    }
    lost += std::exchange(behind, 0);
    try {
      why = kTooFast;
      if (isLast) sayLost();
    } catch (...) {  // they are reported with the next line
    }
  }
}

void LineQueue::State::run() noexcept {
  Line line;
  while (next(line)) {
    const auto due = output->dueAt();  // asked before the clock is read, so that "now" is not in the future
    if (due <= LineOutput::Clock::now()) writeDue();
    write(line.text);
    settle(line);
  }
  const std::lock_guard<std::mutex> guard(lock);
  ended = true;
  changed.notify_all();
}

LineQueue::LineQueue(std::unique_ptr<LineOutput> output, std::size_t bytes)
    : m_state(std::make_shared<State>(std::move(output), bytes)) {
  const SignalsBlocked blocked;
  m_thread = std::thread([state = m_state] { state->run(); });
}

LineQueue::~LineQueue() {
  bool ended;
  {
    std::unique_lock<std::mutex> guard(m_state->lock);
    m_state->ending = true;
    m_state->changed.notify_all();
    ended = m_state->changed.wait_for(guard, kFarewell, [this] { return m_state->ended; });
  }
  ended ? m_thread.join() : m_thread.detach();
}

bool LineQueue::put(std::string text) noexcept {
  State& state = *m_state;
  std::unique_lock<std::mutex> guard(state.lock);
  const std::size_t cost = text.size() + kLineCost;
  try {
    if (state.bytes == 0 || state.bytes + cost <= state.limit) {
      state.lines.push_back({std::move(text), 0});
      state.bytes += cost;
      ++state.taken;
      guard.unlock();
      state.changed.notify_all();  // behind the lock, for which the woken thread would have to wait
      return true;
    }
  } catch (...) {
  }
  ++(state.lines.empty() ? state.lostNow : state.lines.back().lostBehind);
  return false;
}

bool LineQueue::flush(std::chrono::milliseconds time) noexcept {
  std::unique_lock<std::mutex> guard(m_state->lock);
  const std::uint64_t wanted = m_state->taken;
  return m_state->changed.wait_for(guard, time, [&] { return m_state->settled >= wanted; });
}

namespace {

#ifdef _WIN32
// A console refuses pieces that are very long.
long writeSome(int descriptor, const char* data, std::size_t size) {
  return ::_write(descriptor, data, static_cast<unsigned>(std::min<std::size_t>(size, 16 * 1024)));
}
#else
// Another process that shares the descriptor may have set it not to wait; the queue's thread waits all the same.
long writeSome(int descriptor, const char* data, std::size_t size) {
  while (true) {
    const ssize_t written = ::write(descriptor, data, size);
    if (written >= 0 || (errno != EAGAIN && errno != EINTR)) return static_cast<long>(written);
    pollfd room{descriptor, POLLOUT, 0};
    if (errno == EAGAIN) ::poll(&room, 1, -1);
  }
}
#endif

class DescriptorOutput : public LineOutput {
 public:
  explicit DescriptorOutput(int descriptor) : m_descriptor(descriptor) {}

  std::string write(const std::string& text) override {
    for (std::size_t at = 0; at < text.size();) {
      const long written = writeSome(m_descriptor, text.data() + at, text.size() - at);
      if (written < 0) return std::generic_category().message(errno);
      at += static_cast<std::size_t>(written);
    }
    return {};
  }

  std::string writeLost(std::uint64_t count, const std::string& why) override {
    return write(fmt::format("{} {} missing here: {}\n", count, count == 1 ? "line is" : "lines are", why));
  }

 private:
  const int m_descriptor;
};

}  // namespace

std::unique_ptr<LineOutput> outputTo(int descriptor) {
  return std::make_unique<DescriptorOutput>(descriptor);
}

}  // namespace programs
