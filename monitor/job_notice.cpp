#include "monitor/job_notice.h"

#include "corvane/base/local_time.h"
#include "corvane/base/process.h"
#include "corvane/base/text.h"
#include "corvane/components/class_factory.h"
#include "corvane/components/connection.h"
#include "corvane/components/program_monitor_c.h"
#include "corvane/records/local_monitor.h"
#include "protocol/administration.h"

#include <chrono>
#include <cwchar>
#include <new>
#include <string>
#include <utility>

namespace mg {

void writeEvent(const wchar_t* line) noexcept {
  const corvane::LastErrorKeeper keeper;
  const corvane::ProcessIdentity identity;
  const HANDLE log = RegisterEventSourceW(nullptr, kEventSource);
  if (log == nullptr) return;
  ReportEventW(log, EVENTLOG_ERROR_TYPE, 0, kJobFailedEvent, nullptr, 1, 0, &line, nullptr);
  DeregisterEventSource(log);
}

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

constexpr std::size_t kLineSize = 1792;  // characters; all parts of a line at their longest fit
// How long a server may think about who tells. The job's call waits for it behind all other bounds, and a server that
// has just let it wait for ten minutes, because it is stopped, does not answer this either.
constexpr unsigned kTellMilliseconds = 5000;

// What an ordinary user's job that the spooler does not let us act on means to whoever looks into the queue.
constexpr wchar_t kStaysInQueue[] =
    L" The job stays in the spooler's queue, which refused to delete it (error %lu): whoever printed it, or an "
    L"administrator, can delete it there.";
constexpr wchar_t kIsNotMarked[] =
    L" The spooler's queue refused to mark it as sent (error %lu), so it may stay there: whoever printed it, or an "
    L"administrator, can delete it; it need not be printed again.";

// The number in a port's name such as "CPP5", or the empty text.
const wchar_t* sessionOf(const wchar_t* portName) {
  constexpr wchar_t kPrefix[] = L"CPP";
  constexpr std::size_t kPrefixLength = 3;
  if (std::wcsncmp(portName, kPrefix, kPrefixLength) != 0) return L"";
  const wchar_t* number = portName + kPrefixLength;
  return number[std::wcsspn(number, L"0123456789")] == L'\0' ? number : L"";
}

void composeLine(wchar_t (&line)[kLineSize], const JobNotice& job) {
  const wchar_t* session = sessionOf(job.portName);
  wchar_t where[64] = L"";
  if (*session != L'\0') std::swprintf(where, std::size(where), L" (session %.20ls)", session);
  wchar_t end[kLineSize / 2] = L"was shown in the session.";
  if (job.failure != nullptr) {
    const wchar_t* cause = job.failure->cause();
    const std::size_t length = std::wcslen(cause);
    const wchar_t* stop = length > 0 && cause[length - 1] == L'.' ? L"" : L".";
    std::swprintf(end, std::size(end), L"failed: %ls%ls %ls", cause, stop, remedyFor(job.failure->fault()));
  } else if (std::wcscmp(job.result, L"delivered") == 0) {
    if (job.remark == nullptr) {
      std::swprintf(end, std::size(end), L"was delivered: %lld bytes.", job.bytes);
    } else {
      std::swprintf(end, std::size(end), L"was delivered: %lld bytes, %.400ls", job.bytes, job.remark);
    }
  }
  wchar_t queue[256] = L"";
  if (job.queueError != ERROR_SUCCESS) {
    std::swprintf(queue, std::size(queue), job.failure != nullptr ? kStaysInQueue : kIsNotMarked, job.queueError);
  }
  std::swprintf(line, kLineSize, L"Job %lu \"%.200ls\" on \"%.259ls\"%ls %ls%ls", job.jobId, job.document,
                job.printerName, where, end, queue);
  // Printer, document and reasons are what somebody else typed; the line stays one, and shows what it says.
  corvane::makePrintable(line);
}

CS_Notice makeNotice(const JobNotice& job, const wchar_t* line) {
  CS_Notice notice{protocol::Notice::kJobNotice, line, {}};
  notice.values = {{L"job", std::to_wstring(job.jobId)},
                   {L"printer", job.printerName},
                   {L"document", job.document},
                   {L"process", std::to_wstring(GetCurrentProcessId())},
                   {L"result", job.result},
                   {L"session", sessionOf(job.portName)},
                   {L"bytes", std::to_wstring(job.bytes)}};
  if (job.remark != nullptr) notice.values.emplace_back(L"remark", job.remark);
  if (job.failure != nullptr) {
    notice.values.emplace_back(L"cause", job.failure->cause());
    notice.values.emplace_back(L"remedy", remedyFor(job.failure->fault()));
  }
  return notice;
}

// False when the server does not answer. Its answer means that nothing which it has sent before is left unread, for
// that would make the end of the connection overtake the notice.
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

// Who is told, and whether a server hears it.
struct Receiver {
  CS_RCPtr<CS_ProgramMonitor> monitor;
  bool isServer;
};

// Whether the application server is still behind the process's monitor. Where the job's own connection was lost, it may
// be gone without anybody having noticed on the other, idle one: it is asked.
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

void send(const JobNotice& job, const wchar_t* line, CS_Connection* connection) noexcept {
  CS_Notice notice;
  bool isWhole = false;
  try {
    notice = makeNotice(job, line);
    isWhole = true;
  } catch (...) {
  }
  try {
    if (!isWhole) notice = CS_Notice{protocol::Notice::kJobNotice, line, {}};
    const Receiver to = receiver(connection, job.failure != nullptr);
    if (to.isServer) KeptNotices::instance().tellAll(*to.monitor);
    to.monitor->notify(notice);
    if (!to.isServer) KeptNotices::instance().keep(std::move(notice));
  } catch (...) {
    corvane::LocalMonitor::instance().writeLine(L"job:", line);
  }
}

}  // namespace

void tell(const JobNotice& job, CS_Connection* connection) noexcept {
  const corvane::LastErrorKeeper keeper;
  wchar_t line[kLineSize] = L"";
  composeLine(line, job);
  send(job, line, connection);
  if (job.failure == nullptr) return;
  writeEvent(line);
  wchar_t kind[32];
  std::swprintf(kind, std::size(kind), L"job %lu:", job.jobId);
  if (job.trail != nullptr) job.trail->write(kind);
}

}  // namespace mg
