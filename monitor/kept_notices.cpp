#include "monitor/kept_notices.h"

#include "corvane/base/text.h"
#include "corvane/components/connection.h"
#include "corvane/components/program_monitor_c.h"

#include <windows.h>

#include <chrono>
#include <cstdlib>
#include <new>
#include <string>
#include <utility>

namespace mg {

KeptNotices& KeptNotices::instance() {
  alignas(KeptNotices) static unsigned char storage[sizeof(KeptNotices)];
  static auto* const kept = new (storage) KeptNotices;
  return *kept;
}

void KeptNotices::keep(CS_Notice notice) noexcept try {
  const std::string now = corvane::localTimeText(std::chrono::system_clock::now());
  notice.line += L" (Told late: it ended at " + std::wstring(now.begin(), now.end()) + L".)";
  for (auto& [name, value] : notice.values) {
    if (value.size() > kMostText) value.resize(kMostText);
  }
  const std::lock_guard<std::mutex> guard(m_lock);
  if (m_notices.size() == kMost) m_notices.erase(m_notices.begin());
  m_notices.push_back(std::move(notice));
} catch (...) {  // it is in the log
}

void KeptNotices::tellAll(CS_ProgramMonitor& monitor) noexcept {
  std::vector<CS_Notice> notices;
  {
    const std::lock_guard<std::mutex> guard(m_lock);
    notices.swap(m_notices);
  }
  for (const CS_Notice& notice : notices)
    monitor.notify(notice);
}

void KeptNotices::clear() noexcept {
  const std::lock_guard<std::mutex> guard(m_lock);
  m_notices.clear();
}

namespace {

// How long to wait for the server's answer to introduce(). The job's call waits for it in addition to all its other
// time limits, and a server that has just kept it waiting for ten minutes, because it is stopped, does not answer this
// either.
constexpr unsigned kTellMilliseconds = 5000;

// Says to the server which process this is; false when it does not answer. With the answer everything that the server
// has sent before has been read. Unread data would let the end of the connection overtake the notice.
bool introduce(CS_ProgramMonitor_c& monitor) {
  wchar_t path[MAX_PATH + 1] = L"";
  GetModuleFileNameW(nullptr, path, MAX_PATH);
  wchar_t name[_MAX_FNAME] = L"";
  _wsplitpath(path, nullptr, nullptr, name, nullptr);
  return monitor.setProcessInfo(GetCurrentProcessId(), name, kTellMilliseconds);
}

// A monitor that reaches the application server over the job's connection; null when there is none. A job that went
// well ends with an answer and leaves nothing unread, so its notice costs no round trip.
CS_RCPtr<CS_ProgramMonitor> monitorOn(CS_Connection& connection, bool jobFailed) {
  if (!connection.isConnected()) return nullptr;
  const CS_RCPtr<CS_ClassFactory> factory =
      connection.getClassFactory(CS_ProgramMonitor_c::m_className, CS_ProgramMonitor_c::m_peerClassName, true);
  if (!factory) return nullptr;
  const CS_RCPtr<CS_Component> made(factory->newInstance(0));
  const CS_RCPtr<CS_ProgramMonitor_c> monitor(dynamic_cast<CS_ProgramMonitor_c*>(made.get()));
  if (!monitor || (jobFailed && !introduce(*monitor))) return nullptr;
  return monitor.get();
}

// Where the notice goes, and whether it reaches a server.
struct Receiver {
  CS_RCPtr<CS_ProgramMonitor> monitor;
  bool isServer;
};

// Whether the process's monitor still reaches the application server. When the job's own connection was lost, the
// server may be gone and the other, idle connection may not have noticed: the server is asked.
bool isHeard(CS_ProgramMonitor& standard, const CS_Connection* connection) {
  if (&standard == CS_ProgramMonitor::getLocalMonitor().get()) return false;
  auto* const client = dynamic_cast<CS_ProgramMonitor_c*>(&standard);
  if (client == nullptr) return true;
  const bool isDoubtful = connection != nullptr && !connection->isConnected();
  return client->isConnected() && (!isDoubtful || introduce(*client));
}

Receiver receiver(CS_Connection* connection, bool jobFailed) noexcept {
  const CS_RCPtr<CS_ProgramMonitor> standard = CS_ProgramMonitor::getDefaultMonitor();
  try {
    if (connection != nullptr && standard.get() == CS_ProgramMonitor::getLocalMonitor().get()) {
      const CS_RCPtr<CS_ProgramMonitor> direct = monitorOn(*connection, jobFailed);
      if (direct) return {direct, true};
    }
    return {standard, isHeard(*standard, connection)};
  } catch (...) {
    return {standard, false};
  }
}

}  // namespace

void tellServer(CS_Notice notice, CS_Connection* connection, bool jobFailed) noexcept {
  const Receiver to = receiver(connection, jobFailed);
  if (to.isServer) KeptNotices::instance().tellAll(*to.monitor);
  to.monitor->notify(notice);
  if (!to.isServer) KeptNotices::instance().keep(std::move(notice));
}

}  // namespace mg
