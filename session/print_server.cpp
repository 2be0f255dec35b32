#include "session/print_server.h"

#include "corvane/records/exception.h"
#include "corvane/records/messages.h"
#include "corvane/records/operation.h"
#include "corvane/records/program_monitor.h"
#include "protocol/exchange.h"

#include <cerrno>
#include <cstdio>
#include <memory>

namespace {

void sendDirectly(PrintServer& server, const ClientPrintJob& job, const unsigned char* data, int length) {
  protocol::tell(CS_RCPtr<CS_Component>(&server), protocol::JobDataToSend{{job.jobName.wide(), length}, data});
}

// The runtime's file functions report through errno, which is what the record shows.
bool appendToFile(ClientPrintJob& job, const unsigned char* data, int length) {
  job.report.begin(JobFault::kCollect);
  std::FILE* file = std::fopen(job.postScriptPath.narrow(), "ab");
  if (file == nullptr) {
    int error = 0;
    _get_errno(&error);
    job.report.fail(CS_ProgramMonitor::getDefaultMonitor()->recordText(
        corvane::kLevelFailure, corvane::kCategory,
        L"Failed to open print job's postscript file for writing: %s, Error: %d", job.postScriptPath.wide(), error));
    return false;
  }
  const auto size = static_cast<std::size_t>(length);
  const bool taken = std::fwrite(data, 1, size, file) == size;
  // A full disk shows when the runtime writes what it held back; not every runtime tells it when it closes.
  const bool written = std::fflush(file) == 0;
  const bool closed = std::fclose(file) == 0;
  if (taken && written && closed) return true;
  job.report.fail(JobFault::kCollect, L"The print job's postscript file did not take all data: %s",
                  job.postScriptPath.wide());
  return false;
}

void noteFailedSend(ClientPrintJob& job, int number) {
  job.report.fail(JobFault::kConnection, L"Failed to send print job data: %s", corvane::messageText(number));
}

void sendFinalData(PrintServer& server, ClientPrintJob& job) {
  job.bytesSent = 0;
  while (job.bytesSent < job.finalDataLength) {
    const int rest = job.finalDataLength - job.bytesSent;
    const int chunk = rest < PrintServer::kMaxChunk ? rest : PrintServer::kMaxChunk;
    CS_OutRequest request(CS_RCPtr<CS_Component>(&server), static_cast<int>(protocol::JobData::kNumber));
    write(request.values(), protocol::JobDataToSend{{job.jobName.wide(), chunk}, job.finalData + job.bytesSent});
    job.bytesSent += chunk;  // also when it cannot be sent: it may have left in part
    request.execute();
  }
}

}  // namespace

PrintServer::~PrintServer() = default;

void PrintServer::StartJob(ClientPrintJob* job) {
  CS_TraceEntry trace(L"PrintServer::StartJob()");
  if (job == nullptr) return;
  try {
    protocol::tell(
        CS_RCPtr<CS_Component>(this),
        protocol::JobStartToSend{job->jobName.wide(), job->clientPrinterName.wide(), job->documentName.wide(),
                                 job->dataType.wide(), job->settings, job->copies});
  } catch (...) {
    // Nobody waits for this request's outcome; the first write finds the same connection dead and says so.
  }
}

int PrintServer::WriteJob(ClientPrintJob* job, const unsigned char* data, int length) {
  CS_TraceEntry trace(L"PrintServer::WriteJob (length = %d)", length);
  if (job == nullptr || job->dataLost) return 0;
  try {
    if (protocol::isDirect(job->settings)) {
      sendDirectly(*this, *job, data, length);
    } else if (data != nullptr || length != 0) {
      job->dataLost = !appendToFile(*job, data, length);
    } else {
      sendFinalData(*this, *job);
    }
  } catch (const CS_Exception& exception) {
    job->dataLost = true;
    noteFailedSend(*job, exception.number());
  } catch (...) {
    job->dataLost = true;
    noteFailedSend(*job, corvane::kUnknownException);
  }
  return job->dataLost ? 0 : 1;
}

int PrintServer::EndJob(ClientPrintJob* job) {
  CS_TraceEntry trace(L"PrintServer::EndJob()");
  // A document with a hole is not ended: its client drops it when the connection closes.
  if (job == nullptr || job->dataLost) return 0;
  Operation operation(L"Stack Trace: PrintServer::EndJob()");
  int result = 0;
  job->report.begin(JobFault::kConnection);
  operation.run(
      [&] {
        const protocol::JobEnd end{job->jobName.wide()};
        result = static_cast<int>(protocol::ask(CS_RCPtr<CS_Component>(this), end, kEndJobTimeout).result);
        job->report.add(L"the print client answered the end with %d", result);
      },
      [&] { job->report.fail(operation.errorRecord()); });
  return result;
}
