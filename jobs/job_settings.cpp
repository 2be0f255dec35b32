#include "jobs/job_settings.h"

#include "corvane/exception.h"
#include "corvane/message_numbers.h"
#include "corvane/operation.h"
#include "jobs/leftover_files.h"
#include "jobs/temporary_path.h"

#include <cwchar>

namespace {

void setTravel(ClientPrintJob& job, std::int32_t second, std::int32_t third, std::int32_t deliveryMode) {
  job.settings[1] = second;
  job.settings[2] = third;
  job.settings[ClientPrintJob::kDeliveryMode] = deliveryMode;
}

void nameTemporaryFiles(ClientPrintJob& job) {
  const mg::TemporaryDirectory directory;
  const DWORD ticks = GetTickCount();
  mg::appendTemporaryPath(job.postScriptPath, directory, job.jobName, ticks, L".ps");
  mg::appendTemporaryPath(job.pdfPath, directory, job.jobName, ticks, L".pdf");
  mg::appendTemporaryPath(job.logPath, directory, job.jobName, ticks, L".log");
  mg::markAlive(job);
}

}  // namespace

void ConfigurePrintJobSettings(ClientPrintJob* job, const ClientPrinter& printer) {
  CS_TraceEntry trace(L"ConfigurePrintJobSettings()");
  Operation operation(L"Stack Trace: MgPrintMon - ConfigurePrintJobSettings()");
  operation.run([&] {
    if (job == nullptr) throw CS_Exception(corvane::kBadArgument, nullptr);
    switch (printer.printerValue) {
      case 1:
        setTravel(*job, 1, 1, ClientPrintJob::kDirect);
        break;
      case 2:
        setTravel(*job, 2, 1, ClientPrintJob::kDirect);
        break;
      case 3:
        setTravel(*job, 2, 3, ClientPrintJob::kConverted);
        nameTemporaryFiles(*job);
        break;
      default:
        throw CS_Exception(corvane::kMissingObject, nullptr);
    }
    // The wide texts are compared: driver names that differ only in the ANSI code page's eyes are different.
    if (std::wcscmp(printer.driverName.wide(), L"Universal Remote Printer") == 0) {
      job->settings[0] = 2;
    } else {
      job->settings[0] = 1;
      job->clientPrinterName = printer.printerName;
    }
  });
}
