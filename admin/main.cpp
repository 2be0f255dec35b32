#include "programs/main.h"

#include "admin/invocation.h"
#include "corvane/local_monitor.h"

#include <iostream>

namespace {

// The framework's own records are those of a program that prints; what this one has to say it says itself, and the
// module's log must not be written by a person who only looks.
class NoSink : public corvane::LogSink {
 public:
  void write(std::string_view) noexcept override {}
};

}  // namespace

int programMain(const std::vector<std::string>& arguments) {
  corvane::LocalMonitor::instance().setSink(std::make_unique<NoSink>());
  const auto parsed = admin::parseCommandLine(arguments);
  if (!parsed->invocation.run) {
    (parsed->code == admin::ExitCode::kDone ? std::cout : std::cerr) << parsed->message << std::flush;
    return static_cast<int>(parsed->code);
  }
  admin::Output output(std::cout, std::cerr, parsed->invocation.json);
  return static_cast<int>(admin::runInvocation(parsed->invocation, output));
}
