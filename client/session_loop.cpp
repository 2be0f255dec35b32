#include "client/session_loop.h"

#include "corvane/base/text.h"
#include "corvane/records/exception.h"
#include "corvane/records/messages.h"
#include "programs/text.h"

#include <algorithm>

namespace printclient {
namespace {

std::string secondsText(std::chrono::milliseconds time) {
  const auto tenths = time.count() / 100;
  const std::string whole = std::to_string(tenths / 10);
  return (tenths % 10 == 0 ? whole : whole + "." + std::to_string(tenths % 10)) + " s";
}

bool isAboutKeys(const CS_Exception& failure) {
  return failure.number() == corvane::kKeyNeeded || failure.number() == corvane::kNotProven;
}

}  // namespace

int SessionLoop::run() {
  std::chrono::milliseconds wait = kFirstPause;
  while (!isStopping()) {
    const Outcome outcome = serveOnce();
    if (isStopping()) break;
    if (outcome == Outcome::kRefused && !m_wasRegistered) return 1;
    if (outcome == Outcome::kLost) {
      wait = kFirstPause;
      m_lastPause.clear();
      m_lastTrouble.clear();
    }
    sayOnce(wait == kLongestPause ? "trying again every " + secondsText(wait) : "trying again in " + secondsText(wait),
            m_lastPause);
    if (!pause(wait)) break;
    wait = std::min(2 * wait, kLongestPause);
  }
  m_output->reporter().line("printclient stops");
  return 0;
}

SessionLoop::Outcome SessionLoop::serveOnce() {
  const CS_RCPtr<CS_Connection> connection = CS_Connection::create();
  Outcome outcome = Outcome::kAway;
  try {
    if (!m_options.keyFile.empty()) {
      connection->useKey(corvane::Identity::session(m_options.session), m_options.keyFile);
    }
    connection->useHeartbeat(&m_heartbeat);
    connection->connect(corvane::fromUtf8(m_options.host).c_str(), m_options.port, CS_Connection::kDirect, false);
    if (hold(connection)) {
      const protocol::Registration::Answer registration =
          programs::registerPrinters(connection, m_options.session, m_options.printers);
      if (registration.isAccepted) {
        serveRegistered(*connection, registration);
        outcome = Outcome::kLost;
      } else {
        outcome = Outcome::kRefused;
        sayOnce("the server refuses: " + programs::oneLine(registration.refusal), m_lastTrouble);
      }
    }
  } catch (const CS_Exception& failure) {
    if (!isStopping()) {
      const bool isIpv6 = m_options.host.find(':') != std::string::npos;
      sayOnce("the server at " + (isIpv6 ? "[" + m_options.host + "]" : m_options.host) + ":" +
                  std::to_string(m_options.port) + (isAboutKeys(failure) ? " is not used: " : " is away: ") +
                  programs::describe(failure),
              m_lastTrouble);
    }
    // Only a person can change that; a server that does not prove itself may still be replaced by the right one.
    if (failure.number() == corvane::kKeyNeeded) outcome = Outcome::kRefused;
  }
  CS_Connection::destroy(connection, true);
  hold(nullptr);
  return outcome;
}

void SessionLoop::serveRegistered(CS_Connection& connection, const protocol::Registration::Answer& registration) {
  Reporter& reporter = m_output->reporter();
  if (!m_wasRegistered) removeLeftovers();
  m_wasRegistered = true;
  std::string names;
  for (const auto& name : registration.localNames) {
    names += (names.empty() ? "\"" : ", \"") + programs::oneLine(name) + "\"";
  }
  reporter.line("ready: the server knows " + names);
  const std::wstring reason = connection.serve();
  if (isStopping()) return;
  reporter.line("the connection to the server is lost" +
                (reason.empty() ? std::string() : ": " + programs::oneLine(reason)));
}

void SessionLoop::removeLeftovers() {
  const int files = m_output->removeLeftovers();
  if (files == 0) return;
  m_output->reporter().line(
      "removed " + std::to_string(files) +
      (files == 1 ? " unfinished file that an earlier print client" : " unfinished files that earlier print clients") +
      " left behind in the folder");
}

void SessionLoop::sayOnce(const std::string& text, std::string& last) {
  if (text == last) return;
  m_output->reporter().line(text);
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
  CS_RCPtr<CS_Connection> old = connection;  // given back after the lock
  const std::lock_guard<std::mutex> guard(m_lock);
  std::swap(old, m_connection);
  return !m_stopping;
}

bool SessionLoop::isStopping() {
  const std::lock_guard<std::mutex> guard(m_lock);
  return m_stopping;
}

bool SessionLoop::pause(std::chrono::milliseconds time) {
  std::unique_lock<std::mutex> guard(m_lock);
  return !m_changed.wait_for(guard, time, [this] { return m_stopping; });
}

}  // namespace printclient
