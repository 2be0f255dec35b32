#include "server/launcher.h"

#include "corvane/base/text.h"
#include "programs/text.h"

#include <algorithm>
#include <exception>
#include <fmt/format.h>

namespace aps {
namespace {

std::string described(const Launch& launch) {
  const std::string printer =
      launch.printer.empty() ? "" : fmt::format(" for printer {}", programs::quoted(launch.printer));
  return fmt::format("program {} with arguments {}{}", programs::quoted(launch.program),
                     programs::quoted(launch.arguments), printer);
}

bool holdsControl(const std::wstring& text) {
  return std::any_of(text.begin(), text.end(), [](wchar_t c) { return c < 0x20 || c == 0x7F; });
}

}  // namespace

Launcher::Launcher(Settings settings, std::shared_ptr<Log> log)
    : m_settings(std::move(settings)), m_log(std::move(log)) {}

bool Launcher::launch(const Launch& launch) {
  std::string cause = refusal(launch);
  if (cause.empty()) cause = start(launch);
  if (!cause.empty()) refuse(launch, cause);
  return cause.empty();
}

void Launcher::refuse(const Launch& launch, const std::string& cause) const {
  m_log->failure(fmt::format("{} was not started: {}", described(launch), cause));
}

std::string Launcher::refusal(const Launch& launch) const {
  // Only A to Z have another case here: letters that other alphabets take for the same make another file.
  const auto small = [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; };
  const std::string wanted = corvane::toUtf8(launch.program);
  const auto names = [&](const std::string& program) {
    return std::equal(program.begin(), program.end(), wanted.begin(), wanted.end(),
                      [&](char one, char other) { return small(one) == small(other); });
  };
  if (std::none_of(m_settings.programs.begin(), m_settings.programs.end(), names)) {
    return "aps starts only the programs that --launch-program names; name it there if sessions may have it";
  }
  // An argument ends at a zero character, so what would start is not what the log says.
  if (holdsControl(launch.arguments) || holdsControl(launch.printer)) {
    return "its arguments contain a control character; the port monitor never sends one, so look for another sender";
  }
  return "";
}

std::string Launcher::start(const Launch& launch) {
  joinEnded();
  std::promise<std::string> outcome;
  std::future<std::string> started = outcome.get_future();
  {
    const std::lock_guard<std::mutex> guard(m_lock);
    if (m_closing) return "aps is stopping; print again when it is back";
    if (m_watches.size() >= m_settings.limit) {
      return fmt::format(
          "{} started programs are running, which is the limit; end some, or start aps with a higher --max-launched",
          m_settings.limit);
    }
    const Position position = m_watches.emplace(m_watches.end());
    try {
      // The new thread waits for the lock, so its position has its thread before it can end.
      position->thread = std::thread([this, position, launch, promise = std::move(outcome)]() mutable {
        run(position, launch, std::move(promise));
      });
    } catch (const std::exception& failure) {
      m_watches.erase(position);
      return fmt::format("no thread to wait for its end: {}; end some connections", failure.what());
    }
  }
  return started.get();
}

void Launcher::run(Position position, const Launch& launch, std::promise<std::string> outcome) noexcept {
  std::unique_ptr<StartedProgram> program;
  try {
    program = startProgram(launch, m_settings.command);
  } catch (const std::exception& failure) {
    // As words: an exception would be given back by this thread while the other one reads it.
    std::string refusal;
    try {
      refusal = failure.what();
    } catch (const std::bad_alloc&) {
      refusal = "out of memory";
    }
    outcome.set_value(std::move(refusal));
  }
  if (program) {
    try {
      m_log->line(fmt::format("{} was started in session {}, process {}", described(launch), launch.session,
                              program->processId()));
    } catch (...) {  // a line that cannot be made is given up
    }
    outcome.set_value({});
    watch(position, launch, *program);
  }
  const std::lock_guard<std::mutex> guard(m_lock);
  position->program = nullptr;
  position->ended = true;
}

void Launcher::watch(Position position, const Launch& launch, StartedProgram& program) noexcept {
  {
    const std::lock_guard<std::mutex> guard(m_lock);
    if (m_closing) return;
    position->program = &program;
  }
  const std::optional<int> code = program.wait();
  if (!code) return;
  try {
    m_log->line(fmt::format("program {} of session {}, process {}, ended with {}", programs::quoted(launch.program),
                            launch.session, program.processId(), *code));
  } catch (...) {
  }
}

void Launcher::joinEnded() {
  std::list<Watch> ended;
  {
    const std::lock_guard<std::mutex> guard(m_lock);
    for (auto at = m_watches.begin(); at != m_watches.end();) {
      const auto next = std::next(at);
      if (at->ended) ended.splice(ended.end(), m_watches, at);
      at = next;
    }
  }
  for (Watch& watch : ended)
    watch.thread.join();
}

void Launcher::endAll() {
  std::list<Watch> watches;
  {
    const std::lock_guard<std::mutex> guard(m_lock);
    m_closing = true;
    for (Watch& watch : m_watches) {
      if (watch.program != nullptr) watch.program->leave();
    }
    watches.swap(m_watches);
  }
  for (Watch& watch : watches)
    watch.thread.join();
}

std::wstring commandTail(const std::wstring& arguments) {
  const std::size_t last = arguments.size() - 1;
  if (arguments.size() < 2 || arguments.front() != L'"' || arguments.back() != L'"') return arguments;
  std::wstring tail;
  for (std::size_t at = 1; at < last; ++at) {
    const std::size_t quote = arguments.find_first_not_of(L'\\', at);
    const std::size_t backslashes = quote - at;
    if (arguments[quote] != L'"') {
      tail.append(arguments, at, backslashes + 1);
    } else if (backslashes % 2 == 0) {
      // An even number of backslashes leaves the quote its meaning: it may only be the one that ends the word.
      if (quote != last) return arguments;
      tail.append(backslashes / 2, L'\\');
    } else {
      // This quote is a part of the word, so it cannot end it.
      if (quote == last) return arguments;
      tail.append(backslashes / 2, L'\\').push_back(L'"');
    }
    at = quote;
  }
  return tail;
}

}  // namespace aps
