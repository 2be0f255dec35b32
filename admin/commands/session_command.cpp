#include "admin/commands/invocation.h"
#include "admin/sessions/application_server.h"
#include "admin/sessions/session_printers.h"
#include "admin/sessions/test_session.h"
#include "admin/spooler/spooler_port.h"
#include "corvane/base/text.h"
#include "programs/text.h"

#include <windows.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <fmt/format.h>
#include <limits>
#include <nlohmann/json.hpp>

namespace admin {
namespace {

struct SessionCommandOptions {
  int session = 0;
  int serverPort = 0;
  std::string driver, processor;
  bool makesDefault = false;
};

ExitCode list(const SessionCommandOptions& options, Output& output) {
  const protocol::ServerStatus facts = ApplicationServer(options.serverPort).status();
  const std::vector<std::wstring> ports = monitorPorts();
  const std::vector<SpoolerPrinter> present = localPrinters();
  Json sessions = Json::array();
  for (const protocol::ListedSession& session : facts.sessions) {
    if (isTestSession(session.number)) continue;
    const std::wstring port = sessionPort(static_cast<unsigned>(session.number));
    const bool isUp = std::find(ports.begin(), ports.end(), port) != ports.end();
    saySession(session, output);
    const std::string up = fmt::format("mgprintmon session up {}", session.number);
    if (!isUp) output.line(fmt::format("  not up here: {}", up));
    const auto missing = isUp ? missingHere(session, present) : std::vector<std::wstring>();
    for (const std::wstring& name : missing)
      output.line(fmt::format("  \"{}\" is not here; {} says why", programs::oneLine(name), up));
    sessions.push_back(sessionJson(session));
    sessions.back()["up"] = isUp;
    sessions.back()["missing"] = Json::array();
    for (const std::wstring& name : missing)
      sessions.back()["missing"].push_back(textValue(name));
  }
  if (sessions.empty()) output.line("no print client has registered");
  output.facts({{"sessions", sessions}});
  return ExitCode::kDone;
}

// A default printer belongs to a user, not to the machine: set here, it is that of the user who runs this program. So
// it is set only when this runs in the session itself, or on request.
void carryDefaultOver(const protocol::ListedSession& session, const SessionChange& change,
                      const SessionCommandOptions& options, Output& output, Json& facts) {
  const std::wstring name = defaultPrinterOf(session);
  if (name.empty() || !change.isUp(name)) return;
  DWORD ownSession = 0;
  const bool isHere =
      ProcessIdToSessionId(GetCurrentProcessId(), &ownSession) && ownSession == static_cast<DWORD>(session.number);
  facts["default"] = textValue(name);
  facts["defaultSet"] = isHere || options.makesDefault;
  if (isHere || options.makesDefault) {
    setDefaultPrinter(name);
    output.line(fmt::format("\"{}\" is now the default printer of the user who runs this", programs::oneLine(name)));
  } else {
    output.line(
        fmt::format("the client's default printer is \"{}\"; a default is set for each user, so run this in the "
                    "session, or with --default for yourself",
                    programs::oneLine(name)));
  }
}

ExitCode up(const SessionCommandOptions& options, Output& output) {
  ApplicationServer server(options.serverPort);
  const protocol::ServerStatus facts = server.status();
  const protocol::ListedSession* const session = facts.session(options.session);
  if (session == nullptr) {
    throw Failure(ExitCode::kNotFound, fmt::format("no print client of session {} has registered", options.session),
                  "Start the session's print client; \"mgprintmon session list\" shows the sessions that have one.");
  }
  const SessionChange change =
      bringUp(*session, {corvane::fromUtf8(options.driver), corvane::fromUtf8(options.processor)});
  Json json = changeJson(session->number, change);
  sayChange(session->number, change, output);
  for (const RefusedPrinter& printer : change.refused)
    server.tellRefusal(session->number, printer);
  if (session->printers.empty()) output.line("the session's client brings no printers");
  carryDefaultOver(*session, change, options, output, json);
  output.facts(json);
  return change.refused.empty() ? ExitCode::kDone : ExitCode::kNotFound;
}

ExitCode down(const SessionCommandOptions& options, Output& output) {
  const SessionChange change = takeDown(static_cast<unsigned>(options.session));
  if (change.isNothing()) {
    throw Failure(ExitCode::kNotFound, fmt::format("session {} has no port here", options.session),
                  "\"mgprintmon ports list\" shows the ports that are there.");
  }
  sayChange(options.session, change, output);
  output.facts(changeJson(options.session, change));
  return ExitCode::kDone;
}

}  // namespace

void addSessionCommand(CLI::App& app, Invocation& invocation) {
  auto options = std::make_shared<SessionCommandOptions>();
  CLI::App& session = addGroup(app, "session", "Lists sessions, and brings their printers up and down.");
  const auto addServerPort = [options](CLI::App& command) {
    command.add_option("--server-port", options->serverPort, "TCP port of aps; default: the registry's")
        ->check(CLI::Range(1, 65535));
  };
  const auto addNumber = [options](CLI::App& command) {
    command.add_option("session", options->session, "number of the session")
        ->required()
        ->check(CLI::Range(1, std::numeric_limits<int>::max()));
  };
  CLI::App& listing = addCommand(session, invocation, "list", "Lists the sessions whose print clients have registered.",
                                 {"session list", "session list --json"});
  addServerPort(listing);
  listing.callback(
      [options, &invocation] { invocation.run = [options](Output& output) { return list(*options, output); }; });
  CLI::App& rise = addCommand(session, invocation, "up",
                              "Makes a session's port and a printer for each of its client printers. Printers that the "
                              "client no longer brings are removed.",
                              {"session up 5", "session up 5 --driver \"Generic PostScript\" --default"});
  addNumber(rise);
  rise.add_option("--driver", options->driver, "driver for printers whose own cannot be used; default: FallbackDriver");
  rise.add_option("--processor", options->processor, "print processor; default: winprint");
  rise.add_flag("--default", options->makesDefault, "make the client's default printer yours as well");
  addServerPort(rise);
  rise.callback(
      [options, &invocation] { invocation.run = [options](Output& output) { return up(*options, output); }; });
  CLI::App& fall =
      addCommand(session, invocation, "down", "Removes a session's printers and its port.", {"session down 5"});
  addNumber(fall);
  fall.callback(
      [options, &invocation] { invocation.run = [options](Output& output) { return down(*options, output); }; });
}

}  // namespace admin
