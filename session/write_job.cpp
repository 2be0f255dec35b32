#include "corvane/exception.h"
#include "corvane/levels.h"
#include "corvane/message_numbers.h"
#include "corvane/program_monitor.h"
#include "corvane/trace_entry.h"
#include "session/optional_text.h"
#include "session/print_server.h"

#include <cerrno>
#include <cstdio>
#include <memory>

namespace {

void sendDirectly(PrintServer& server, ClientPrintJob& job, const unsigned char* data, int length) {
  CS_OutRequest request(CS_RCPtr<CS_Component>(&server), PrintServer::kWriteJob);
  mg::writeOptionalText(request, job.jobName);
  request.writeInt(length);
  if (length > 0) request.write(data, length);
  request.execute();
  request.release();
}

// The runtime's file functions report through errno, which is what the record shows.
bool appendToFile(ClientPrintJob& job, const unsigned char* data, int length) {
  std::FILE* file = std::fopen(job.postScriptPath.narrow(), "ab");
  if (file == nullptr) {
    int error = 0;
    _get_errno(&error);
    job.failure.expect(JobFault::kCollect);
    job.failure.note(CS_ProgramMonitor::getDefaultMonitor()->recordText(
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
  job.failure.note(JobFault::kCollect, L"The print job's postscript file did not take all data: %s",
                   job.postScriptPath.wide());
  return false;
}

void noteFailedSend(ClientPrintJob& job, int number) {
  job.failure.note(JobFault::kConnection, L"Failed to send print job data: %s", corvane::messageText(number));
}

void sendFinalData(PrintServer& server, ClientPrintJob& job) {
  job.bytesSent = 0;
  while (job.bytesSent < job.finalDataLength) {
    const int rest = job.finalDataLength - job.bytesSent;
    const int chunk = rest < PrintServer::kMaxChunk ? rest : PrintServer::kMaxChunk;
    CS_OutRequest request(CS_RCPtr<CS_Component>(&server), PrintServer::kWriteJob);
    mg::writeOptionalText(request, job.jobName);
    request.writeInt(chunk);
    request.write(job.finalData, job.bytesSent, chunk);
    job.bytesSent += chunk;
    request.execute();
    request.release();
  }
}

}  // namespace

int PrintServer::WriteJob(ClientPrintJob* job, const unsigned char* data, int length) {
  CS_TraceEntry trace(L"PrintServer::WriteJob (length = %d)", length);
  if (job == nullptr || job->dataLost) return 0;
  const std::int32_t mode = job->settings[ClientPrintJob::kDeliveryMode];
  try {
    if (mode == ClientPrintJob::kDirect || mode == ClientPrintJob::kDirectAlternative) {
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
