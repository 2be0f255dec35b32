#include "client/session_loop.h"

#include "compression/deflate.h"
#include "corvane/base/text.h"
#include "corvane/records/exception.h"
#include "corvane/records/messages.h"
#include "programs/text.h"
#include "tls/tls_stream.h"

#include <algorithm>
#include <fmt/format.h>
#include <vector>

namespace printclient {
namespace {

std::string secondsText(std::chrono::milliseconds time) {
  const auto tenths = time.count() / 100;
  return tenths % 10 == 0 ? fmt::format("{} s", tenths / 10) : fmt::format("{}.{} s", tenths / 10, tenths % 10);
}

std::string quotedList(const std::vector<std::wstring>& texts) {
  std::vector<std::string> list;
  for (const auto& text : texts)
    list.push_back(programs::quoted(text));
  return fmt::format("{}", fmt::join(list, ", "));
}

bool isAboutKeys(const CS_Exception& failure) {
  return failure.number() == corvane::kKeyNeeded || failure.number() == corvane::kNotProven;
}

}  // namespace

int SessionLoop::run() {
  std::chrono::milliseconds wait = kFirstPause;
  while (!isStopping()) {
    switch (serveOnce()) {
      case Outcome::kStopped:
        continue;
      case Outcome::kRefused:
        if (!m_wasRegistered) return 1;
        break;
      case Outcome::kLost:
        wait = kFirstPause;
        m_lastPause.clear();
        m_lastTrouble.clear();
        break;
      case Outcome::kAway:
        break;
    }
    sayOnce(fmt::format("trying again {} {}", wait == kLongestPause ? "every" : "in", secondsText(wait)), m_lastPause);
    pause(wait);
    wait = std::min(2 * wait, kLongestPause);
  }
  say("printclient stops");
  return 0;
}

SessionLoop::Outcome SessionLoop::serveOnce() {
  const CS_RCPtr<CS_Connection> connection = CS_Connection::create();
  Outcome outcome = Outcome::kAway;
  try {
    useKey(*connection);
    connection->useHeartbeat(&m_heartbeat);
    connection->connect(corvane::fromUtf8(m_options.host).c_str(), m_options.port, CS_Connection::kDirect, false);
    if (hold(connection)) {
      const protocol::Registration::Answer registration = registerPrinters(connection);
      if (registration.isAccepted) {
        serveRegistered(*connection, registration);
        outcome = Outcome::kLost;
      } else {
        outcome = Outcome::kRefused;
        show(fmt::format("refuses: {}", programs::oneLine(registration.refusal)), false);
        sayOnce(fmt::format("the server refuses: {}", programs::oneLine(registration.refusal)), m_lastTrouble);
      }
    }
  } catch (const CS_Exception& failure) {
    if (!isStopping()) {
      const bool isIpv6 = m_options.host.find(':') != std::string::npos;
      show(fmt::format("{}: {}", isAboutKeys(failure) ? "not used" : "away", programs::describe(failure)), false);
      sayOnce(
          fmt::format("the server at {}:{} is {}: {}", isIpv6 ? fmt::format("[{}]", m_options.host) : m_options.host,
                      m_options.port, isAboutKeys(failure) ? "not used" : "away", programs::describe(failure)),
          m_lastTrouble);
    }
    // Only a person can change that; a server that does not prove itself may still be replaced by the right one.
    if (failure.number() == corvane::kKeyNeeded) outcome = Outcome::kRefused;
  }
  CS_Connection::destroy(connection, true);
  hold(nullptr);
  m_output->forgetOrigin(connection.get());
  return isStopping() ? Outcome::kStopped : outcome;
}

void SessionLoop::useKey(CS_Connection& connection) {
  if (m_options.keyFile.empty()) return;
  const auto identity = corvane::Identity::session(m_options.session);
  if (!m_options.usesTls) return connection.useKey(identity, m_options.keyFile);
  connection.useLine({&compression::deflate(), m_options.rate});
  connection.useStream([this, name = corvane::toUtf8(identity.name())](corvane::Socket socket) {
    return std::make_unique<tls::TlsStream>(std::move(socket), name, corvane::Key::read(m_options.keyFile));
  });
}

protocol::Registration::Answer SessionLoop::registerPrinters(const CS_RCPtr<CS_Connection>& connection) {
  const CS_RCPtr<CS_Component> component = protocol::makeSessionClient(connection);
  for (;;) {
    std::unique_lock<std::mutex> guard(m_lock);
    const std::vector<protocol::Printer> printers = asTheyAreThere(m_printers);
    const int used = m_printersUsed;
    guard.unlock();
    protocol::Registration::Answer answer = protocol::registerPrinters(component, m_options.session, printers);
    guard.lock();
    if (answer.isAccepted && used != m_printersUsed) continue;
    if (answer.isAccepted) m_registered = component;
    guard.unlock();
    if (answer.isAccepted) m_report.enter(m_options.server, component);
    return answer;
  }
}

std::vector<protocol::Printer> SessionLoop::asTheyAreThere(std::vector<protocol::Printer> printers) const {
  for (protocol::Printer& printer : printers) {
    if (!printer.name().empty()) printer.texts[protocol::Printer::kNameText] = m_options.nameThere(printer.name());
  }
  return printers;
}

void SessionLoop::usePrinters(const std::vector<protocol::Printer>& printers) try {
  CS_RCPtr<CS_Component> registered;
  {
    const std::lock_guard<std::mutex> guard(m_lock);
    m_printers = printers;
    ++m_printersUsed;
    registered = m_registered;
  }
  if (!registered) return;
  const auto answer = protocol::registerPrinters(registered, m_options.session, asTheyAreThere(printers));
  say(answer.isAccepted ? fmt::format("the printers have changed: the server knows {}", quotedList(answer.localNames))
                        : fmt::format("the printers have changed, and the server goes on with the earlier ones: {}",
                                      programs::oneLine(answer.refusal)));
} catch (const CS_Exception&) {
  // The connection has gone; the next one brings them along.
}

void SessionLoop::serveRegistered(CS_Connection& connection, const protocol::Registration::Answer& registration) {
  if (!m_wasRegistered) removeLeftovers();
  m_wasRegistered = true;
  say(fmt::format("ready: the server knows {}", quotedList(registration.localNames)));
  show("connected", true);
  const std::wstring reason = connection.serve();
  if (isStopping()) return;
  show(fmt::format("connection lost{}{}", reason.empty() ? "" : ": ", programs::oneLine(reason)), false);
  say(fmt::format("the connection to the server is lost{}{}", reason.empty() ? "" : ": ", programs::oneLine(reason)));
}

void SessionLoop::removeLeftovers() {
  const int files = m_output->removeLeftovers();
  if (files == 0) return;
  say(fmt::format("removed {} unfinished {} left behind in the folder", files,
                  files == 1 ? "file that an earlier print client" : "files that earlier print clients"));
}

void SessionLoop::show(const std::string& state, bool isConnected) {
  const bool isIpv6 = m_options.host.find(':') != std::string::npos;
  m_output->board().setServer(m_options.server, {fmt::format("{}{}{}:{}, session {}", isIpv6 ? "[" : "", m_options.host,
                                                             isIpv6 ? "]" : "", m_options.port, m_options.session),
                                                 state, isConnected});
}

void SessionLoop::say(const std::string& text) {
  m_output->reporter().line(m_options.label + text);
}

void SessionLoop::sayOnce(const std::string& text, std::string& last) {
  if (text == last) return;
  say(text);
  last = text;
}

void SessionLoop::stop() {
  CS_RCPtr<CS_Connection> connection;
  {
    const std::lock_guard<std::mutex> guard(m_lock);
    m_stopping = true;
    connection = m_connection;
  }
  m_changed.notify_all();
  if (connection) CS_Connection::destroy(connection, true);
}

bool SessionLoop::hold(const CS_RCPtr<CS_Connection>& connection) {
  if (connection) {
    m_output->setOrigin(connection.get(), {m_options.server, m_options.session, m_options.label});
  } else {
    m_report.leave(m_options.server);
  }
  CS_RCPtr<CS_Connection> old = connection;  // both given back after the lock
  CS_RCPtr<CS_Component> registered;
  const std::lock_guard<std::mutex> guard(m_lock);
  std::swap(old, m_connection);
  std::swap(registered, m_registered);
  return !m_stopping;
}

bool SessionLoop::isStopping() {
  const std::lock_guard<std::mutex> guard(m_lock);
  return m_stopping;
}

void SessionLoop::pause(std::chrono::milliseconds time) {
  std::unique_lock<std::mutex> guard(m_lock);
  m_changed.wait_for(guard, time, [this] { return m_stopping; });
}

}  // namespace printclient
