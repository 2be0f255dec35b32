#include "programs/main.h"

#include "admin/commands/invocation.h"

#include <iostream>

int programMain(const std::vector<std::string>& arguments) {
  // The module's log must not be written by a person who only looks.
  programs::silenceLocalLog();
  const auto parsed = admin::parseCommandLine(arguments);
  if (!parsed->invocation.run) {
    (parsed->code == admin::ExitCode::kDone ? std::cout : std::cerr) << parsed->message << std::flush;
    return static_cast<int>(parsed->code);
  }
  admin::Output output(std::cout, std::cerr, parsed->invocation.json);
  return static_cast<int>(admin::runInvocation(parsed->invocation, output));
}
