#include "client/sinks/command/command_sink.h"

#include "client/account_name.h"
#include "client/sinks/copies_in_data.h"
#include "corvane/base/text.h"
#include "programs/text.h"

#include <algorithm>
#include <filesystem>
#include <fmt/format.h>
#include <optional>
#include <stdexcept>
#include <system_error>

namespace printclient {
namespace {

constexpr int kMostPaths = 50;  // a command line has room for so many

std::string titleOf(const protocol::JobStart& ticket) {
  return programs::oneLine(ticket.documentName.empty() ? ticket.jobName : ticket.documentName);
}

#ifdef _WIN32
// Windows gives such files to its shell, with arguments that the shell reads.
bool isForAShell(const std::filesystem::path& program) {
  std::wstring extension = program.extension().wstring();
  for (wchar_t& c : extension) {
    if (c >= L'A' && c <= L'Z') c = static_cast<wchar_t>(c - L'A' + L'a');
  }
  while (!extension.empty() && (extension.back() == L'.' || extension.back() == L' '))
    extension.pop_back();
  return extension == L".bat" || extension == L".cmd";
}
#else
bool isForAShell(const std::filesystem::path&) {
  return false;
}
#endif

}  // namespace

class CommandSink::Running {
 public:
  Running(CommandSink& sink, programs::ChildProgram& program) : m_sink(sink) {
    const std::lock_guard<std::mutex> guard(m_sink.m_lock);
    m_place = m_sink.m_running.insert(m_sink.m_running.end(), &program);
    if (m_sink.m_stopping) program.leave();
  }
  ~Running() {
    const std::lock_guard<std::mutex> guard(m_sink.m_lock);
    m_sink.m_running.erase(m_place);
  }
  Running(const Running&) = delete;
  Running& operator=(const Running&) = delete;

 private:
  CommandSink& m_sink;
  std::list<programs::ChildProgram*>::iterator m_place;
};

CommandSink::CommandSink(Settings settings) : m_settings(std::move(settings)) {
  const std::filesystem::path program = programs::toPath(m_settings.program);
  std::error_code ignored;
  if (!std::filesystem::is_regular_file(program, ignored)) {
    throw std::runtime_error(
        fmt::format("--command \"{}\" is not a program; give the whole path of one", m_settings.program));
  }
  if (isForAShell(program)) {
    throw std::runtime_error(fmt::format(
        "--command \"{}\" is a script for the command shell, which reads names of files as commands; give a program",
        m_settings.program));
  }
}

programs::ChildCommand CommandSink::commandFor(const ArrivedJob& job) const {
  programs::ChildCommand command;
  command.program = m_settings.program;
  command.arguments = m_settings.arguments;
  const std::filesystem::path file = job.file.share(job.content.extension());
  const int copies = copiesInFile(file) ? 1 : std::max(job.ticket.copies, 1);
  const int paths = m_settings.hasPathForEachCopy ? std::min(copies, kMostPaths) : 1;
  command.arguments.insert(command.arguments.end(), static_cast<std::size_t>(paths), programs::fromPath(file));
  command.environment = {{"PRINTCLIENT_TITLE", titleOf(job.ticket)},
                         {"PRINTCLIENT_COPIES", std::to_string(copies)},
                         {"PRINTCLIENT_PRINTER", programs::oneLine(job.ticket.printerName)},
                         {"PRINTCLIENT_USER", accountName()}};
  command.keepsErrors = true;
  return command;
}

std::unique_ptr<programs::ChildProgram> CommandSink::start(const ArrivedJob& job) const {
  const programs::ChildCommand command = commandFor(job);
  try {
    return programs::ChildProgram::start(command);
  } catch (const std::system_error& failure) {
    throw SinkRefusal(
        fmt::format("the command \"{}\" does not start: {}", m_settings.program, failure.code().message()),
        "see that --command names a program that you may run, and print again");
  }
}

void CommandSink::refuseWhenStopped(const std::string& words) {
  const std::lock_guard<std::mutex> guard(m_lock);
  if (!m_stopping) return;
  throw SinkRefusal(fmt::format("the print client was stopped, and \"{}\" with it{}", m_settings.program, words),
                    "start the print client again, see whether pages have come out, and print again");
}

TakenJob CommandSink::take(const ArrivedJob& job) {
  if (m_settings.hasPathForEachCopy && job.ticket.copies > kMostPaths) {
    throw SinkRefusal(fmt::format("{} copies are wanted, and \"{}\" makes {} at a time", job.ticket.copies,
                                  m_settings.program, kMostPaths),
                      "print fewer at a time");
  }
  refuseWhenStopped("");
  const std::unique_ptr<programs::ChildProgram> program = start(job);
  const Running running(*this, *program);
  std::optional<int> code;
  {
    std::optional<CancelRequest::Handler> onCancel;
    if (job.cancel != nullptr) onCancel.emplace(*job.cancel, [&program] { program->leave(); });
    code = program->wait(std::chrono::steady_clock::now() + m_settings.limit);
  }
  if (!code) program->end();
  if (code == 0) return {fmt::format("by \"{}\"", m_settings.program)};
  const std::string said = corvane::printable(std::string_view(program->lastErrorLine()));
  const std::string words = said.empty() ? "" : fmt::format(": {}", said);
  if (!code) {
    refuseWhenStopped(words);
    if (job.isCanceled()) {
      throw SinkRefusal(fmt::format("you canceled it while \"{}\" had it{}", m_settings.program, words),
                        "see whether pages have come out, and print it again if it is still wanted");
    }
    throw SinkRefusal(fmt::format("the command \"{}\" was ended, because it took longer than {} s{}",
                                  m_settings.program, m_settings.limit.count(), words),
                      "see what it waits for and whether pages have come out, or give it more time with "
                      "--command-limit, and print again");
  }
  throw SinkRefusal(fmt::format("the command \"{}\" ended with {}{}", m_settings.program, *code, words),
                    said.empty() ? "run it by hand to see what it wants, and print again"
                                 : "put right what it says, and print again");
}

void CommandSink::stop() noexcept {
  const std::lock_guard<std::mutex> guard(m_lock);
  m_stopping = true;
  for (programs::ChildProgram* program : m_running)
    program->leave();
}

}  // namespace printclient
