#include "monitor/job_end.h"

#include "corvane/base/process.h"
#include "corvane/base/text.h"
#include "corvane/records/messages.h"
#include "corvane/records/program_monitor.h"
#include "jobs/spool_file.h"
#include "jobs/spooler_calls.h"
#include "monitor/kept_notices.h"
#include "protocol/names.h"
#include "session/print_server.h"
#include "util/last_error.h"

#include <cwchar>
#include <memory>
#include <string>
#include <utility>

namespace mg {
namespace {

enum class Result { kDelivered, kShown, kFailed };

const wchar_t* textOf(Result result) {
  if (result == Result::kDelivered) return L"delivered";
  return result == Result::kShown ? L"shown" : L"failed";
}

// What is reported of a job. The texts are never null.
struct JobEnd {
  Result result;
  const wchar_t* portName;
  const wchar_t* printerName;
  const wchar_t* document;
  DWORD jobId;
  const JobReport& report;
};

constexpr std::size_t kLineSize = 1792;  // characters; all parts of a line at their longest fit
// Follows in the line when the spooler did not let the module act on the job in its queue.
constexpr wchar_t kStaysInQueue[] =
    L" The job stays in the spooler's queue, which refused to delete it (error %lu): the person who printed it, or an "
    L"administrator, can delete it there.";
constexpr wchar_t kIsNotMarked[] =
    L" The spooler's queue refused to mark it as sent (error %lu), so it may stay there: the person who printed it, or "
    L"an "
    L"administrator, can delete it; it need not be printed again.";

// The number in a port's name such as "CPP5", or the empty text.
const wchar_t* sessionOf(const wchar_t* portName) {
  constexpr wchar_t kPrefix[] = L"CPP";
  constexpr std::size_t kPrefixLength = 3;
  if (std::wcsncmp(portName, kPrefix, kPrefixLength) != 0) return L"";
  const wchar_t* number = portName + kPrefixLength;
  return number[std::wcsspn(number, L"0123456789")] == L'\0' ? number : L"";
}

void composeLine(wchar_t (&line)[kLineSize], const JobEnd& job) {
  const wchar_t* session = sessionOf(job.portName);
  wchar_t where[64] = L"";
  if (*session != L'\0') std::swprintf(where, std::size(where), L" (session %.20ls)", session);
  wchar_t end[kLineSize / 2] = L"was shown in the session.";
  if (job.result == Result::kFailed) {
    const wchar_t* cause = job.report.cause();
    const std::size_t length = std::wcslen(cause);
    const wchar_t* stop = length > 0 && cause[length - 1] == L'.' ? L"" : L".";
    std::swprintf(end, std::size(end), L"failed: %ls%ls %ls", cause, stop, remedyFor(job.report.fault()));
  } else if (job.result == Result::kDelivered) {
    if (job.report.remark == nullptr) {
      std::swprintf(end, std::size(end), L"was delivered: %lld bytes.", static_cast<long long>(job.report.bytesSent));
    } else {
      std::swprintf(end, std::size(end), L"was delivered: %lld bytes, %.400ls",
                    static_cast<long long>(job.report.bytesSent), job.report.remark);
    }
  }
  wchar_t queue[256] = L"";
  if (job.report.queueError != ERROR_SUCCESS) {
    std::swprintf(queue, std::size(queue), job.result == Result::kFailed ? kStaysInQueue : kIsNotMarked,
                  job.report.queueError);
  }
  std::swprintf(line, kLineSize, L"Job %lu \"%.200ls\" on \"%.259ls\"%ls %ls%ls", job.jobId, job.document,
                job.printerName, where, end, queue);
  // Printer, document and reasons are texts from outside: they must neither break the line nor hide a part of it.
  corvane::makePrintable(line);
}

// Whose job it is: the spooler calls the module as the user who prints. Empty when the system does not tell.
std::wstring userName() {
  wchar_t name[257] = L"";
  DWORD size = static_cast<DWORD>(std::size(name));
  return ::GetUserNameW(name, &size) ? name : L"";
}

// 0 when nobody knows them, or only how many they were at some time. A job that has failed may have come to its end
// before its application did.
DWORD pagesOf(const JobEnd& job) noexcept {
  if (!job.report.hasMorePages) return job.report.pages;
  const QueuedPages pages = job.result == Result::kFailed ? QueuedPages() : pagesInQueue(job.printerName, job.jobId);
  return pages.isGrowing ? 0 : pages.count;
}

CS_Notice makeNotice(const JobEnd& job, const wchar_t* line) {
  CS_Notice notice{protocol::kJobNotice, line, {}};
  notice.values = {{L"job", std::to_wstring(job.jobId)},
                   {L"printer", job.printerName},
                   {L"document", job.document},
                   {L"process", std::to_wstring(GetCurrentProcessId())},
                   {L"result", textOf(job.result)},
                   {L"session", sessionOf(job.portName)},
                   {L"bytes", std::to_wstring(job.report.bytesSent)}};
  if (job.result == Result::kFailed) {
    notice.values.emplace_back(L"cause", job.report.cause());
    notice.values.emplace_back(L"remedy", remedyFor(job.report.fault()));
  } else if (job.report.remark != nullptr) {
    notice.values.emplace_back(L"remark", job.report.remark);
  }
  notice.values.emplace_back(L"user", userName());
  if (const DWORD pages = pagesOf(job); pages != 0) notice.values.emplace_back(L"pages", std::to_wstring(pages));
  return notice;
}

void send(const JobEnd& job, const wchar_t* line, CS_Connection* connection) noexcept {
  CS_Notice notice;
  bool isWhole = false;
  try {
    notice = makeNotice(job, line);
    isWhole = true;
  } catch (...) {
  }
  try {
    if (!isWhole) notice = CS_Notice{protocol::kJobNotice, line, {}};
    tellServer(std::move(notice), connection, job.result == Result::kFailed);
  } catch (...) {
    corvane::LocalMonitor::instance().writeLine(L"job:", line);
  }
}

// Writes one entry with that line to the system's event log, under the source that the installation registers. What
// fails here is not told anywhere.
void writeEvent(const wchar_t* line) noexcept {
  constexpr wchar_t kEventSource[] = L"MgPrintMon";
  const corvane::ProcessIdentity identity;
  const HANDLE log = RegisterEventSourceW(nullptr, kEventSource);
  if (log == nullptr) return;
  ReportEventW(log, EVENTLOG_ERROR_TYPE, 0, kJobFailedEvent, nullptr, 1, 0, &line, nullptr);
  DeregisterEventSource(log);
}

void tell(const JobEnd& job, CS_Connection* connection) noexcept {
  const mg::LastErrorKeeper keeper;
  wchar_t line[kLineSize] = L"";
  composeLine(line, job);
  send(job, line, connection);
  if (job.result != Result::kFailed) return;
  writeEvent(line);
  wchar_t kind[32];
  std::swprintf(kind, std::size(kind), L"job %lu:", job.jobId);
  job.report.write(kind);
}

void tellFailure(const JobEnd& job, JobReport& report, CS_Connection* connection) noexcept {
  if (report.isTold) return;
  report.isTold = true;
  report.add(L"%I64d bytes were taken from the spooler", report.bytesTaken);
  tell(job, connection);
}

JobEnd endOf(const tagPort& port, const JobReport& report, Result result) {
  return {result, port.portName, port.printerName, report.document.wide(), port.jobId, report};
}

void blameDeletion(JobReport& report) noexcept {
  report.failInstead(JobFault::kPortDeleted, L"The port was deleted before the job had ended.");
}

// The connection of the port's job; null without a stream.
CS_RCPtr<CS_Connection> connectionOf(const tagPort& port) {
  return port.printServer ? port.printServer->getConnection() : nullptr;
}

void noteAnswer(JobReport& report, int answer) {
  JobFault fault = JobFault::kClient;
  const auto result = static_cast<protocol::PrintResult>(answer);
  if (result == protocol::PrintResult::kDiskFailure) fault = JobFault::kClientDisk;
  if (result == protocol::PrintResult::kBrokenData) fault = JobFault::kConnection;
  report.fail(fault, L"%s", protocol::textOf(result));
}

}  // namespace

void tellFailedStart(const tagPort& port, const wchar_t* printerName, DWORD jobId, const DOC_INFO_1W* document,
                     JobReport* report, CS_Connection* connection) noexcept {
  const wchar_t* name = document != nullptr && document->pDocName != nullptr ? document->pDocName : L"";
  if (report != nullptr) {
    if (PortRecords::instance().isDeleted(port)) blameDeletion(*report);
    tellFailure({Result::kFailed, port.portName, printerName, name, jobId, *report}, *report, connection);
    return;
  }
  // There was no memory even for the job.
  JobReport ownReport;
  ownReport.fail(JobFault::kModule, L"%s", corvane::messageText(corvane::kAllocationFailed));
  tell({Result::kFailed, port.portName, printerName, name, jobId, ownReport}, connection);
}

void tellFailedJob(const tagPort& port) noexcept {
  if (port.job == nullptr || port.job->report.isTold) return;
  JobReport& report = port.job->closeReport();
  if (PortRecords::instance().isDeleted(port)) blameDeletion(report);
  const CS_RCPtr<CS_Connection> connection = connectionOf(port);
  tellFailure(endOf(port, report, Result::kFailed), report, connection.get());
  port.job->documentName = std::move(report.document);  // the job stays on the port as it was
}

void endJobOfDeletedPort(tagPort& port) noexcept {
  const std::unique_ptr<ClientPrintJob> job(port.job);
  if (job == nullptr) return;
  if (!job->report.isTold) blameDeletion(job->report);
  tellFailedJob(port);
  discardCollectedData(*job);
  port.job = nullptr;
}

void tellEndedJob(const tagPort& port, JobReport& report, bool shown, int answer, CS_Connection* connection) noexcept {
  if (report.isTold) return;
  if (shown ? !report.hasFailed() : answer > 0) {
    report.isTold = true;
    tell(endOf(port, report, shown ? Result::kShown : Result::kDelivered), connection);
    return;
  }
  if (PortRecords::instance().isDeleted(port)) blameDeletion(report);
  noteAnswer(report, answer);
  tellFailure(endOf(port, report, Result::kFailed), report, connection);
}

}  // namespace mg
