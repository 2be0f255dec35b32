#include "programs/main.h"

#include "client/job_output.h"
#include "client/options.h"
#include "client/page/show_page.h"
#include "client/persons_printers.h"
#include "client/private_folder.h"
#include "client/reporter.h"
#include "client/server_choice.h"
#include "client/service.h"
#include "client/sinks/choose_sinks.h"
#include "corvane/base/process.h"
#include "corvane/components/bridge.h"
#include "corvane/components/component_server.h"

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <stdexcept>

namespace {

constexpr unsigned kJobEndMilliseconds = 5000;

// The printers and where their jobs go; false after saying what is wrong.
bool preparePlaces(printclient::Options& options, std::filesystem::path& folder,
                   std::shared_ptr<printclient::Sink>& others) try {
  printclient::PersonsPrinters::addTo(options);
  folder = printclient::temporaryFolder(options);
  others = printclient::sinkOfOthers(options);
  return true;
} catch (const std::runtime_error& failure) {
  std::fprintf(stderr, "%s\n", failure.what());
  return false;
}

int showPersonsPage() try {
  const printclient::ShownPage shown = printclient::showPage(printclient::privateFolder());
  std::fputs(shown.message.c_str(), shown.exitCode == 0 ? stdout : stderr);
  return shown.exitCode;
} catch (const std::runtime_error& failure) {
  std::fprintf(stderr, "printclient: %s\n", failure.what());
  return 1;
}

}  // namespace

int programMain(const std::vector<std::string>& arguments) {
  programs::silenceLocalLog();  // the reporter says it
  printclient::ParsedOptions parsed = printclient::parseOptions(arguments);
  if (parsed.exitCode >= 0) {
    std::fputs(parsed.message.c_str(), parsed.exitCode == 0 ? stdout : stderr);
    return parsed.exitCode;
  }
  if (parsed.options.showsPage) return showPersonsPage();
  std::filesystem::path folder;
  std::shared_ptr<printclient::Sink> others;
  if (!preparePlaces(parsed.options, folder, others)) return 1;
  if (!CS_ComponentServer::initialize(0, 0)) {
    std::fputs("the network of this machine cannot be used\n", stderr);
    return 1;
  }
  const std::vector<printclient::Options> servers = printclient::chooseServers(parsed.options);
  if (servers.empty()) return 1;
  printclient::Reporter reporter;
  const auto output = std::make_shared<printclient::JobOutput>(
      folder, servers.size() == 1 ? servers.front().session : 0, corvane::processId(), reporter, others);
  CS_ProgramMonitor::setDefaultMonitor(CS_RCPtr<CS_ProgramMonitor>(new printclient::ReporterMonitor(reporter)));
  printclient::Service service(servers, output);
  const int exitCode = service.run();
  output->stopSinks();
  // Jobs that are cut by the end are dropped on their own threads; their temporary files must be gone before we are.
  if (!CS_Bridge::waitForThreads(kJobEndMilliseconds)) {
    reporter.line("a job did not end in time; its temporary file goes with the folder's next print client");
    reporter.flush();
    std::_Exit(exitCode);  // its thread still uses what would be destroyed now
  }
  CS_ProgramMonitor::setDefaultMonitor(nullptr);
  return exitCode;
}
