#include "admin/commands/invocation.h"

#include "corvane/records/exception.h"
#include "programs/main.h"
#include "programs/text.h"
#include "protocol/version_text.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <fmt/format.h>
#include <iostream>
#include <sstream>

namespace admin {
namespace {

constexpr char kExitCodes[] =
    "Exit codes: 0 done, 1 failed, 2 bad usage, 3 not found, 4 access denied, 5 in use,\n"
    "6 application server away, 7 outcome of a job unknown.\n"
    "\"mgprintmon COMMAND --help\" shows options and examples.";

}  // namespace

CLI::App& addCommand(CLI::App& parent, Invocation& invocation, const std::string& name, const std::string& description,
                     const std::vector<std::string>& examples) {
  CLI::App* const command = parent.add_subcommand(name, description);
  command->add_flag("--json", invocation.json, "JSON instead of text");
  std::string footer = "Examples:";
  for (const std::string& example : examples)
    footer += fmt::format("\n  mgprintmon {}", example);
  command->footer(footer);
  return *command;
}

CLI::App& addGroup(CLI::App& app, const std::string& name, const std::string& description) {
  CLI::App* const group = app.add_subcommand(name, description);
  group->require_subcommand(1);
  return *group;
}

std::unique_ptr<ParsedCommandLine> parseCommandLine(std::vector<std::string> arguments) {
  auto parsed = std::make_unique<ParsedCommandLine>();
  CLI::App app("Administers the print monitor MgPrintMon on this machine.", "mgprintmon");
  app.set_version_flag("--version", protocol::versionLine("mgprintmon"), protocol::kVersionHelp);
  app.require_subcommand(1);
  app.footer(kExitCodes);
  for (const auto add : {addInstallCommand, addUninstallCommand, addPortsCommand, addSessionCommand, addStatusCommand,
                         addPrintCommand, addPrintersCommand, addVisibleCommand, addDriversCommand, addDoctorCommand,
                         addWatchCommand, addInviteCommand, addJobsCommand, addCancelCommand, addSupportCommand})
    add(app, parsed->invocation);
  std::reverse(arguments.begin(), arguments.end());
  try {
    app.parse(arguments);
  } catch (const CLI::ParseError& error) {
    std::ostringstream out;
    parsed->code = app.exit(error, out, out) == 0 ? ExitCode::kDone : ExitCode::kUsage;
    parsed->message = out.str();
    parsed->invocation.run = nullptr;
  }
  return parsed;
}

ExitCode runInvocation(const Invocation& invocation, Output& output) {
  try {
    return invocation.run(output);
  } catch (const Failure& failure) {
    output.failure(failure);
    return failure.code();
  } catch (const CS_Exception& failure) {
    output.failure(Failure(ExitCode::kFailed, programs::describe(failure), ""));
  } catch (const std::exception& failure) {
    output.failure(Failure(ExitCode::kFailed, failure.what(), ""));
  }
  return ExitCode::kFailed;
}

}  // namespace admin

int programMain(const std::vector<std::string>& arguments) {
  // An administrator's query must not write to the module's log.
  programs::silenceLocalLog();
  const auto parsed = admin::parseCommandLine(arguments);
  if (!parsed->invocation.run) {
    (parsed->code == admin::ExitCode::kDone ? std::cout : std::cerr) << parsed->message << std::flush;
    return static_cast<int>(parsed->code);
  }
  admin::Output output(std::cout, std::cerr, parsed->invocation.json);
  return static_cast<int>(admin::runInvocation(parsed->invocation, output));
}
