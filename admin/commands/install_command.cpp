#include "admin/commands/invocation.h"
#include "admin/install/installation.h"
#include "corvane/base/text.h"
#include "programs/text.h"

#include <windows.h>

#include <CLI/CLI.hpp>
#include <filesystem>
#include <fmt/format.h>
#include <nlohmann/json.hpp>

namespace admin {
namespace {

struct Options {
  std::string root, from, log, key, driver, driverPackage;
  unsigned port = 0;
  bool force = false;
};

std::wstring programFolder() {
  wchar_t path[MAX_PATH];
  GetModuleFileNameW(nullptr, path, MAX_PATH);
  return std::filesystem::path(path).parent_path().wstring();
}

ExitCode run(const Options& options, Output& output) {
  const Places places = Places::ofThisMachine(corvane::fromUtf8(options.root));
  InstallRequest request;
  request.from = options.from.empty() ? programFolder() : corvane::fromUtf8(options.from);
  if (options.port != 0) request.serverPort = options.port;
  request.logFile = corvane::fromUtf8(options.log);
  request.keyFile = corvane::fromUtf8(options.key);
  request.driver = corvane::fromUtf8(options.driver);
  request.driverPackage = corvane::fromUtf8(options.driverPackage);
  request.force = options.force;
  const InstallResult result = install(places, request);

  const std::string version = result.version ? result.version->text() : "without a version";
  const char* const outcome = result.done.empty()   ? "already installed"
                              : result.wasInstalled ? "repaired"
                                                    : "installed";
  Json facts;
  facts["outcome"] = outcome;
  facts["version"] = version;
  facts["module"] = textValue(places.module());
  facts["root"] = textValue(places.root);
  facts["done"] = result.done;
  output.facts(facts);
  for (const std::string& step : result.done)
    output.line(fmt::format("  {}", step));
  output.line(fmt::format("MgPrintMon {} is {}: {}, root {}", version, outcome, corvane::toUtf8(places.module()),
                          corvane::toUtf8(places.root)));
  return ExitCode::kDone;
}

}  // namespace

void addInstallCommand(CLI::App& app, Invocation& invocation) {
  auto options = std::make_shared<Options>();
  CLI::App& command =
      addCommand(app, invocation, "install",
                 "Installs the print monitor and the converter, or completes an installation. All or nothing.",
                 {"install", "install --from D:\\setup --root \"D:\\Marrowgate\"",
                  "install --driver \"Generic PostScript\"", "install --port 4720 --json"});
  command.add_option("--root", options->root, "folder of the installation; default: Marrowgate among the programs");
  command.add_option("--from", options->from, "folder of MgPrintMon.dll and ps2pdf.exe; default: of this program");
  command.add_option("--port", options->port, "TCP port of the application server; default: 4711")
      ->check(CLI::Range(1, 65535));
  command.add_option("--log", options->log, "the module's log file; default: Log\\MgPrintMon.log in the root");
  command.add_option("--key", options->key, "the file with the monitor's key, when aps wants keys");
  CLI::Option* const driver = command.add_option("--driver", options->driver,
                                                 "the PostScript driver of session printers whose own cannot be used");
  command.add_option("--driver-package", options->driverPackage, "the .inf file that adds this driver")->needs(driver);
  command.add_flag("--force", options->force, "let an older version replace a newer one");
  command.callback(
      [options, &invocation] { invocation.run = [options](Output& output) { return run(*options, output); }; });
}

namespace {

ExitCode run(bool force, Output& output) {
  const RemovalResult result = uninstall(Places::ofThisMachine(), force);
  output.facts(
      {{"outcome", result.done.empty() ? "not installed" : "removed"}, {"done", result.done}, {"kept", result.kept}});
  for (const std::string& step : result.done)
    output.line(fmt::format("  {}", step));
  for (const std::string& kept : result.kept)
    output.line(fmt::format("  {}", kept));
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
