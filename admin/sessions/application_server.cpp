#include "admin/sessions/application_server.h"

#include "admin/base/failure.h"
#include "corvane/base/process.h"
#include "corvane/base/text.h"
#include "corvane/components/channel.h"
#include "corvane/components/component.h"
#include "corvane/components/component_server.h"
#include "corvane/components/program_monitor_c.h"
#include "corvane/records/exception.h"
#include "corvane/records/host_properties.h"
#include "corvane/records/messages.h"
#include "programs/text.h"
#include "protocol/exchange.h"
#include "protocol/names.h"

#include <algorithm>
#include <fmt/format.h>
#include <fmt/xchar.h>
#include <iterator>
#include <utility>

namespace admin {
namespace {

[[noreturn]] void throwAway(int port, const CS_Exception& cause) {
  const std::string what = fmt::format("the application server on port {} of this machine", port);
  if (cause.number() == corvane::kConnectFailed) {
    throw Failure(ExitCode::kServerAway, fmt::format("{} does not answer: {}", what, programs::describe(cause)),
                  "Start aps, or correct the port (registry value Port of SOFTWARE\\Quillfern\\Corvane, or "
                  "--server-port).");
  }
  if (cause.number() == corvane::kKeyNeeded || cause.number() == corvane::kNotProven) {
    throw Failure(
        ExitCode::kServerAway, fmt::format("{} is not queried: {}", what, programs::describe(cause)),
        "mgprintmon uses the monitor's key (registry value KeyFile of SOFTWARE\\Quillfern\\Corvane): run it as "
        "an administrator, who can read that file, and give aps the same key.");
  }
  if (cause.number() == corvane::kRequestRefused) {
    throw Failure(ExitCode::kServerAway, fmt::format("{} refuses to answer: {}", what, programs::describe(cause)),
                  "Its version may not know this question: replace aps by the one that came with mgprintmon.");
  }
  throw Failure(ExitCode::kServerAway, fmt::format("{} has gone: {}", what, programs::describe(cause)),
                "Check its log, start it and repeat the command.");
}

// The result of `ask`; an exception means that the server is away.
template <class Ask>
auto asking(int port, Ask&& ask) {
  try {
    return ask();
  } catch (const CS_Exception& cause) {
    throwAway(port, cause);
  }
}

[[noreturn]] void throwViolation(const wchar_t* what, int number) {
  throw CS_Exception(corvane::kProtocolViolation, what, number);
}

// Adds the content of a page; a session that began on the previous page gets the rest of its printers.
void addPage(protocol::ServerStatus& facts, protocol::ServerStatus&& page) {
  std::vector<protocol::ListedSession> sessions = std::move(facts.sessions);
  std::vector<protocol::ListedSession> more = std::move(page.sessions);
  facts = std::move(page);
  auto from = more.begin();
  if (from != more.end() && !sessions.empty() && sessions.back().number == from->number) {
    auto& printers = sessions.back().printers;
    if (printers.size() + from->printers.size() > static_cast<std::size_t>(protocol::ListedSession::kPrinters.most)) {
      throwViolation(L"too many printers of session %d", from->number);
    }
    std::move(from->printers.begin(), from->printers.end(), std::back_inserter(printers));
    ++from;
  }
  std::move(from, more.end(), std::back_inserter(sessions));
  if (sessions.size() > static_cast<std::size_t>(protocol::ServerStatus::kSessions.most)) {
    throwViolation(L"%d sessions", static_cast<int>(sessions.size()));
  }
  facts.sessions = std::move(sessions);
}

}  // namespace

ApplicationServer::ApplicationServer(int port) : m_port(port != 0 ? port : HostProperties::getInstance().hostValue()) {
  asking(m_port, [this] {
    if (!CS_ComponentServer::initialize(0, 0)) {
      throw CS_Exception(corvane::kConnectFailed, L"the network of this machine cannot be used");
    }
    CS_ComponentServer::getServer()->registerClass(protocol::kAdministrationClientClass,
                                                   new corvane::ComponentClass<CS_Component>(protocol::kVersion));
    m_connection = CS_Connection::create();
    const std::wstring keyFile = HostProperties::getInstance().keyFile();
    if (!keyFile.empty()) m_connection->useKey(corvane::Identity::monitor(), corvane::toUtf8(keyFile));
    m_connection->connect(L"localhost", m_port, CS_Connection::kDirect, false);
    const auto factory =
        m_connection->getClassFactory(protocol::kAdministrationClientClass, protocol::kAdministrationServerClass, true);
    if (factory) m_component = CS_RCPtr<CS_Component>(factory->newInstance(0));
    if (!m_component) throw CS_Exception(corvane::kConnectionLost, nullptr);
    m_component->getChannel(true)->startSending();
    m_component->getChannel(true)->startReceiving();
  });
}

ApplicationServer::~ApplicationServer() {
  CS_Connection::destroy(m_connection, true);
}

protocol::ServerStatus ApplicationServer::status() {
  return asking(m_port, [this] {
    protocol::ServerStatus facts;
    protocol::StatusPage asked;
    while (true) {
      protocol::StatusPage::Answer page = protocol::ask(m_component, asked, kReplyMilliseconds);
      addPage(facts, std::move(page.status));
      if (!page.next) return facts;
      if (!(asked < *page.next)) throw CS_Exception(corvane::kProtocolViolation, L"pages that do not go on");
      asked = *page.next;
    }
  });
}

std::wstring ApplicationServer::invite(const protocol::Invite& invitation) {
  const auto answer = asking(m_port, [&] { return protocol::ask(m_component, invitation, kReplyMilliseconds); });
  if (answer.isMade) return answer.text;
  throw Failure(ExitCode::kFailed, fmt::format("nobody is invited: {}", programs::oneLine(answer.text)), "");
}

protocol::Jobs::Answer ApplicationServer::jobs(const protocol::Jobs& wanted) {
  return asking(m_port, [&] { return protocol::ask(m_component, wanted, kReplyMilliseconds); });
}

protocol::CancelJob::Answer ApplicationServer::cancelJob(const protocol::CancelJob& wanted) {
  return asking(m_port, [&] { return protocol::ask(m_component, wanted, kReplyMilliseconds); });
}

std::vector<std::wstring> ApplicationServer::records(int most) {
  return asking(m_port,
                [this, most] { return protocol::ask(m_component, protocol::Records{most}, kReplyMilliseconds).lines; });
}

void ApplicationServer::tellRefusal(int session, const RefusedPrinter& printer) {
  asking(m_port, [&] {
    const auto factory =
        m_connection->getClassFactory(CS_ProgramMonitor_c::m_className, CS_ProgramMonitor_c::m_peerClassName, true);
    const CS_RCPtr<CS_Component> made(factory ? factory->newInstance(0) : nullptr);
    const CS_RCPtr<CS_ProgramMonitor_c> monitor(dynamic_cast<CS_ProgramMonitor_c*>(made.get()));
    if (!monitor) throw CS_Exception(corvane::kConnectionLost, nullptr);
    const std::wstring number = std::to_wstring(session);
    const std::wstring why = corvane::fromUtf8(printer.why), remedy = corvane::fromUtf8(printer.remedy);
    monitor->notify({protocol::kPrinterNotice,
                     fmt::format(L"Printer \"{}\" of session {} is not available on this server: {}. {}", printer.name,
                                 session, why, remedy),
                     {{L"printer", printer.name},
                      {L"session", number},
                      {L"process", std::to_wstring(corvane::processId())},
                      {L"result", L"refused"},
                      {L"cause", why},
                      {L"remedy", remedy}}});
    // When this is answered everything that was sent before has been read, and the component is no longer needed.
    if (!monitor->setProcessInfo(corvane::processId(), L"mgprintmon")) {
      throw CS_Exception(corvane::kConnectionLost, nullptr);
    }
    monitor->releasePeer();
    m_connection->removeChild(monitor.get());
  });
}

protocol::Notices::Answer ApplicationServer::notices(int after, unsigned waitMilliseconds,
                                                     unsigned patienceMilliseconds) {
  return asking(m_port, [this, after, waitMilliseconds, patienceMilliseconds] {
    return protocol::ask(m_component, protocol::Notices{after, static_cast<int>(waitMilliseconds)},
                         waitMilliseconds + patienceMilliseconds);
  });
}

bool AwaitedJob::isOf(const protocol::Notice& notice) const {
  return notice.kind == protocol::kJobNotice && notice.value(L"job") == std::to_wstring(number) &&
         notice.value(L"printer") == printer && (process == 0 || notice.value(L"process") == std::to_wstring(process));
}

bool AwaitedJob::isOf(const protocol::JobRecord& record) const {
  return record.spoolerJob == std::to_wstring(number) && record.printer == printer &&
         (process == 0 || record.process == static_cast<int>(process));
}

JobOutcome JobOutcome::of(const protocol::Notice& notice) {
  JobOutcome outcome;
  outcome.result = notice.value(L"result");
  outcome.isPrinted = outcome.result == L"delivered" || outcome.result == L"shown";
  outcome.session = notice.value(L"session");
  outcome.bytes = notice.value(L"bytes");
  outcome.cause = notice.value(L"cause");
  outcome.remedy = notice.value(L"remedy");
  return outcome;
}

}  // namespace admin
