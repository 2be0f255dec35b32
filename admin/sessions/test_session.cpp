#include "admin/sessions/test_session.h"

#include "admin/base/failure.h"
#include "admin/spooler/spooler_port.h"
#include "corvane/base/text.h"
#include "corvane/components/bridge.h"
#include "corvane/components/component_server.h"
#include "corvane/records/exception.h"
#include "corvane/records/host_properties.h"
#include "programs/text.h"
#include "protocol/exchange.h"
#include "protocol/names.h"
#include "protocol/print_job.h"
#include "protocol/session.h"

#include <algorithm>
#include <chrono>
#include <fmt/format.h>

namespace admin {
namespace {

constexpr unsigned kBridgeEndMilliseconds = 5000;
constexpr wchar_t kPrinterName[] = L"mgprintmon test page";

void registerClasses(const std::shared_ptr<Arrival>& arrival) {
  CS_ComponentServer* const server = CS_ComponentServer::getServer();
  server->registerClass(
      protocol::kPrintClientClass,
      new corvane::ComponentClass<TestPrintClient, TestPrintClient::Context>(protocol::kVersion, arrival));
  server->offerClass(protocol::kPrintClientClass);
  server->offerClass(CS_Bridge::m_className);
  protocol::registerSessionClientClass();
}

}  // namespace

bool isTestSession(int number) {
  return number >= kFirstTestSession && number <= kLastTestSession;
}

int freeTestSession(const protocol::ServerStatus& facts, const std::vector<std::wstring>& ports) {
  for (int number = kFirstTestSession; number <= kLastTestSession; ++number) {
    const protocol::ListedSession* const known = facts.session(number);
    const std::wstring port = sessionPort(static_cast<unsigned>(number));
    if ((known == nullptr || !known->isConnected) && std::find(ports.begin(), ports.end(), port) == ports.end()) {
      return number;
    }
  }
  throw Failure(ExitCode::kFailed, "every session number for tests is in use",
                "Ports of earlier tests are left: mgprintmon session down N removes them.");
}

void Arrival::begin() {
  const std::lock_guard guard(m_lock);
  m_bytes.clear();
}

void Arrival::append(const unsigned char* data, std::size_t size) {
  const std::lock_guard guard(m_lock);
  m_bytes.append(reinterpret_cast<const char*>(data), size);
}

void Arrival::end() {
  const std::lock_guard guard(m_lock);
  m_ended = true;
  m_changed.notify_all();
}

bool Arrival::wait(unsigned milliseconds) {
  std::unique_lock guard(m_lock);
  return m_changed.wait_for(guard, std::chrono::milliseconds(milliseconds), [this] { return m_ended; });
}

std::string Arrival::bytes() const {
  const std::lock_guard guard(m_lock);
  return m_bytes;
}

TestSession::TestSession(int number, int serverPort, const std::string& keyFile, const std::wstring& driver)
    : m_arrival(std::make_shared<Arrival>()), m_connection(CS_Connection::create()) {
  registerClasses(m_arrival);
  try {
    const int port = serverPort != 0 ? serverPort : HostProperties::getInstance().hostValue();
    if (!keyFile.empty()) m_connection->useKey(corvane::Identity::session(number), keyFile);
    m_connection->connect(L"localhost", port, CS_Connection::kDirect, false);
    bringPrinter(number, driver);
  } catch (const CS_Exception& cause) {
    CS_Connection::destroy(m_connection, true);
    throw Failure(ExitCode::kServerAway,
                  fmt::format("the test session cannot be registered: {}", programs::describe(cause)),
                  "Check the log of aps.");
  } catch (...) {
    CS_Connection::destroy(m_connection, true);
    throw;
  }
  m_thread = std::thread([connection = m_connection] {
    try {
      connection->serve();
    } catch (const CS_Exception&) {
      // The page does not arrive, and that is reported.
    }
  });
}

TestSession::~TestSession() {
  CS_Connection::destroy(m_connection, true);
  m_thread.join();
  CS_Bridge::waitForThreads(kBridgeEndMilliseconds);
}

void TestSession::bringPrinter(int number, const std::wstring& driver) {
  protocol::Printer printer;
  printer.texts[0] = kPrinterName;
  printer.texts[protocol::Printer::kDriverText] = driver;
  const protocol::Registration::Answer registration = protocol::registerPrinters(m_connection, number, {printer});
  if (!registration.isAccepted) {
    throw Failure(ExitCode::kFailed,
                  fmt::format("the server refuses the test session: {}", corvane::toUtf8(registration.refusal)),
                  "Check the log of aps.");
  }
  m_localName = registration.localNames[0];
}

bool TestPrintClient::processRequest(CS_InRequest& request) {
  switch (static_cast<protocol::PrintRequest>(request.number())) {
    case protocol::PrintRequest::kStart:
      m_arrival->begin();
      return true;
    case protocol::PrintRequest::kData:
      if (protocol::read<protocol::JobData>(request).length == 0) return true;
      for (auto piece = request.readPiece(); !piece.empty(); piece = request.readPiece())
        m_arrival->append(piece.data(), piece.size());
      return true;
    case protocol::PrintRequest::kEnd:
      protocol::answer(request, protocol::JobEnd::Answer{protocol::PrintResult::kPrinted});
      m_arrival->end();
      return true;
    case protocol::PrintRequest::kHeld:
      break;  // nobody holds what is for the doctor
  }
  return CS_Component::processRequest(request);
}

}  // namespace admin
