#pragma once

#include "admin/base/failure.h"
#include "admin/base/output.h"

#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace CLI {
class App;
}

namespace admin {

// What a command line requests. Each command's file adds its part to the parser and sets `run`.
struct Invocation {
  bool json = false;
  std::function<ExitCode(Output&)> run;
};

// Adds a command with its description, "--json", and examples below its help to the program or to a group.
CLI::App& addCommand(CLI::App& parent, Invocation& invocation, const std::string& name, const std::string& description,
                     const std::vector<std::string>& examples);

// A command that only groups others, such as "ports" with "list", "add" and "delete".
CLI::App& addGroup(CLI::App& app, const std::string& name, const std::string& description);

// The commands, one file each.
void addInstallCommand(CLI::App& app, Invocation& invocation);
void addUninstallCommand(CLI::App& app, Invocation& invocation);
void addPortsCommand(CLI::App& app, Invocation& invocation);
void addSessionCommand(CLI::App& app, Invocation& invocation);
void addStatusCommand(CLI::App& app, Invocation& invocation);
void addPrintCommand(CLI::App& app, Invocation& invocation);
void addPrintersCommand(CLI::App& app, Invocation& invocation);
void addVisibleCommand(CLI::App& app, Invocation& invocation);
void addDriversCommand(CLI::App& app, Invocation& invocation);
void addSupportCommand(CLI::App& app, Invocation& invocation);
void addDoctorCommand(CLI::App& app, Invocation& invocation);
void addWatchCommand(CLI::App& app, Invocation& invocation);
void addInviteCommand(CLI::App& app, Invocation& invocation);
void addJobsCommand(CLI::App& app, Invocation& invocation);
void addCancelCommand(CLI::App& app, Invocation& invocation);

// The outcome of reading a command line: an invocation to run, or, when it has no work to do, an exit code and a text
// (help for the standard output, a usage error for the error output).
struct ParsedCommandLine {
  Invocation invocation;
  ExitCode code = ExitCode::kDone;
  std::string message;
};
std::unique_ptr<ParsedCommandLine> parseCommandLine(std::vector<std::string> arguments);

// Runs it and turns exceptions into text and an exit code.
ExitCode runInvocation(const Invocation& invocation, Output& output);

}  // namespace admin
