#include "jobs/job_settings.h"

#include "corvane/records/exception.h"
#include "corvane/records/messages.h"
#include "corvane/records/operation.h"
#include "jobs/temporary_files.h"
#include "protocol/printer.h"
#include "session/port_monitor_server.h"

#include <cwchar>

namespace {

using protocol::DataFormat;
using protocol::DeliveryMode;

void setTravel(ClientPrintJob& job, DataFormat source, DataFormat target, DeliveryMode mode) {
  job.settings[protocol::kSourceSetting] = static_cast<std::int32_t>(source);
  job.settings[protocol::kTargetSetting] = static_cast<std::int32_t>(target);
  job.settings[protocol::kDeliverySetting] = static_cast<std::int32_t>(mode);
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
    switch (static_cast<DataFormat>(printer.printerValue)) {
      case DataFormat::kRaw:
        setTravel(*job, DataFormat::kRaw, DataFormat::kRaw, DeliveryMode::kDirect);
        break;
      case DataFormat::kPostScript:
        setTravel(*job, DataFormat::kPostScript, DataFormat::kRaw, DeliveryMode::kDirect);
        break;
      case DataFormat::kPdf:
        setTravel(*job, DataFormat::kPostScript, DataFormat::kPdf, DeliveryMode::kCollected);
        nameTemporaryFiles(*job);
        break;
      default:
        throw CS_Exception(corvane::kMissingObject, nullptr);
    }
    // The wide texts are compared: driver names that differ only in the ANSI code page's eyes are different.
    if (std::wcscmp(printer.driverName.wide(), L"Universal Remote Printer") == 0) {
      job->settings[protocol::kNamingSetting] = 2;
    } else {
      job->settings[protocol::kNamingSetting] = 1;
      job->clientPrinterName = printer.printerName;
    }
  });
}
