#include "monitor/job_end.h"

#include "corvane/records/messages.h"
#include "jobs/spool_file.h"
#include "jobs/temporary_path.h"
#include "monitor/job_notice.h"
#include "ports/port_records.h"
#include "ports/tag_port.h"
#include "protocol/print_job.h"
#include "session/print_server.h"

#include <array>
#include <cwchar>
#include <memory>
#include <string>
#include <utility>

namespace mg {
namespace {

JobNotice noticeOf(const tagPort& port, const JobAccount& job, const wchar_t* result) {
  return {result,           port.portName,
          port.printerName, job.documentName.wide(),
          port.jobId,       job.isConverted ? job.bytesSent : job.bytesTaken,
          nullptr,          &job.trail,
          job.queueError};
}

void blameDeletion(JobFailure& failure) noexcept {
  failure.noteInstead(JobFault::kPortDeleted, L"The port was deleted before the job had ended.");
}

void tellFailure(JobNotice notice, JobAccount& job, CS_Connection* connection) noexcept {
  if (job.isTold) return;
  job.isTold = true;
  job.trail.add(L"%I64d bytes were taken from the spooler", job.bytesTaken);
  notice.failure = &job.failure;
  tell(notice, connection);
}

// The connection of the port's job; null without a stream.
CS_RCPtr<CS_Connection> connectionOf(const tagPort& port) {
  if (!port.printServer) return nullptr;
  return dynamic_cast<CS_Connection*>(port.printServer->getRootOwner().get());
}

void noteAnswer(JobAccount& job, int answer) {
  JobFault fault = JobFault::kClient;
  const auto result = static_cast<protocol::PrintResult>(answer);
  if (result == protocol::PrintResult::kDiskFailure) fault = JobFault::kClientDisk;
  if (result == protocol::PrintResult::kBrokenData) fault = JobFault::kConnection;
  job.failure.note(fault, L"%s", protocol::textOf(result));
}

}  // namespace

JobAccount::JobAccount(ClientPrintJob& job) noexcept
    : documentName(std::move(job.documentName)),
      isConverted(protocol::isCollected(job.settings)),
      bytesTaken(job.bytesTaken),
      bytesSent(job.bytesSent),
      remark(job.remark),
      failure(job.failure),
      trail(job.trail),
      isTold(job.isTold) {}

void tellFailedStart(const tagPort& port, const wchar_t* printerName, DWORD jobId, const DOC_INFO_1W* document,
                     JobAccount* job, CS_Connection* connection) noexcept {
  const wchar_t* name = document != nullptr && document->pDocName != nullptr ? document->pDocName : L"";
  const bool deleted = PortRecords::instance().isDeleted(port);
  JobNotice notice{L"failed", port.portName, printerName, name, jobId, 0, nullptr, nullptr, ERROR_SUCCESS};
  if (job != nullptr) {
    notice.trail = &job->trail;
    notice.queueError = job->queueError;
    if (deleted) blameDeletion(job->failure);
    tellFailure(notice, *job, connection);
    return;
  }
  // There was no memory even for the job.
  JobFailure failure;
  failure.note(JobFault::kModule, L"%s", corvane::messageText(corvane::kAllocationFailed));
  notice.failure = &failure;
  tell(notice, connection);
}

void tellFailedJob(const tagPort& port, DWORD queueError) noexcept {
  if (port.job == nullptr || port.job->isTold) return;
  if (PortRecords::instance().isDeleted(port)) blameDeletion(port.job->failure);
  const CS_RCPtr<CS_Connection> connection = connectionOf(port);
  JobAccount job(*port.job);
  job.queueError = queueError;
  port.job->isTold = true;
  tellFailure(noticeOf(port, job, L"failed"), job, connection.get());
  port.job->documentName = std::move(job.documentName);
}

void endJobOfDeletedPort(tagPort& port) noexcept {
  const std::unique_ptr<ClientPrintJob> job(port.job);
  if (job == nullptr) return;
  if (!job->isTold) blameDeletion(job->failure);
  tellFailedJob(port);
  discardCollectedData(*job);
  port.job = nullptr;
}

void tellEndedJob(const tagPort& port, JobAccount& job, bool shown, int answer, CS_Connection* connection) noexcept {
  if (job.isTold) return;
  if (shown ? !job.failure.isNoted() : answer > 0) {
    job.isTold = true;
    JobNotice notice = noticeOf(port, job, shown ? L"shown" : L"delivered");
    notice.remark = job.remark;
    tell(notice, connection);
    return;
  }
  if (PortRecords::instance().isDeleted(port)) blameDeletion(job.failure);
  noteAnswer(job, answer);
  tellFailure(noticeOf(port, job, L"failed"), job, connection);
}

UTL_String buildJobName(const wchar_t* printerName, DWORD jobId) {
  std::array<wchar_t, kPortNameSize> safe{};
  for (std::size_t i = 0; i + 1 < safe.size() && printerName[i] != L'\0'; ++i) {
    safe[i] = std::wcschr(kNotInJobNames, printerName[i]) != nullptr ? L'-' : printerName[i];
  }
  UTL_String name(safe.data());
  name.append(kJobNumber);
  name.append(std::to_wstring(jobId).c_str());
  return name;
}

}  // namespace mg
