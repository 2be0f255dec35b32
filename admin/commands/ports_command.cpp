#include "admin/commands/invocation.h"
#include "admin/spooler/spooler_port.h"
#include "admin/spooler/spooler_printer.h"
#include "corvane/base/text.h"

#include <CLI/CLI.hpp>
#include <fmt/format.h>
#include <nlohmann/json.hpp>

namespace admin {
namespace {

using corvane::fromUtf8;
using corvane::toUtf8;

ExitCode listPorts(Output& output) {
  Json facts = Json::array();
  const std::vector<SpoolerPrinter> printers = localPrinters();
  for (const std::wstring& port : monitorPorts()) {
    Json users = Json::array();
    std::string line = toUtf8(port);
    for (const SpoolerPrinter& printer : printers) {
      if (printer.port != port) continue;
      line += fmt::format("{}{}\"", users.empty() ? "  \"" : ", \"", toUtf8(printer.name));
      users.push_back(textValue(printer.name));
    }
    facts.push_back({{"port", textValue(port)}, {"printers", users}});
    output.line(line);
  }
  if (facts.empty()) output.line("the monitor has no ports");
  output.facts({{"ports", facts}});
  return ExitCode::kDone;
}

ExitCode add(const std::string& name, Output& output) {
  const bool added = addPort(fromUtf8(name));
  output.facts({{"port", name}, {"outcome", added ? "added" : "already there"}});
  output.line(fmt::format("port {} {}", name, added ? "was added" : "is already there"));
  return ExitCode::kDone;
}

ExitCode remove(const std::string& name, Output& output) {
  if (!deletePort(fromUtf8(name))) {
    throw Failure(ExitCode::kNotFound, fmt::format("the monitor has no port \"{}\"", name),
                  "\"mgprintmon ports list\" shows those that it has.");
  }
  output.facts({{"port", name}, {"outcome", "deleted"}});
  output.line(fmt::format("port {} was deleted", name));
  return ExitCode::kDone;
}

}  // namespace

void addPortsCommand(CLI::App& app, Invocation& invocation) {
  auto name = std::make_shared<std::string>();
  CLI::App& ports = addGroup(app, "ports", "Lists, adds and deletes ports of the print monitor.");
  addCommand(ports, invocation, "list", "Lists the monitor's ports and the printers that use them.",
             {"ports list", "ports list --json"})
      .callback([&invocation] { invocation.run = listPorts; });
  CLI::App& addition = addCommand(ports, invocation, "add", "Adds a port.", {"ports add CPP5"});
  addition.add_option("port", *name, "its name; that of session 5 is CPP5")->required();
  addition.callback([name, &invocation] { invocation.run = [name](Output& output) { return add(*name, output); }; });
  CLI::App& deletion =
      addCommand(ports, invocation, "delete", "Deletes a port that no printer uses.", {"ports delete CPP5"});
  deletion.add_option("port", *name, "its name")->required();
  deletion.callback([name, &invocation] { invocation.run = [name](Output& output) { return remove(*name, output); }; });
}

}  // namespace admin
