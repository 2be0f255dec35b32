#include "jobs/convert_job.h"

#include "corvane/trace_entry.h"
#include "jobs/conversion.h"

int ConvertJob(ClientPrintJob* job, const wchar_t* printerName) {
  CS_TraceEntry trace(L"ConvertJob (printerName = %s)", printerName);
  if (job == nullptr) return 0;
  return mg::Conversion(*job, printerName).run();
}
