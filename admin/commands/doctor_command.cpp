#include "admin/base/files.h"
#include "admin/base/output.h"
#include "admin/commands/invocation.h"
#include "admin/doctor/checks.h"
#include "admin/doctor/diagnosis.h"
#include "admin/doctor/repairs.h"
#include "admin/doctor/windows_policies.h"
#include "admin/sessions/application_server.h"
#include "admin/sessions/session_printers.h"
#include "admin/sessions/test_session.h"
#include "admin/spooler/spooler_port.h"
#include "admin/spooler/wine_spooler.h"
#include "corvane/base/text.h"
#include "corvane/records/host_properties.h"
#include "corvane/trust/key.h"
#include "programs/text.h"

#include <CLI/CLI.hpp>
#include <fmt/format.h>
#include <fmt/xchar.h>
#include <iostream>
#include <optional>
#include <vector>

namespace admin {
namespace {

struct DoctorOptions {
  int serverPort = 0;
  std::string driver, processor, keyFile;
  bool repairs = false, asksNothing = false, printsNoPage = false;
};

std::string checkServer(int port, std::optional<protocol::ServerStatus>& facts) {
  facts = ApplicationServer(port).status();
  return fmt::format("aps {}, process {}, runs since {}", programs::oneLine(facts->version), facts->process,
                     programs::oneLine(facts->since));
}

// Throws a Failure unless every printer of the session exists here.
void requirePrinters(const protocol::ListedSession& session, const std::vector<SpoolerPrinter>& present) {
  std::string names;
  for (const std::wstring& name : missingHere(session, present))
    names += fmt::format("{}{}\"", names.empty() ? "\"" : ", \"", programs::oneLine(name));
  if (names.empty()) return;
  throw Failure(ExitCode::kFailed, fmt::format("connected, but some of its printers are missing here: {}", names),
                fmt::format("Run mgprintmon session up {}: it shows why the spooler refuses them.", session.number));
}

// A session without a client is an error only when its printers are up.
std::string checkSession(const protocol::ListedSession& session) {
  const std::string since = fmt::format(" since {}", programs::oneLine(session.since));
  const bool isUp = hasPort(sessionPort(static_cast<unsigned>(session.number)));
  if (session.isConnected && isUp) requirePrinters(session, localPrinters());
  if (session.isConnected) return fmt::format("connected{}", since);
  if (!isUp) return fmt::format("gone{}, and the session is not up here", since);
  throw Failure(ExitCode::kFailed, fmt::format("gone{}, while the session's printers are still here", since),
                fmt::format("Start the session's print client, or run mgprintmon session down {}.", session.number));
}

void checkSessions(Diagnosis& diagnosis, const protocol::ServerStatus& facts) {
  for (const protocol::ListedSession& session : facts.sessions) {
    if (isTestSession(session.number)) continue;
    diagnosis.examine(
        fmt::format("print client of session {}", session.number), [&] { return checkSession(session); },
        [&session]() -> std::optional<Repair> {
          if (session.isConnected) return std::nullopt;
          return repairOfLeftSession(static_cast<unsigned>(session.number));
        });
  }
}

// The number in the name of a session's port; nothing for any other name.
std::optional<int> sessionOfPort(const std::wstring& port) {
  const std::wstring digits = port.starts_with(L"CPP") ? port.substr(3) : std::wstring();
  if (digits.empty() || digits.size() > 9 || digits.find_first_not_of(L"0123456789") != std::wstring::npos)
    return std::nullopt;
  return std::stoi(digits);
}

// Ports that nobody takes down any more: of sessions that aps does not know, when they have printers, and of a doctor
// that was killed.
void checkLeftPorts(Diagnosis& diagnosis, const protocol::ServerStatus& facts) {
  for (const std::wstring& port : monitorPorts()) {
    const auto number = sessionOfPort(port);
    if (!number || (facts.session(*number) != nullptr && !isTestSession(*number))) continue;
    const std::size_t printers = printersOn({port}).size();
    if (printers == 0 && !isTestSession(*number)) continue;
    const auto check = [&]() -> std::string {
      if (!hasPort(port)) return "it is gone";
      throw Failure(ExitCode::kFailed,
                    isTestSession(*number) ? "it is left of a test page whose mgprintmon was killed"
                                           : "it has printers, and aps does not know its session",
                    fmt::format("Run mgprintmon session down {}.", *number));
    };
    diagnosis.examine(fmt::format("port {}", programs::oneLine(port)), check,
                      [&number] { return repairOfLeftSession(static_cast<unsigned>(*number)); });
  }
}

// Each setting of Windows that keeps us out is a finding of its own.
void checkPolicies(Diagnosis& diagnosis, const Places& places) {
  std::vector<WindowsSetting> settings;
  const bool isRead = diagnosis.examine("windows policies", [&] {
    settings = windowsSettings(policyContext(places));
    const auto harmful = std::erase_if(settings, [](const WindowsSetting& setting) { return setting.cause.empty(); });
    const std::string others = harmful == 0 ? std::string() : fmt::format("; {} set that do no harm", harmful);
    if (settings.empty()) return "none keeps the monitor, its drivers or its printers out" + others;
    throw Failure(ExitCode::kFailed, settings.front().cause, settings.front().remedy);
  });
  for (std::size_t i = 1; !isRead && i < settings.size(); ++i) {
    diagnosis.examine("windows policies", [&]() -> std::string {
      throw Failure(ExitCode::kFailed, settings[i].cause, settings[i].remedy);
    });
  }
}

// A key of the test session for one page, where this installation keeps those of aps.
class TestKey {
 public:
  explicit TestKey(const Places& places)
      : m_file(corvane::toUtf8(fmt::format(L"{}\\session-{}.key", places.keyFolder(), kFirstTestSession))) {
    deleteFile(corvane::fromUtf8(m_file));
    corvane::Key::writeNew(m_file);
  }
  ~TestKey() { DeleteFileW(corvane::fromUtf8(m_file).c_str()); }
  TestKey(const TestKey&) = delete;
  TestKey& operator=(const TestKey&) = delete;
  const std::string& file() const { return m_file; }

 private:
  const std::string m_file;
};

std::string printPage(const Places& places, const protocol::ServerStatus& server, const DoctorOptions& options) {
  TestPageOptions page{options.serverPort, corvane::fromUtf8(options.driver), corvane::fromUtf8(options.processor),
                       options.keyFile};
  std::optional<TestKey> key;
  if (page.keyFile.empty() && !HostProperties::getInstance().keyFile().empty())
    page.keyFile = key.emplace(places).file();
  return printTestPage(server, page);
}

// What a job needs on its way, apart from a page that goes it.
struct Way {
  std::optional<protocol::ServerStatus> server;
  bool loads = false;
  bool isRegistered = false;
};

Way checkParts(const DoctorOptions& options, const Places& places, Diagnosis& diagnosis) {
  const auto install = [&] { return repairByInstalling(places); };
  Way way;
  diagnosis.examine(
      "spooler", [] { return checkSpooler(serviceFacts(kSpoolerService), spoolerPrintsHere()); },
      [] { return repairOfSpooler(spoolerPrintsHere()); });
  checkPolicies(diagnosis, places);
  const bool isThere = diagnosis.examine(
      "module file", [&] { return checkModuleFile(places); }, install);
  way.loads = isThere && diagnosis.examine("module", checkModuleLoads);
  way.isRegistered = diagnosis.examine("registration", checkRegistration, [&] { return repairOfRegistration(places); });
  diagnosis.examine(
      "registry", [&] { return checkRegistry(places); }, [&] { return repairOfRegistry(places); });
  diagnosis.examine(
      "key file", [&] { return checkKeyFile(places); }, [&] { return repairOfKeyFile(places); });
  diagnosis.examine(
      "services", [&] { return checkServices(places); }, [&] { return repairOfServices(places); });
  diagnosis.examine("application server", [&] { return checkServer(options.serverPort, way.server); });
  diagnosis.examine(
      "converter", [&] { return checkConverter(places); }, [&] { return repairOfConverter(places); });
  return way;
}

void checkPrinters(Diagnosis& diagnosis, const Way& way) {
  if (way.isRegistered) diagnosis.examine("queues", [] { return checkQueues(monitorPorts(), localPrinters()); });
  if (!way.server) return;
  if (way.isRegistered) {
    checkSessions(diagnosis, *way.server);
    checkLeftPorts(diagnosis, *way.server);
  }
  diagnosis.examine("server drivers", [&] {
    return checkServerDrivers(way.server->sessions, localPrinters(), ServerDrivers::ofThisMachine());
  });
  diagnosis.examine("drivers", [&] { return checkDrivers(way.server->sessions, localPrinters()); });
}

void checkPage(const DoctorOptions& options, const Places& places, Diagnosis& diagnosis, const Way& way) {
  const std::wstring monitor = HostProperties::getInstance().keyFile();
  if (options.printsNoPage) return diagnosis.leaveOut("test page", "none is wanted");
  if (!way.server || !way.loads || !way.isRegistered)
    return diagnosis.skip("test page", "it needs the module, its registration and the application server");
  if (options.keyFile.empty() && !monitor.empty() && monitor != places.monitorKey()) {
    return diagnosis.leaveOut(
        "test page", fmt::format("aps wants keys; make one for session {} and name it with --key", kFirstTestSession));
  }
  diagnosis.examine("test page", [&] { return printPage(places, *way.server, options); });
}

constexpr char kNobodyToAsk[] =
    "nothing was repaired: nobody can be asked, because the input is no terminal; --yes repairs without asking";

ExitCode run(const DoctorOptions& options, Output& output) {
  const Places places = Places::ofThisMachine();
  AskRepair ask;
  if (options.repairs && options.asksNothing) ask = [](const std::string&) { return true; };
  if (options.repairs && !options.asksNothing && isInputTerminal()) ask = askAt(std::cin, std::cerr);
  const bool asksNobody = options.repairs && !ask;
  Diagnosis diagnosis(output, isUnicodeTerminal(), std::move(ask));
  // A program without it cannot even load the module.
  diagnosis.examine("temporary folder", checkTemporaryFolder, repairOfTemporaryFolder);
  const Way way = checkParts(options, places, diagnosis);
  checkPrinters(diagnosis, way);
  checkPage(options, places, diagnosis, way);
  diagnosis.conclude(asksNobody && !diagnosis.isWell() ? kNobodyToAsk : "");
  return diagnosis.isWell() ? ExitCode::kDone : ExitCode::kFailed;
}

}  // namespace

void addDoctorCommand(CLI::App& app, Invocation& invocation) {
  auto options = std::make_shared<DoctorOptions>();
  CLI::App& command = addCommand(
      app, invocation, "doctor",
      "Checks everything that a job needs, and prints a test page end to end. The exit code is 1 when a check "
      "fails, and is not well after a repair.",
      {"doctor", "doctor --json", "doctor --fix", "doctor --driver \"Generic PostScript\""});
  CLI::Option* const repairs =
      command.add_flag("--fix", options->repairs, "repair what can be repaired, and ask before each repair");
  command.add_flag("--yes", options->asksNothing, "do not ask")->needs(repairs);
  command.add_flag("--no-page", options->printsNoPage, "print no test page");
  command.add_option("--driver", options->driver, "driver of the test page's printer; default: any");
  command.add_option("--processor", options->processor, "its print processor; default: winprint");
  command.add_option("--key", options->keyFile, "the key of the test session, when aps wants keys");
  command.add_option("--server-port", options->serverPort, "TCP port of aps; default: the registry's")
      ->check(CLI::Range(1, 65535));
  command.callback(
      [options, &invocation] { invocation.run = [options](Output& output) { return run(*options, output); }; });
}

}  // namespace admin
