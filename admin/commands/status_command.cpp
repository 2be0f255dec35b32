#include "admin/base/files.h"
#include "admin/base/places.h"
#include "admin/base/service.h"
#include "admin/commands/invocation.h"
#include "admin/sessions/application_server.h"
#include "admin/sessions/held_jobs.h"
#include "admin/sessions/job_paper.h"
#include "admin/sessions/session_printers.h"
#include "admin/sessions/test_session.h"
#include "admin/spooler/monitor_module.h"
#include "admin/spooler/spooler_port.h"
#include "corvane/base/text.h"
#include "corvane/records/host_properties.h"
#include "programs/text.h"
#include "protocol/names.h"

#include <CLI/CLI.hpp>
#include <fmt/format.h>
#include <map>
#include <nlohmann/json.hpp>

namespace admin {
namespace {

using programs::localTime;
using programs::oneLine;

constexpr int kRecords = 10;
constexpr std::size_t kFailedJobs = 5;
constexpr std::size_t kPaperJobs = 10;

void sayModule(Output& output, Json& facts) {
  const Places places = Places::ofThisMachine();
  const bool isThere = fileExists(places.module());
  const auto version = fileVersion(places.module());
  const bool isRegistered = isMonitorRegistered();
  facts["module"] = {{"path", textValue(places.module())},
                     {"installed", isThere},
                     {"version", version ? Json(version->text()) : Json()},
                     {"registered", isRegistered}};
  output.line(
      fmt::format("module:  {}{}", corvane::toUtf8(places.module()),
                  isThere ? fmt::format(", version {}", version ? version->text() : "unknown") : ", not installed"));
  output.line(fmt::format("monitor: {}", isRegistered ? "registered with the spooler" : "not registered"));
}

void sayPorts(Output& output, Json& facts) {
  std::string names;
  facts["ports"] = Json::array();
  for (const std::wstring& port : monitorPorts()) {
    names += fmt::format("{}{}", names.empty() ? "" : ", ", oneLine(port));
    facts["ports"].push_back(textValue(port));
  }
  output.line(fmt::format("ports:   {}", names.empty() ? "none" : names));
}

void sayServices(Output& output, Json& facts) {
  const Places places = Places::ofThisMachine();
  std::string states;
  facts["services"] = Json::object();
  for (const std::wstring& name : {places.serverService, places.watchService}) {
    const auto service = serviceFacts(name);
    if (!service) continue;
    states += fmt::format("{}{} {}", states.empty() ? "" : "; ", corvane::toUtf8(name), stateText(*service));
    facts["services"][corvane::toUtf8(name)] = {{"running", service->state == SERVICE_RUNNING},
                                                {"process", service->process},
                                                {"account", textValue(service->account)}};
  }
  output.line(fmt::format("services: {}", states.empty() ? "none" : states));
}

void sayKeys(Output& output, Json& facts) {
  const std::wstring file = HostProperties::getInstance().keyFile();
  facts["keyFile"] = file.empty() ? Json() : Json(textValue(file));
  output.line(file.empty() ? std::string("keys:    NONE: every user of this machine can act as the monitor or as any "
                                         "session; mgprintmon install --keys changes that")
                           : fmt::format("keys:    the monitor's is in {}", oneLine(file)));
}

void sayRecords(const std::string& from, const std::vector<std::string>& lines, Output& output, Json& facts) {
  facts["records"] = {{"from", from}, {"lines", lines}};
  output.line(lines.empty() ? fmt::format("no failures in {}", from) : fmt::format("last failures in {}:", from));
  for (const std::string& line : lines)
    output.line(fmt::format("  {}", line));
}

void sayJobs(const char* fact, const std::string& heading, const std::vector<protocol::Notice>& notices, Output& output,
             Json& facts) {
  Json jobs = Json::array();
  output.line(heading);
  for (const protocol::Notice& notice : notices) {
    Json values;
    const std::map<std::wstring, std::wstring> named(notice.values.rbegin(), notice.values.rend());
    for (const auto& [name, value] : named)
      values[corvane::toUtf8(name)] = textValue(value);
    jobs.push_back({{"time", textValue(notice.time)}, {"line", textValue(notice.line)}, {"values", values}});
    output.line(fmt::format("  {} {}", localTime(notice.time), oneLine(notice.line)));
  }
  facts[fact] = jobs;
}

void sayNotices(ApplicationServer& server, Output& output, Json& facts) {
  const std::vector<protocol::Notice> notices = server.notices(0, 0).notices;
  std::vector<protocol::Notice> failed;
  for (const protocol::Notice& notice : notices) {
    if (notice.kind == protocol::kJobNotice && notice.value(L"result") == L"failed") failed.push_back(notice);
  }
  if (failed.size() > kFailedJobs) failed.erase(failed.begin(), failed.end() - kFailedJobs);
  sayJobs("failedJobs", failed.empty() ? "no failed jobs since the server runs" : "last failed jobs:", failed, output,
          facts);
  const std::vector<protocol::Notice> paper = latestPaper(notices, kPaperJobs);
  sayJobs("printerJobs",
          paper.empty() ? "no print client has told what became of a job at its printer"
                        : "what became of the last jobs at the printers:",
          paper, output, facts);
}

// Each session with what is held for it; those that only have held jobs are at the end.
void saySessions(const protocol::ServerStatus& status, Output& output, Json& facts) {
  Json sessions = Json::array();
  for (const protocol::ListedSession& session : status.sessions) {
    if (isTestSession(session.number)) continue;
    sessions.push_back(sessionJson(session));
    sessions.back()["held"] = heldJson(status, session.number);
    saySession(session, output);
    if (const auto* const held = heldFor(status, session.number)) {
      output.line(fmt::format("  {}", heldText(*held)));
    }
  }
  for (const protocol::HeldForSession& held : heldForOthers(status)) {
    sessions.push_back({{"session", held.session},
                        {"connected", false},
                        {"since", nullptr},
                        {"printers", Json::array()},
                        {"held", heldJson(status, held.session)}});
    output.line(fmt::format("session {}: forgotten by the server until its print client comes back", held.session));
    output.line(fmt::format("  {}", heldText(held)));
  }
  if (sessions.empty()) output.line("no print client has registered");
  facts["sessions"] = sessions;
}

void sayServer(int port, Output& output, Json& facts) try {
  ApplicationServer server(port);
  const protocol::ServerStatus status = server.status();
  facts["server"] = {{"reachable", true},
                     {"version", textValue(status.version)},
                     {"process", status.process},
                     {"since", textValue(status.since)}};
  output.line(fmt::format("server:  aps {}, process {}, runs since {}", oneLine(status.version), status.process,
                          localTime(status.since)));
  saySessions(status, output, facts["server"]);
  std::vector<std::string> lines;
  for (const std::wstring& line : server.records(kRecords))
    lines.push_back(oneLine(line));
  sayRecords("the server's log", lines, output, facts);
  sayNotices(server, output, facts);
} catch (const Failure& failure) {
  facts["server"] = {{"reachable", false}, {"why", failure.what()}, {"remedy", failure.remedy()}};
  output.line(fmt::format("server:  {}", failure.what()));
  output.line(fmt::format("  {}", failure.remedy()));
  const std::wstring log = HostProperties::getInstance().logFile();
  sayRecords("the module's log", failuresInLog(log, kRecords), output, facts);
}

ExitCode run(int serverPort, Output& output) {
  Json facts;
  sayModule(output, facts);
  sayPorts(output, facts);
  sayServices(output, facts);
  sayKeys(output, facts);
  sayServer(serverPort, output, facts);
  output.facts(facts);
  return ExitCode::kDone;
}

}  // namespace

void addStatusCommand(CLI::App& app, Invocation& invocation) {
  auto port = std::make_shared<int>(0);
  CLI::App& command = addCommand(app, invocation, "status",
                                 "Shows the module, ports, the application server, sessions and the last failures.",
                                 {"status", "status --json"});
  command.add_option("--server-port", *port, "TCP port of aps; default: the registry's")->check(CLI::Range(1, 65535));
  command.callback([port, &invocation] { invocation.run = [port](Output& output) { return run(*port, output); }; });
}

}  // namespace admin
