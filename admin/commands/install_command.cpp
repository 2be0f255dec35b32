#include "admin/base/files.h"
#include "admin/base/registry_value.h"
#include "admin/commands/invocation.h"
#include "admin/install/installation.h"
#include "admin/install/installation_lock.h"
#include "corvane/base/text.h"
#include "programs/host_and_port.h"
#include "programs/text.h"
#include "util/win_handle.h"

#include <windows.h>

#include <CLI/CLI.hpp>
#include <filesystem>
#include <fmt/format.h>
#include <functional>
#include <nlohmann/json.hpp>
#include <optional>
#include <stdexcept>

namespace admin {
namespace {

constexpr char kReportHelp[] = "file that gets the line about a failure, for callers who see no output";

struct InstallOptions {
  std::string root, from, log, key, driver, driverPackage, report, clientAddress, publicAddress;
  unsigned port = 0;
  bool force = false, services = false, noServices = false, keys = false, noKeys = false, system = false;
  bool restartsSpooler = false, onlyThisMachine = false;
};

// Why a command failed, as one line in a file, for a caller who sees no output; no file when it has not. What was there
// is taken away first: it may be a link to something else.
ExitCode reporting(const std::string& file, const std::function<ExitCode()>& command) {
  const std::wstring path = corvane::fromUtf8(file);
  if (!path.empty()) deleteFile(path);
  try {
    return command();
  } catch (const Failure& failure) {
    const mg::FileHandle report(path.empty() ? INVALID_HANDLE_VALUE
                                             : CreateFileW(path.c_str(), GENERIC_WRITE, FILE_SHARE_READ, nullptr,
                                                           CREATE_NEW, FILE_ATTRIBUTE_NORMAL, nullptr));
    const std::string line = fmt::format("mgprintmon: {} {}\r\n", failure.what(), failure.remedy());
    DWORD written = 0;
    if (report) WriteFile(report.get(), line.data(), static_cast<DWORD>(line.size()), &written, nullptr);
    throw;
  }
}

// Nothing when neither was typed.
std::optional<bool> chosen(bool yes, bool no) {
  if (yes) return true;
  if (no) return false;
  return std::nullopt;
}

// What an administrator should know of the keys and services that are there now.
void sayState(const InstallResult& result, Output& output) {
  output.line(
      result.hasServices
          ? "aps and mgprintmon watch run as services"
          : "no services: run aps and mgprintmon watch, or make them services with mgprintmon install --services");
  output.line(
      result.hasKey
          ? "peers of aps must have keys; mgprintmon invite N gives one to the user of a session"
          : "WITHOUT KEYS: every user of this machine can act as the monitor or as any session; mgprintmon install "
            "--keys changes that");
}

std::wstring programFolder() {
  wchar_t path[MAX_PATH];
  GetModuleFileNameW(nullptr, path, MAX_PATH);
  return std::filesystem::path(path).parent_path().wstring();
}

// The spooler has another current folder than whoever types a path.
std::wstring wholePath(const std::string& path) {
  return path.empty() ? std::wstring() : std::filesystem::absolute(corvane::fromUtf8(path)).wstring();
}

ExitCode run(const InstallOptions& options, Output& output) {
  const Places places = Places::ofThisMachine(corvane::fromUtf8(options.root));
  InstallRequest request;
  request.from = options.from.empty() ? programFolder() : corvane::fromUtf8(options.from);
  if (options.port != 0) request.serverPort = options.port;
  request.logFile = wholePath(options.log);
  request.keyFile = wholePath(options.key);
  request.driver = corvane::fromUtf8(options.driver);
  request.driverPackage = corvane::fromUtf8(options.driverPackage);
  request.force = options.force;
  request.services = chosen(options.services, options.noServices);
  request.keys = chosen(options.keys, options.noKeys);
  request.serverAsSystem = options.system;
  request.clientAddress = corvane::fromUtf8(options.clientAddress);
  request.publicAddress = corvane::fromUtf8(options.publicAddress);
  request.onlyThisMachine = options.onlyThisMachine;
  request.restartsSpooler = options.restartsSpooler;
  const InstallationLock lock;
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
  facts["services"] = result.hasServices;
  facts["keys"] = result.hasKey;
  facts["done"] = result.done;
  output.facts(facts);
  for (const std::string& step : result.done)
    output.line(fmt::format("  {}", step));
  output.line(fmt::format("MgPrintMon {} is {}: {}, root {}", version, outcome, corvane::toUtf8(places.module()),
                          corvane::toUtf8(places.root)));
  sayState(result, output);
  return ExitCode::kDone;
}

}  // namespace

namespace {

void addChoices(CLI::App& command, InstallOptions& options, CLI::Option* key) {
  CLI::Option* const services = command.add_flag(
      "--services", options.services, "have aps and mgprintmon watch run as services; so a new installation does");
  command.add_flag("--no-services", options.noServices, "leave services out")->excludes(services);
  command.add_flag("--aps-as-system", options.system,
                   "aps runs as the local system account, so that it can start programs in sessions; only for a new "
                   "service");
  CLI::Option* const keys =
      command.add_flag("--keys", options.keys,
                       "make the monitor's key, so that aps serves nobody without one; so a new installation does");
  command.add_flag("--no-keys", options.noKeys, "a new installation without keys: every user can act as anybody")
      ->excludes(keys)
      ->excludes(key);
}

// What is wrong with an address, as an option says it.
std::string addressRefusal(const std::string& text) try {
  programs::HostAndPort::parse(text);
  return "";
} catch (const std::invalid_argument& failure) {
  return failure.what();
}

// Print clients on other machines.
void addAddresses(CLI::App& command, InstallOptions& options) {
  CLI::Option* const here =
      command
          .add_option("--listen-clients", options.clientAddress,
                      "address and port where aps serves print clients on other machines, as in 0.0.0.0:4712")
          ->check(addressRefusal);
  CLI::Option* const there =
      command
          .add_option("--public-address", options.publicAddress,
                      "host and port where they reach it, as in print.example:4712: mgprintmon invite says it")
          ->check(addressRefusal);
  command.add_flag("--no-listen-clients", options.onlyThisMachine, "serve print clients of this machine only")
      ->excludes(here)
      ->excludes(there);
}

}  // namespace

void addInstallCommand(CLI::App& app, Invocation& invocation) {
  auto options = std::make_shared<InstallOptions>();
  CLI::App& command = addCommand(
      app, invocation, "install",
      "Installs the print monitor, the converter, and the services aps and mgprintmon with the monitor's key, or "
      "completes an installation. All or nothing.",
      {"install", "install --from D:\\setup --root \"D:\\Marrowgate\"", "install --driver \"Generic PostScript\"",
       "install --port 4720 --json"});
  command.add_option("--root", options->root, "folder of the installation; default: Marrowgate among the programs");
  command.add_option("--from", options->from, "folder of MgPrintMon.dll and the programs; default: of this program");
  command.add_option("--port", options->port, "TCP port of the application server; default: 4711")
      ->check(CLI::Range(1, 65535));
  command.add_option("--log", options->log, "the module's log file; default: Log\\MgPrintMon.log in the root");
  CLI::Option* const key =
      command.add_option("--key", options->key, "a file with the monitor's key that is there; default: one is made");
  addChoices(command, *options, key);
  addAddresses(command, *options);
  command.add_flag("--restart-spooler", options->restartsSpooler,
                   "stop and start the spooler where it holds a module that is replaced");
  command.add_option("--report", options->report, kReportHelp);
  CLI::Option* const driver = command.add_option("--driver", options->driver,
                                                 "the PostScript driver of session printers whose own cannot be used");
  command.add_option("--driver-package", options->driverPackage, "the .inf file that adds this driver")->needs(driver);
  command.add_flag("--force", options->force, "let an older version replace a newer one");
  command.callback([options, &invocation] {
    invocation.run = [options](Output& output) {
      return reporting(options->report, [&] { return run(*options, output); });
    };
  });
}

namespace {

struct RemovalOptions {
  bool force = false, onlyOwn = false;
  std::string report;
};

// Somebody has installed from another folder than that of this program.
bool isTakenOver(const Places& places) {
  const auto from = readValue(places.recordKey(), kFromName);
  return from && from->text().value_or(std::wstring()) != programFolder();
}

ExitCode run(const RemovalOptions& options, Output& output) {
  const InstallationLock lock;
  const Places places = Places::ofThisMachine();
  if (options.onlyOwn && isTakenOver(places)) {
    output.facts({{"outcome", "taken over"}});
    output.line("nothing is removed: what is installed came from another folder");
    return ExitCode::kDone;
  }
  const RemovalResult result = uninstall(places, options.force);
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
  auto options = std::make_shared<RemovalOptions>();
  CLI::App& command =
      addCommand(app, invocation, "uninstall",
                 "Removes what installing has made, and nothing else. Refuses while printers use the monitor's ports.",
                 {"uninstall", "uninstall --force"});
  command.add_flag("--force", options->force, "remove the printers and ports that are in the way first");
  command.add_flag("--only-own", options->onlyOwn,
                   "remove nothing when a program in another folder has installed since");
  command.add_option("--report", options->report, kReportHelp);
  command.callback([options, &invocation] {
    invocation.run = [options](Output& output) {
      return reporting(options->report, [&] { return run(*options, output); });
    };
  });
}

}  // namespace admin
