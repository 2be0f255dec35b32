#include "session/print_server.h"

#include "corvane/in_request.h"
#include "corvane/operation.h"
#include "session/optional_text.h"

PrintServer::~PrintServer() = default;

void PrintServer::StartJob(ClientPrintJob* job) {
  CS_TraceEntry trace(L"PrintServer::StartJob()");
  if (job == nullptr) return;
  try {
    CS_OutRequest request(CS_RCPtr<CS_Component>(this), kStartJob);
    mg::writeOptionalText(request, job->jobName);
    mg::writeOptionalText(request, job->clientPrinterName);
    mg::writeOptionalText(request, job->documentName);
    mg::writeOptionalText(request, job->dataType);
    for (const std::int32_t setting : job->settings)
      request.writeInt(setting);
    request.writeInt(job->copies);
    request.execute();
    request.release();
  } catch (...) {
    // Nobody waits for this request's outcome; the first write finds the same connection dead and says so.
  }
}

int PrintServer::EndJob(ClientPrintJob* job) {
  CS_TraceEntry trace(L"PrintServer::EndJob()");
  // A document with a hole is not ended: its client drops it when the connection closes.
  if (job == nullptr || job->dataLost) return 0;
  Operation operation(L"Stack Trace: PrintServer::EndJob()");
  int result = 0;
  job->failure.expect(JobFault::kConnection);
  operation.run(
      [&] {
        CS_OutRequest request(CS_RCPtr<CS_Component>(this), kEndJob);
        mg::writeOptionalText(request, job->jobName);
        CS_InRequest reply(request);
        request.execute(reply, kEndJobTimeout);
        result = reply.readInt();
        job->trail.add(L"the print client answered the end with %d", result);
        reply.release();
        request.release();
      },
      [&] { job->failure.note(operation.errorRecord()); });
  return result;
}
