#include "client/service.h"

#include "client/print_client.h"
#include "client/session_client.h"
#include "client/sinks/choose_sinks.h"
#include "client/sinks/printer/printer_sink.h"
#include "corvane/components/bridge.h"
#include "corvane/components/component_server.h"
#include "programs/stop_request.h"
#include "protocol/names.h"

#include <atomic>
#include <iterator>
#include <thread>

namespace printclient {
namespace {

void registerClasses(const std::shared_ptr<JobOutput>& output) {
  CS_ComponentServer* server = CS_ComponentServer::getServer();
  server->registerClass(protocol::kPrintClientClass,
                        new corvane::ComponentClass<PrintClient, PrintClient::Context>(protocol::kVersion, output));
  server->offerClass(protocol::kPrintClientClass);
  server->offerClass(CS_Bridge::m_className);
  server->registerClass(protocol::kSessionClientClass,
                        new corvane::ComponentClass<SessionClient, SessionClient::Context>(protocol::kVersion, output));
}

}  // namespace

Service::Service(const std::vector<Options>& servers, const std::shared_ptr<JobOutput>& output)
    : m_options(servers.front()), m_output(output), m_report(output->reporter()) {
  for (const Options& server : servers)
    m_loops.emplace_back(server, output, m_report);
  registerClasses(output);
}

void Service::followJobs() {
  m_jobs.emplace([this](const FollowedJob& job, const JobProgress& progress,
                        bool isFirst) { m_report.tell(job, progress, isFirst); },
                 JobFollower::Pace().faster(m_options.pace));
  m_output->onTaken([this](const JobOrigin& origin, const protocol::JobStart& start, const TakenJob& job) {
    m_jobs->follow({origin, start.jobName, start.printerName, start.documentName}, job);
  });
}

std::unique_ptr<PrinterFollower> Service::followPrinters() {
  if (!m_options.printersAreOwn) return nullptr;
  return std::make_unique<PrinterFollower>(PersonsPrinters::Choice{m_options.only, m_options.except},
                                           PrinterFollower::kUsual / m_options.pace,
                                           [this](const std::vector<PrinterOption>& found) { usePrinters(found); });
}

void Service::usePrinters(const std::vector<PrinterOption>& found) {
  std::vector<protocol::Printer> printers;
  for (const auto& [printer, target] : found) {
    m_output->setSink(printer.name(), std::make_shared<PrinterSink>(target, patienceOf(m_options)));
    printers.push_back(printer);
  }
  for (SessionLoop& loop : m_loops)
    loop.usePrinters(printers);
}

int Service::run() {
  const programs::StopRequest stop([this] {
    for (SessionLoop& loop : m_loops)
      loop.stop();
  });
  followJobs();
  const auto follower = followPrinters();
  std::atomic<int> exitCode{0};
  std::vector<std::thread> threads;
  for (auto loop = std::next(m_loops.begin()); loop != m_loops.end(); ++loop)
    threads.emplace_back([&exitCode, loop] {
      if (const int code = loop->run(); code != 0) exitCode = code;
    });
  if (const int code = m_loops.front().run(); code != 0) exitCode = code;
  for (std::thread& thread : threads)
    thread.join();
  return exitCode;
}

}  // namespace printclient
