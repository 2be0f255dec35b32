#include "admin/base/files.h"
#include "admin/base/output.h"
#include "admin/commands/invocation.h"
#include "admin/doctor/checks.h"
#include "admin/doctor/diagnosis.h"
#include "admin/sessions/application_server.h"
#include "admin/sessions/session_printers.h"
#include "admin/sessions/test_session.h"
#include "admin/spooler/spooler_port.h"
#include "corvane/base/text.h"
#include "corvane/records/host_properties.h"
#include "corvane/trust/key.h"
#include "programs/text.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <fmt/format.h>
#include <fmt/xchar.h>
#include <optional>

namespace admin {
namespace {

struct Options {
  int serverPort = 0;
  std::string driver, processor, keyFile;
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
void checkSessions(Diagnosis& diagnosis, const protocol::ServerStatus& facts) {
  const std::vector<std::wstring> ports = monitorPorts();
  const std::vector<SpoolerPrinter> present = localPrinters();
  for (const protocol::ListedSession& session : facts.sessions) {
    if (isTestSession(session.number)) continue;
    const bool isUp =
        std::find(ports.begin(), ports.end(), sessionPort(static_cast<unsigned>(session.number))) != ports.end();
    diagnosis.examine(fmt::format("print client of session {}", session.number), [&] {
      const std::string since = fmt::format(" since {}", programs::oneLine(session.since));
      if (session.isConnected && isUp) requirePrinters(session, present);
      if (session.isConnected) return fmt::format("connected{}", since);
      if (!isUp) return fmt::format("gone{}, and the session is not up here", since);
      throw Failure(
          ExitCode::kFailed, fmt::format("gone{}, while the session's printers are still here", since),
          fmt::format("Start the session's print client, or run mgprintmon session down {}.", session.number));
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

std::string printPage(const Places& places, const protocol::ServerStatus& server, const Options& options) {
  TestPageOptions page{options.serverPort, corvane::fromUtf8(options.driver), corvane::fromUtf8(options.processor),
                       options.keyFile};
  std::optional<TestKey> key;
  if (page.keyFile.empty() && !HostProperties::getInstance().keyFile().empty())
    page.keyFile = key.emplace(places).file();
  return printTestPage(server, page);
}

ExitCode run(const Options& options, Output& output) {
  const Places places = Places::ofThisMachine();
  Diagnosis diagnosis(output, isUnicodeTerminal());
  const bool isThere = diagnosis.examine("module file", [&] { return checkModuleFile(places); });
  const bool loads = isThere && diagnosis.examine("module", checkModuleLoads);
  const bool isRegistered = diagnosis.examine("registration", checkRegistration);
  diagnosis.examine("registry", [&] { return checkRegistry(places); });
  diagnosis.examine("key file", [&] { return checkKeyFile(places); });
  diagnosis.examine("services", [&] { return checkServices(places); });
  std::optional<protocol::ServerStatus> server;
  diagnosis.examine("application server", [&] { return checkServer(options.serverPort, server); });
  diagnosis.examine("converter", [&] { return checkConverter(places); });
  diagnosis.examine("temporary folder", checkTemporaryFolder);
  if (server && isRegistered) checkSessions(diagnosis, *server);
  if (server) {
    diagnosis.examine("server drivers", [&] {
      return checkServerDrivers(server->sessions, localPrinters(), ServerDrivers::ofThisMachine());
    });
  }
  if (server) diagnosis.examine("drivers", [&] { return checkDrivers(server->sessions, localPrinters()); });
  if (!server || !loads || !isRegistered) {
    diagnosis.skip("test page", "it needs the module, its registration and the application server");
  } else if (const std::wstring monitor = HostProperties::getInstance().keyFile();
             options.keyFile.empty() && !monitor.empty() && monitor != places.monitorKey()) {
    diagnosis.leaveOut(
        "test page", fmt::format("aps wants keys; make one for session {} and name it with --key", kFirstTestSession));
  } else {
    diagnosis.examine("test page", [&] { return printPage(places, *server, options); });
  }
  diagnosis.conclude();
  return diagnosis.isWell() ? ExitCode::kDone : ExitCode::kFailed;
}

}  // namespace

void addDoctorCommand(CLI::App& app, Invocation& invocation) {
  auto options = std::make_shared<Options>();
  CLI::App& command = addCommand(
      app, invocation, "doctor",
      "Checks everything that a job needs, and prints a test page end to end. The exit code is 1 when a check "
      "fails.",
      {"doctor", "doctor --json", "doctor --driver \"Generic PostScript\""});
  command.add_option("--driver", options->driver, "driver of the test page's printer; default: any");
  command.add_option("--processor", options->processor, "its print processor; default: winprint");
  command.add_option("--key", options->keyFile, "the key of the test session, when aps wants keys");
  command.add_option("--server-port", options->serverPort, "TCP port of aps; default: the registry's")
      ->check(CLI::Range(1, 65535));
  command.callback(
      [options, &invocation] { invocation.run = [options](Output& output) { return run(*options, output); }; });
}

}  // namespace admin
