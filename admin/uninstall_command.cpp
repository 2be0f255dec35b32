#include "admin/invocation.h"
#include "admin/removal.h"

#include <CLI/CLI.hpp>
#include <nlohmann/json.hpp>

namespace admin {
namespace {

ExitCode run(bool force, Output& output) {
  const RemovalResult result = uninstall(Places::ofThisMachine(), force);
  output.facts(
      {{"outcome", result.done.empty() ? "not installed" : "removed"}, {"done", result.done}, {"kept", result.kept}});
  for (const std::string& step : result.done)
    output.line("  " + step);
  for (const std::string& kept : result.kept)
    output.line("  " + kept);
  output.line(result.done.empty() ? "nothing is installed" : "MgPrintMon is removed");
  return ExitCode::kDone;
}

}  // namespace

void addUninstallCommand(CLI::App& app, Invocation& invocation) {
  auto force = std::make_shared<bool>(false);
  CLI::App& command =
      addCommand(app, invocation, "uninstall",
                 "Removes what installing has made, and nothing else. Refuses while printers use the monitor's ports.",
                 {"uninstall", "uninstall --force"});
  command.add_flag("--force", *force, "remove the printers and ports that are in the way first");
  command.callback([force, &invocation] { invocation.run = [force](Output& output) { return run(*force, output); }; });
}

}  // namespace admin
