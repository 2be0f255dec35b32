#include "corvane/base/text.h"
#include "programs/child_program.h"
#include "server/launcher.h"

#include <cerrno>
#include <fmt/format.h>
#include <stdexcept>
#include <system_error>

namespace aps {
namespace {

class CommandOfLaunch : public StartedProgram {
 public:
  explicit CommandOfLaunch(const programs::ChildCommand& command) : m_program(programs::ChildProgram::start(command)) {}

  unsigned long processId() const override { return m_program->processId(); }
  std::optional<int> wait() override { return m_program->wait(); }
  void leave() noexcept override { m_program->leave(); }

 private:
  const std::unique_ptr<programs::ChildProgram> m_program;
};

}  // namespace

std::unique_ptr<StartedProgram> startProgram(const Launch& launch, const std::string& command) {
  if (command.empty()) {
    throw std::runtime_error(
        "aps was not told how to start programs in a session; start it with --launch-command and a program that does");
  }
  programs::ChildCommand child;
  child.program = command;
  child.arguments = {std::to_string(launch.session), corvane::toUtf8(launch.program), corvane::toUtf8(launch.arguments),
                     corvane::toUtf8(launch.printer)};
  try {
    return std::make_unique<CommandOfLaunch>(child);
  } catch (const std::system_error& failure) {
    const int error = failure.code().value();
    const std::string words = failure.code().message();
    if (error == EMFILE || error == ENFILE) {
      throw std::runtime_error(fmt::format("no descriptor is left: {}; end some connections", words));
    }
    throw std::runtime_error(
        fmt::format("the command \"{}\" does not start: {}; --launch-command must name a program that aps may run",
                    command, words));
  }
}

}  // namespace aps
