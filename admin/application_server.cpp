#include "admin/application_server.h"

#include "admin/failure.h"
#include "corvane/channel.h"
#include "corvane/class_factory.h"
#include "corvane/component_server.h"
#include "corvane/exception.h"
#include "corvane/host_properties.h"
#include "corvane/in_request.h"
#include "corvane/message_numbers.h"
#include "corvane/out_request.h"
#include "corvane/process.h"
#include "corvane/program_monitor_c.h"
#include "corvane/simple_class.h"
#include "corvane/text.h"
#include "programs/administration.h"
#include "programs/failure.h"

#include <algorithm>
#include <compare>
#include <iterator>

namespace admin {
namespace {

// More than any server has; a peer that claims more is not one.
constexpr int kMostSessions = 100000;
constexpr int kMostPrinters = 100000;

[[noreturn]] void throwAway(int port, const CS_Exception& cause) {
  const std::string what = "the application server on port " + std::to_string(port) + " of this machine ";
  if (cause.number() == corvane::kConnectFailed) {
    throw Failure(ExitCode::kServerAway, what + "does not answer: " + programs::describe(cause),
                  "Start aps, or correct the port (registry value Port of SOFTWARE\\Quillfern\\Corvane, or "
                  "--server-port).");
  }
  if (cause.number() == corvane::kKeyNeeded || cause.number() == corvane::kNotProven) {
    throw Failure(
        ExitCode::kServerAway, what + "is not asked: " + programs::describe(cause),
        "mgprintmon uses the monitor's key (registry value KeyFile of SOFTWARE\\Quillfern\\Corvane): run it as "
        "an administrator, who can read that file, and give aps the same key.");
  }
  if (cause.number() == corvane::kRequestRefused) {
    throw Failure(ExitCode::kServerAway, what + "refuses to answer: " + programs::describe(cause),
                  "Its version may not know this question: replace aps by the one that came with mgprintmon.");
  }
  throw Failure(ExitCode::kServerAway, what + "has gone: " + programs::describe(cause),
                "Look into its log, start it and do this again.");
}

// What `ask` gives; a failure on the way means that the server is away.
template <class Ask>
auto asking(int port, Ask&& ask) {
  try {
    return ask();
  } catch (const CS_Exception& cause) {
    throwAway(port, cause);
  }
}

int readCount(CS_InRequest& reply, int most) {
  const int count = reply.readInt();
  if (count < 0 || count > most) throw CS_Exception(corvane::kProtocolViolation, L"%d things of a kind", count);
  return count;
}

ClientPrinterFacts readPrinter(CS_InRequest& reply) {
  ClientPrinterFacts printer;
  printer.localName = reply.readUTF();
  for (auto& text : printer.texts) {
    if (reply.readBoolean()) text = reply.readUTF();
  }
  printer.isDefault = reply.readBoolean();
  printer.format = reply.readInt();
  printer.secondValue = reply.readInt();
  return printer;
}

SessionFacts readSession(CS_InRequest& reply) {
  SessionFacts session;
  session.number = reply.readInt();
  session.isConnected = reply.readBoolean();
  session.since = reply.readUTF();
  const int count = readCount(reply, kMostPrinters);
  for (int i = 0; i < count; ++i)
    session.printers.push_back(readPrinter(reply));
  return session;
}

// Where a page begins.
struct Place {
  int session = 0;
  int printer = 0;
  auto operator<=>(const Place&) const = default;
};

// Adds what a page tells; a session that the page before has begun gets the rest of its printers.
void readPage(CS_InRequest& reply, ServerFacts& facts) {
  facts.version = reply.readUTF();
  facts.process = reply.readInt();
  facts.since = reply.readUTF();
  const int count = readCount(reply, kMostSessions - static_cast<int>(facts.sessions.size()));
  for (int i = 0; i < count; ++i) {
    SessionFacts session = readSession(reply);
    if (i > 0 || facts.sessions.empty() || facts.sessions.back().number != session.number) {
      facts.sessions.push_back(std::move(session));
      continue;
    }
    auto& printers = facts.sessions.back().printers;
    if (printers.size() + session.printers.size() > kMostPrinters) {
      throw CS_Exception(corvane::kProtocolViolation, L"too many printers of session %d", session.number);
    }
    std::move(session.printers.begin(), session.printers.end(), std::back_inserter(printers));
  }
}

Notice readNotice(CS_InRequest& reply) {
  Notice notice;
  notice.number = reply.readInt();
  notice.time = reply.readUTF();
  notice.kind = reply.readUTF();
  notice.line = reply.readUTF();
  const int count = readCount(reply, programs::kNoticesKept);
  for (int i = 0; i < count; ++i) {
    const std::wstring name = reply.readUTF();
    notice.values[name] = reply.readUTF();
  }
  return notice;
}

}  // namespace

ApplicationServer::ApplicationServer(int port) : m_port(port != 0 ? port : HostProperties::getInstance().hostValue()) {
  asking(m_port, [this] {
    if (!CS_ComponentServer::initialize(0, 0)) {
      throw CS_Exception(corvane::kConnectFailed, L"the network of this machine cannot be used");
    }
    CS_ComponentServer::getServer()->registerClass(programs::kAdministrationClientClass,
                                                   new corvane::SimpleClass<CS_Component>(programs::kProgramsVersion));
    m_connection = CS_Connection::create();
    const std::wstring keyFile = HostProperties::getInstance().keyFile();
    if (!keyFile.empty()) m_connection->useKey(corvane::Identity::monitor(), corvane::toUtf8(keyFile));
    m_connection->connect(L"localhost", m_port, CS_Connection::kDirect, false);
    const auto factory =
        m_connection->getClassFactory(programs::kAdministrationClientClass, programs::kAdministrationServerClass, true);
    if (factory) m_component = CS_RCPtr<CS_Component>(factory->newInstance(0));
    if (!m_component) throw CS_Exception(corvane::kConnectionLost, nullptr);
    m_component->getChannel(true)->startSending();
    m_component->getChannel(true)->startReceiving();
  });
}

ApplicationServer::~ApplicationServer() {
  CS_Connection::destroy(m_connection, true);
}

ServerFacts ApplicationServer::status() {
  return asking(m_port, [this] {
    ServerFacts facts;
    Place place;
    while (true) {
      CS_OutRequest request(m_component, programs::kStatusPage);
      request.writeInt(place.session);
      request.writeInt(place.printer);
      CS_InRequest reply(request);
      request.execute(reply, kReplyMilliseconds);
      readPage(reply, facts);
      if (!reply.readBoolean()) return facts;
      Place next;
      next.session = reply.readInt();
      next.printer = reply.readInt();
      if (!(place < next)) throw CS_Exception(corvane::kProtocolViolation, L"pages that do not go on");
      place = next;
    }
  });
}

std::vector<std::wstring> ApplicationServer::records(int most) {
  return asking(m_port, [this, most] {
    CS_OutRequest request(m_component, programs::kRecords);
    request.writeInt(most);
    CS_InRequest reply(request);
    request.execute(reply, kReplyMilliseconds);
    std::vector<std::wstring> lines;
    while (reply.readBoolean())
      lines.emplace_back(reply.readUTF());
    return lines;
  });
}

void ApplicationServer::tellRefusal(int session, const RefusedPrinter& printer) {
  asking(m_port, [&] {
    const auto factory = m_connection->getClassFactory(CS_ProgramMonitor_c::m_className,
                                                       L"Quillfern::ComponentServer::ProgramMonitor_s", true);
    const CS_RCPtr<CS_Component> made(factory ? factory->newInstance(0) : nullptr);
    const CS_RCPtr<CS_ProgramMonitor_c> monitor(dynamic_cast<CS_ProgramMonitor_c*>(made.get()));
    if (!monitor) throw CS_Exception(corvane::kConnectionLost, nullptr);
    const std::wstring number = std::to_wstring(session);
    const std::wstring why = corvane::fromUtf8(printer.why), remedy = corvane::fromUtf8(printer.remedy);
    monitor->notify(
        {programs::kPrinterNotice,
         L"Printer \"" + printer.name + L"\" of session " + number + L" cannot be had here: " + why + L". " + remedy,
         {{L"printer", printer.name},
          {L"session", number},
          {L"process", std::to_wstring(corvane::processId())},
          {L"result", L"refused"},
          {L"cause", why},
          {L"remedy", remedy}}});
    // Everything that was sent before has been read when this is answered; then the component is of no more use.
    if (!monitor->setProcessInfo(corvane::processId(), L"mgprintmon")) {
      throw CS_Exception(corvane::kConnectionLost, nullptr);
    }
    monitor->releasePeer();
    m_connection->removeChild(monitor.get());
  });
}

Notices ApplicationServer::notices(int after, unsigned waitMilliseconds, unsigned patienceMilliseconds) {
  return asking(m_port, [this, after, waitMilliseconds, patienceMilliseconds] {
    CS_OutRequest request(m_component, programs::kNotices);
    request.writeInt(after);
    request.writeInt(static_cast<int>(waitMilliseconds));
    CS_InRequest reply(request);
    request.execute(reply, waitMilliseconds + patienceMilliseconds);
    Notices notices;
    notices.latest = reply.readInt();
    while (reply.readBoolean())
      notices.notices.push_back(readNotice(reply));
    return notices;
  });
}

}  // namespace admin
