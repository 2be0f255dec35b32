#include "server/port_monitor_client.h"

#include "corvane/base/text.h"
#include "corvane/components/connection.h"
#include "corvane/components/in_request.h"
#include "corvane/records/exception.h"
#include "corvane/records/messages.h"
#include "corvane/wire/link.h"
#include "programs/text.h"
#include "protocol/exchange.h"
#include "protocol/port_monitor.h"
#include "protocol/print_job.h"
#include "server/printer_name.h"

#include <fmt/format.h>
#include <fmt/xchar.h>

namespace aps {
namespace {

std::string unknownPrinter() {
  return "no session has a printer of that name; start the session's print client with it, or correct the name of the "
         "local printer";
}

// Empty when the route is made.
std::string routeRefusal(CS_BridgeRouter::Routing routing, int session) {
  switch (routing) {
    case CS_BridgeRouter::Routing::kMade:
      return "";
    case CS_BridgeRouter::Routing::kGone:
      return fmt::format("the print client of session {} has just gone; print again when it is back", session);
    case CS_BridgeRouter::Routing::kFull:
      break;
  }
  return fmt::format(
      "the limit of jobs at the same time is reached, here or for session {}; print again when one of them has ended",
      session);
}

}  // namespace

std::string PortMonitorClient::peerProcess() {
  const CS_Connection* connection = getConnection();
  if (connection == nullptr) return "unknown";
  const auto process = connection->peerValues().find(L"process");
  return process == connection->peerValues().end() ? "unknown" : programs::oneLine(process->second);
}

bool PortMonitorClient::release() {
  m_released = true;
  m_context->sessions.wake();
  return CS_Component::release();
}

bool PortMonitorClient::hasGivenUp() {
  if (m_released) return true;
  const CS_Connection* connection = getConnection();
  return connection == nullptr || connection->link() == nullptr || connection->link()->peerHasClosed();
}

bool PortMonitorClient::isToBeHeld(const SessionTable::Found& found) const {
  return m_context->standIn != nullptr && m_context->standIn->wants(found);
}

std::optional<SessionTable::Found> PortMonitorClient::awaitPrinter(const std::wstring& printerName) {
  const SessionTable& sessions = m_context->sessions;
  if (auto known = sessions.find(printerName); known && (known->client || isToBeHeld(*known))) return known;
  const CS_Connection* connection = getConnection();
  if (connection != nullptr && connection->link() != nullptr) connection->link()->sendGathered();
  if (sessions.isExpected(printerName)) {
    m_context->log.line(fmt::format(
        "printer {} was requested by process {}; the answer waits for its print client, which may be reconnecting",
        programs::quoted(printerName), peerProcess()));
  }
  const auto mark = m_context->jobs.wait(connection);
  auto found = sessions.awaitClient(printerName, [this] { return hasGivenUp(); });
  if (!(found && found->client) && hasGivenUp()) {
    throw CS_Exception(corvane::kConnectionLost, L"the caller did not wait for the print client");
  }
  return found;
}

bool PortMonitorClient::processRequest(CS_InRequest& request) {
  return logThrown(
      m_context->log, [this] { return fmt::format("process {}: request", peerProcess()); }, request.number(),
      [&] { return serve(request); });
}

bool PortMonitorClient::answersTogether(int number) const {
  return number == static_cast<int>(protocol::PortMonitorRequest::kPrinterInfo);
}

bool PortMonitorClient::serve(CS_InRequest& request) {
  switch (static_cast<protocol::PortMonitorRequest>(request.number())) {
    case protocol::PortMonitorRequest::kAttachJob:
      attachPrintJobToSession(request);
      return true;
    case protocol::PortMonitorRequest::kPrinterInfo:
      getPrinterInfo(request);
      return true;
    case protocol::PortMonitorRequest::kPrinterList:
      getPrinterList(request);
      return true;
    case protocol::PortMonitorRequest::kLaunch:
      launchApplication(request);
      return true;
  }
  return CS_Component::processRequest(request);
}

void PortMonitorClient::attachPrintJobToSession(CS_InRequest& request) {
  const auto job = protocol::read<protocol::AttachJob>(request);
  protocol::AttachJob::Answer answer;
  const std::string cause = attach(job, answer.versions);
  if (!cause.empty()) {
    m_context->log.failure(
        fmt::format("job refused: printer {}, process {}: {}", programs::quoted(job.printer), job.processId, cause));
  }
  protocol::answer(request, answer);
}

std::string PortMonitorClient::attach(const protocol::AttachJob& request, std::optional<CS_ClassVersionMap>& client) {
  const std::wstring& printerName = request.printer;
  const auto found = awaitPrinter(printerName);
  if (!found) return unknownPrinter();
  if (!found->client && !isToBeHeld(*found)) {
    return fmt::format("session {} has no print client; start one and print again", found->session);
  }
  const CS_RCPtr<CS_Component> component = getRootOwner()->getChild(static_cast<std::uint32_t>(request.bridge));
  const CS_RCPtr<CS_BridgeRouter> bridge(dynamic_cast<CS_BridgeRouter*>(component.get()));
  if (!bridge) return "the request names no bridge of its connection; the port monitor has another version";
  if (bridge->isRouted()) return "its bridge leads to a print client already; the port monitor has another version";

  const auto job = std::make_shared<Attached>();
  job->words = fmt::format("printer {}, session {}, process {}", programs::quoted(printerName), found->session,
                           request.processId);
  job->printer = printerName;
  job->isHeld = isToBeHeld(*found);
  auto mark = m_context->jobs.begin(found->session, getConnection());
  if (!mark) {
    return fmt::format("session {} has {} jobs in progress, which is the limit; print again when some have ended",
                       found->session, m_context->jobs.limitOfOneSession());
  }
  job->number = m_context->watch.begin(printerName, found->session, request.processId);
  try {
    return attachBegun(job, std::move(mark), request, *found, bridge, client);
  } catch (...) {
    if (!bridge->isRouted()) m_context->watch.refused(job->number, L"the application server has no memory for it");
    throw;
  }
}

std::string PortMonitorClient::attachBegun(const std::shared_ptr<Attached>& job, JobsInProgress::Mark mark,
                                           const protocol::AttachJob& request, const SessionTable::Found& found,
                                           const CS_RCPtr<CS_BridgeRouter>& bridge,
                                           std::optional<CS_ClassVersionMap>& client) {
  watchBridge(job, *bridge, std::move(mark));
  // What the client may create towards the monitor on this bridge.
  bridge->setVersionsOfClassesInPeerProcess(request.versions, CS_Component::kSetVersionsOnOwnPeer);
  m_context->log.line(fmt::format("job attached: {}", job->words));
  client = *found.versions;
  const std::string refusal =
      job->isHeld ? attachToHold(job, found, request.processId, *bridge, client) : attachToClient(*job, found, *bridge);
  if (refusal.empty()) {
    m_context->watch.routed(job->number, bridge);
  } else {
    m_context->watch.refused(job->number, corvane::fromUtf8(refusal));
    client.reset();
  }
  return refusal;
}

void PortMonitorClient::watchBridge(const std::shared_ptr<Attached>& job, CS_BridgeRouter& bridge,
                                    JobsInProgress::Mark mark) const {
  bridge.onEnd([context = m_context, job, mark = std::move(mark)](const CS_BridgeRouter::Ending& ending) {
    jobEnded(*context, *job, ending);
  });
  bridge.onPass([context = m_context, number = job->number](const CS_BridgeRouter::Passing& passing) {
    context->watch.passed(number, passing);
  });
}

std::string PortMonitorClient::attachToClient(const Attached& job, const SessionTable::Found& found,
                                              CS_BridgeRouter& bridge) {
  std::string refusal = routeRefusal(bridge.routeTo(found.client), found.session);
  if (refusal.empty()) m_context->clientNews.jobAttached(job.printer, found.client.get(), found.printer.name());
  return refusal;
}

std::string PortMonitorClient::attachToHold(const std::shared_ptr<Attached>& job, const SessionTable::Found& found,
                                            int process, CS_BridgeRouter& bridge,
                                            std::optional<CS_ClassVersionMap>& client) try {
  const auto place = m_context->standIn->prepare(job->number, found, job->printer, process);
  m_context->watch.hold(job->number);
  const std::string refusal = routeRefusal(bridge.routeTo(place->connection), found.session);
  if (!refusal.empty()) return refusal;
  // Nothing passes before this request is answered.
  job->heldBridge = bridge.continuedAs();
  place->expect(job->heldBridge);
  client = std::move(place->versions);
  return "";
} catch (const HoldRefusal& refusal) {
  return fmt::format("{}; {}", refusal.what(), refusal.remedy());
}

void PortMonitorClient::heldJobEnded(const Context& context, const Attached& job, const CS_BridgeRouter::Ending& ending,
                                     bool isCanceled) {
  const bool isAnswered = ending.answered == static_cast<int>(protocol::JobEnd::kNumber);
  if (context.standIn->ended(job.number, job.heldBridge, isAnswered)) return;
  const std::string passed = fmt::format("{}: {} bytes passed on", job.words, ending.bytes);
  const std::string why = ending.reason.empty() ? "" : fmt::format(" ({})", programs::oneLine(ending.reason));
  if (isCanceled) {
    context.log.line(fmt::format("job canceled: {}; {}", passed, programs::oneLine(ending.reason)));
  } else if (isAnswered) {
    context.log.line(fmt::format("job ended: {}; it was not to be held", passed));
  } else if (ending.madeHere) {
    context.log.failure(
        fmt::format("job cut: {}; the port monitor left before its end{}; its log says what failed "
                    "there, then print again",
                    passed, why));
  } else {
    context.log.line(fmt::format("job ended: {}; it is not held{}", passed, why));
  }
}

void PortMonitorClient::jobEnded(const Context& context, const Attached& job, const CS_BridgeRouter::Ending& ending) {
  const bool isAnswered = ending.answered == static_cast<int>(protocol::JobEnd::kNumber);
  const bool isShown = !isAnswered && ending.madeHere && context.shownJobs.take(foldedName(job.printer));
  const bool isCanceled = context.watch.ended(job.number, ending, isShown);
  if (job.isHeld && !isShown) return heldJobEnded(context, job, ending, isCanceled);
  if (job.isHeld) context.standIn->ended(job.number, job.heldBridge, false);
  const std::string passed = fmt::format("{}: {} bytes passed on", job.words, ending.bytes);
  if (isAnswered) {
    context.log.line(fmt::format("job ended: {}; the print client has answered its end", passed));
    return;
  }
  if (isShown) {
    context.log.line(fmt::format("job ended: {}; a program was started to show it instead", passed));
    return;
  }
  if (isCanceled) {
    context.log.line(fmt::format("job canceled: {}; {}", passed, programs::oneLine(ending.reason)));
    return;
  }
  const std::wstring reason = ending.reason.empty() ? L"" : fmt::format(L" ({})", ending.reason);
  if (ending.madeHere) {
    context.clientNews.jobCut(job.printer,
                              fmt::format(L"the print spooler of the server left before the job's end{}", reason),
                              L"Print again; when that fails too, the port monitor's log on the server says more.");
  }
  const std::string why = ending.reason.empty() ? "" : fmt::format(" ({})", programs::oneLine(ending.reason));
  context.log.failure(
      fmt::format("job cut: {}; {} before its end{}; {}", passed,
                  ending.madeHere ? "the port monitor left" : "the session's print client has gone", why,
                  ending.madeHere ? "its log says what failed there, then print again" : "start it and print again"));
}

void PortMonitorClient::getPrinterInfo(CS_InRequest& request) {
  const std::wstring name = protocol::read<protocol::PrinterInfo>(request).printer;
  auto found = awaitPrinter(name);
  if (!found) {
    m_context->log.failure(fmt::format("printer {} was requested by process {}: {}", programs::quoted(name),
                                       peerProcess(), unknownPrinter()));
  }
  protocol::PrinterInfo::Answer answer;
  if (found) answer.printer = std::move(found->printer);
  protocol::answer(request, answer);
}

void PortMonitorClient::getPrinterList(CS_InRequest& request) {
  const int session = protocol::read<protocol::PrinterList>(request).session;
  protocol::PrinterList::Answer answer;
  answer.names = m_context->sessions.awaitLocalNames(session, [this] { return hasGivenUp(); });
  protocol::answer(request, answer);
}

void PortMonitorClient::launchApplication(CS_InRequest& request) {
  auto wanted = protocol::read<protocol::LaunchProgram>(request);
  Launch launch{std::move(wanted.program), std::move(wanted.arguments), wanted.printer.value_or(L""), 0};
  std::optional<SessionTable::Found> found;
  if (launch.printer.empty()) {
    m_context->launcher.refuse(launch,
                               "the request names no printer, and so no session; the port monitor has "
                               "another version");
  } else {
    // The program needs the session, not its print client.
    found = m_context->sessions.find(launch.printer);
    if (!found) found = awaitPrinter(launch.printer);
    if (!found) m_context->launcher.refuse(launch, unknownPrinter());
  }
  bool launched = false;
  if (found) {
    launch.session = found->session;
    launched = m_context->launcher.launch(launch);
    if (launched) m_context->shownJobs.add(foldedName(launch.printer));
  }
  protocol::answer(request, protocol::LaunchProgram::Answer{launched});
}

}  // namespace aps
