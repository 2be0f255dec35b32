#include "client/service.h"

#include "client/print_client.h"
#include "client/private_folder.h"
#include "client/session_client.h"
#include "client/sinks/choose_sinks.h"
#include "client/sinks/printer/printer_sink.h"
#include "corvane/components/bridge.h"
#include "corvane/components/component_server.h"
#include "programs/stop_request.h"
#include "programs/text.h"
#include "protocol/names.h"

#include <atomic>
#include <exception>
#include <fmt/format.h>
#include <iterator>
#include <system_error>
#include <thread>

namespace printclient {
namespace {

JobStage stageOf(protocol::PaperState state) {
  switch (state) {
    case protocol::PaperState::kWaiting:
      return JobStage::kWaiting;
    case protocol::PaperState::kPrinting:
      return JobStage::kPrinting;
    case protocol::PaperState::kStopped:
      return JobStage::kStopped;
    case protocol::PaperState::kCanceled:
      return JobStage::kCanceled;
    case protocol::PaperState::kAborted:
      return JobStage::kFailed;
    case protocol::PaperState::kPrinted:
      return JobStage::kPrinted;
    case protocol::PaperState::kHandedOn:
      return JobStage::kHandedOn;
    case protocol::PaperState::kUnknown:
      break;
  }
  return JobStage::kUnknown;
}

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
  std::vector<PrinterOption> printers;
  for (const protocol::Printer& printer : m_options.printers) {
    const auto target = m_options.targets.find(printer.name());
    printers.push_back({printer, target != m_options.targets.end() ? target->second : PrinterTarget()});
  }
  showPrinters(printers);
}

void Service::followJobs() {
  m_jobs.emplace(
      [this](const FollowedJob& job, const JobProgress& progress, bool isFirst) { tellNews(job, progress, isFirst); },
      JobFollower::Pace().faster(m_options.pace));
  JobBoard& board = m_output->board();
  m_jobs->onCancelFailure([&board](std::uint64_t number, const std::string& why) {
    board.change(number, [&why](BoardJob& job) {
      job.isCanceling = false;
      job.cause = fmt::format("the printer could not be told to cancel the job: {}", why);
      job.remedy = "cancel it at the printer";
    });
  });
  m_output->onTaken([this, &board](const FollowedJob& job, const TakenJob& taken) {
    m_jobs->follow(job, taken);
    // The person has canceled it while its sink took it and did not look.
    const auto shown = board.find(job.listed);
    if (shown && shown->isCanceling) m_jobs->cancel(job.listed);
  });
}

void Service::rememberTaken() try {
  auto taken = std::make_unique<TakenJobs>(TakenJobs::ownFolder());
  taken->lookAtBegun();
  m_output->useTakenJobs(std::move(taken));
} catch (const std::runtime_error&) {
  // The server is told when it has held a job.
}

void Service::tellNews(const FollowedJob& job, const JobProgress& progress, bool isFirst) {
  // What a sink has said of a job that goes no further stands on the board already.
  m_output->board().change(job.listed, [&progress](BoardJob& shown) {
    if (isOver(shown.stage)) return;
    shown.stage = stageOf(progress.state);
    shown.cause = progress.cause.empty() ? "" : "the printer " + progress.cause;
    shown.remedy = progress.remedy;
  });
  m_report.tell(job, progress, isFirst);
}

void Service::openPage() try {
  if (!m_options.hasPage) return;
  const std::filesystem::path folder = privateFolder();
  removeLeftoversIn(folder);
  JobBoard& board = m_output->board();
  KeptDocuments::Bounds bounds;
  bounds.most = static_cast<std::size_t>(m_options.keptDocuments);
  m_documents.emplace(folder, bounds, [&board](std::uint64_t number) {
    board.change(number, [](BoardJob& job) { job.kept.clear(); });
  });
  m_actions.emplace(*m_output, *m_jobs, &*m_documents);
  m_page.emplace(folder, board, &*m_documents, *m_actions);
  m_output->onWhole([this](const WholeDocument& document) { return m_documents->keep(document); });
} catch (const std::exception& failure) {
  m_page.reset();
  m_output->reporter().line(fmt::format(
      "there is no page of your print jobs (printclient --show): {}; everything else goes on", failure.what()));
}

void Service::openNotices() try {
  if (!m_options.hasNotices) return;
  m_notices.emplace(m_output->board(), [this](const std::string& why) {
    m_output->reporter().line(fmt::format("no notices are shown on the desktop: {}", why));
  });
} catch (const std::system_error& failure) {
  m_output->reporter().line(fmt::format("no notices are shown on the desktop: {}", failure.what()));
}

// What the page has begun ends with the sinks.
void Service::closePage() {
  m_page.reset();
  m_output->stopSinks();
  m_actions.reset();
}

void Service::showPrinters(const std::vector<PrinterOption>& printers) {
  std::vector<BoardPrinter> shown;
  for (const auto& [printer, target] : printers) {
    std::string place = !target.queue.empty()        ? fmt::format("printer \"{}\" of this machine", target.queue)
                        : !target.uri.empty()        ? target.uri
                        : !m_options.command.empty() ? fmt::format("program \"{}\"", m_options.command)
                                                     : fmt::format("folder {}", m_options.output);
    shown.push_back({programs::oneLine(printer.name()), std::move(place), printer.isDefault});
  }
  m_output->board().setPrinters(std::move(shown));
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
  showPrinters(found);
}

int Service::run() {
  const programs::StopRequest stop([this] {
    for (SessionLoop& loop : m_loops)
      loop.stop();
  });
  followJobs();
  rememberTaken();
  openPage();
  openNotices();
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
  m_notices.reset();
  closePage();
  return exitCode;
}

}  // namespace printclient
