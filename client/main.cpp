#include "programs/main.h"

#include "client/invitation_guest.h"
#include "client/known_servers.h"
#include "client/options.h"
#include "client/persons_printers.h"
#include "client/print_client.h"
#include "client/printer_follower.h"
#include "client/reporter.h"
#include "client/session_client.h"
#include "client/session_loop.h"
#include "client/sinks/choose_sinks.h"
#include "client/sinks/printer/printer_sink.h"
#include "corvane/base/process.h"
#include "corvane/components/bridge.h"
#include "corvane/components/component_server.h"
#include "corvane/records/exception.h"
#include "programs/invitation.h"
#include "programs/stop_request.h"
#include "programs/text.h"
#include "protocol/names.h"

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <fmt/format.h>
#include <fstream>
#include <iterator>
#include <list>
#include <memory>
#include <stdexcept>
#include <thread>
#include <vector>

namespace {

constexpr unsigned kJobEndMilliseconds = 5000;

void registerClasses(const std::shared_ptr<printclient::JobOutput>& output) {
  CS_ComponentServer* server = CS_ComponentServer::getServer();
  server->registerClass(protocol::kPrintClientClass,
                        new corvane::ComponentClass<printclient::PrintClient, printclient::PrintClient::Context>(
                            protocol::kVersion, output));
  server->offerClass(protocol::kPrintClientClass);
  server->offerClass(CS_Bridge::m_className);
  server->registerClass(protocol::kSessionClientClass,
                        new corvane::ComponentClass<printclient::SessionClient, printclient::SessionClient::Context>(
                            protocol::kVersion, output));
}

// The line itself, or what the file of that name holds.
std::string invitationText(const std::string& given) {
  if (given.starts_with(programs::Invitation::kScheme)) return given;
  std::ifstream file(programs::toPath(given), std::ios::binary);
  if (!file) {
    throw std::runtime_error(
        fmt::format("--invitation \"{}\" is neither an invitation, which begins with {}, nor a file that can be read",
                    given, programs::Invitation::kScheme));
  }
  std::string text(1024, '\0');
  file.read(text.data(), static_cast<std::streamsize>(text.size()));
  text.resize(static_cast<std::size_t>(file.gcount()));
  return text;
}

// Redeems the invitations. The server that the options name, or all that are known from invitations; none after saying
// why there is none.
std::vector<printclient::Options> chooseServers(const printclient::Options& options) try {
  const printclient::KnownServers known(printclient::KnownServers::ownFolder());
  for (const std::string& given : options.invitations) {
    const auto invitation = programs::Invitation::parse(invitationText(given));
    known.prepare();
    const auto server = known.add(invitation.server, invitation.session, printclient::redeem(invitation));
    std::printf("the invitation is redeemed: printclient knows session %d of %s from now on\n", server.session,
                server.address.text().c_str());
    std::fflush(stdout);
  }
  if (options.session != 0) return {options};
  std::vector<printclient::Options> chosen;
  for (const auto& server : known.all()) {
    printclient::Options& its = chosen.emplace_back(options);
    its.host = server.address.host;
    its.port = server.address.port;
    its.session = server.session;
    its.keyFile = server.keyFile;
    its.usesTls = true;
    its.label = server.address.text() + ": ";
  }
  if (chosen.size() == 1) chosen.front().label.clear();
  if (chosen.empty()) {
    throw std::runtime_error(
        "no server is known: give what an administrator gave you with --invitation, or the number of the session with "
        "--session (and --server)");
  }
  return chosen;
} catch (const CS_Exception& failure) {
  std::fprintf(stderr, "printclient: %s; ask for another invitation\n", programs::oneLine(failure.detail()).c_str());
  return {};
} catch (const std::exception& failure) {
  std::fprintf(stderr, "printclient: %s\n", failure.what());
  return {};
}

// Tells each server when the person's printers change; null where the options name the printers.
std::unique_ptr<printclient::PrinterFollower> followPrinters(const printclient::Options& options,
                                                             const printclient::JobOutput& output,
                                                             std::list<printclient::SessionLoop>& loops) {
  if (!options.printersAreOwn) return nullptr;
  const auto tell = [&output, &loops](const std::vector<printclient::PrinterOption>& found) {
    std::vector<protocol::Printer> printers;
    for (const auto& [printer, target] : found) {
      output.sinks().set(printer.name(), std::make_shared<printclient::PrinterSink>(target));
      printers.push_back(printer);
    }
    for (auto& loop : loops)
      loop.usePrinters(printers);
  };
  return std::make_unique<printclient::PrinterFollower>(
      printclient::PersonsPrinters::Choice{options.only, options.except},
      printclient::PrinterFollower::kUsual / options.pace, tell);
}

// Serves each server on a thread of its own until the person or the system wants an end; returns the exit code.
int serveAll(const std::vector<printclient::Options>& servers, const std::shared_ptr<printclient::JobOutput>& output) {
  std::list<printclient::SessionLoop> loops;
  for (const auto& server : servers)
    loops.emplace_back(server, output);
  const programs::StopRequest stop([&loops] {
    for (auto& loop : loops)
      loop.stop();
  });
  const auto follower = followPrinters(servers.front(), *output, loops);
  std::atomic<int> exitCode{0};
  std::vector<std::thread> threads;
  for (auto loop = std::next(loops.begin()); loop != loops.end(); ++loop)
    threads.emplace_back([&exitCode, loop] {
      if (const int code = loop->run(); code != 0) exitCode = code;
    });
  if (const int code = loops.front().run(); code != 0) exitCode = code;
  for (std::thread& thread : threads)
    thread.join();
  return exitCode;
}

// The printers and where their jobs go; false after saying what is wrong.
bool preparePlaces(printclient::Options& options, std::filesystem::path& folder,
                   std::shared_ptr<printclient::SinkTable>& sinks) try {
  printclient::PersonsPrinters::addTo(options);
  folder = printclient::temporaryFolder(options);
  sinks = printclient::chooseSinks(options);
  return true;
} catch (const std::runtime_error& failure) {
  std::fprintf(stderr, "%s\n", failure.what());
  return false;
}

}  // namespace

int programMain(const std::vector<std::string>& arguments) {
  programs::silenceLocalLog();  // the reporter says it
  printclient::ParsedOptions parsed = printclient::parseOptions(arguments);
  if (parsed.exitCode >= 0) {
    std::fputs(parsed.message.c_str(), parsed.exitCode == 0 ? stdout : stderr);
    return parsed.exitCode;
  }
  std::filesystem::path folder;
  std::shared_ptr<printclient::SinkTable> sinks;
  if (!preparePlaces(parsed.options, folder, sinks)) return 1;
  if (!CS_ComponentServer::initialize(0, 0)) {
    std::fputs("the network of this machine cannot be used\n", stderr);
    return 1;
  }
  const std::vector<printclient::Options> servers = chooseServers(parsed.options);
  if (servers.empty()) return 1;
  printclient::Reporter reporter;
  const auto output = std::make_shared<printclient::JobOutput>(
      folder, servers.size() == 1 ? servers.front().session : 0, corvane::processId(), reporter, sinks);
  CS_ProgramMonitor::setDefaultMonitor(CS_RCPtr<CS_ProgramMonitor>(new printclient::ReporterMonitor(reporter)));
  registerClasses(output);
  const int exitCode = serveAll(servers, output);
  sinks->stop();
  // Jobs that are cut by the end are dropped on their own threads; their temporary files must be gone before we are.
  if (!CS_Bridge::waitForThreads(kJobEndMilliseconds)) {
    reporter.line("a job did not end in time; its temporary file goes with the folder's next print client");
    reporter.flush();
    std::_Exit(exitCode);  // its thread still uses what would be destroyed now
  }
  CS_ProgramMonitor::setDefaultMonitor(nullptr);
  return exitCode;
}
