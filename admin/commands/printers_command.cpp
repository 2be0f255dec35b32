#include "admin/commands/invocation.h"
#include "admin/sessions/application_server.h"
#include "admin/spooler/monitor_module.h"
#include "admin/spooler/spooler_port.h"
#include "corvane/base/text.h"
#include "programs/text.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <fmt/format.h>
#include <limits>
#include <nlohmann/json.hpp>

namespace admin {
namespace {

struct PrintersOptions {
  unsigned session = 0;
  std::string printer;
};

// Without the server the module would wait forever; and it answers the same for a session without a port and for a
// hidden printer.
void requireServerAndPort(unsigned session) {
  ApplicationServer().status();
  if (hasPort(sessionPort(session))) return;
  throw Failure(ExitCode::kNotFound, fmt::format("session {} has no port here", session),
                fmt::format("Bring it up first: mgprintmon session up {}.", session));
}

ExitCode printers(const PrintersOptions& options, Output& output) {
  requireServerAndPort(options.session);
  std::vector<std::wstring> names;
  if (!MonitorModule::get().cachedPrinters(options.session, names)) {
    throw Failure(ExitCode::kFailed,
                  fmt::format("the module does not deliver the printers of session {}", options.session),
                  "The module's log says why (mgprintmon status shows its last lines).");
  }
  std::sort(names.begin(), names.end());
  Json list = Json::array();
  for (const std::wstring& name : names) {
    list.push_back(textValue(name));
    output.line(programs::oneLine(name));
  }
  if (names.empty()) output.line(fmt::format("session {} has no client printers", options.session));
  output.facts({{"session", options.session}, {"printers", list}});
  return ExitCode::kDone;
}

ExitCode visible(const PrintersOptions& options, Output& output) {
  requireServerAndPort(options.session);
  const bool shown = MonitorModule::get().showPrinter(options.session, corvane::fromUtf8(options.printer));
  output.facts({{"session", options.session}, {"printer", options.printer}, {"visible", shown}});
  output.line(
      fmt::format("\"{}\" is {} session {}", options.printer, shown ? "shown to" : "hidden from", options.session));
  return ExitCode::kDone;
}

void addNumber(CLI::App& command, const std::shared_ptr<PrintersOptions>& options) {
  command.add_option("session", options->session, "number of the session")
      ->required()
      ->check(CLI::Range(1, std::numeric_limits<int>::max()));
}

}  // namespace

void addPrintersCommand(CLI::App& app, Invocation& invocation) {
  auto options = std::make_shared<PrintersOptions>();
  CLI::App& command =
      addCommand(app, invocation, "printers", "Lists a session's client printers as the module's own list has them.",
                 {"printers 5", "printers 5 --json"});
  addNumber(command, options);
  command.callback(
      [options, &invocation] { invocation.run = [options](Output& output) { return printers(*options, output); }; });
}

void addVisibleCommand(CLI::App& app, Invocation& invocation) {
  auto options = std::make_shared<PrintersOptions>();
  CLI::App& command = addCommand(app, invocation, "visible", "Asks the module whether a session is shown a printer.",
                                 {"visible 5 \"Laser-2 (session 5)\""});
  addNumber(command, options);
  command.add_option("printer", options->printer, "its name on this machine")->required();
  command.callback(
      [options, &invocation] { invocation.run = [options](Output& output) { return visible(*options, output); }; });
}

}  // namespace admin
