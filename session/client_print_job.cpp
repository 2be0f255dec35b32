#include "session/client_print_job.h"

#include <utility>

ClientPrintJob::~ClientPrintJob() {
  delete[] readBuffer;
  if (finalData != readBuffer) delete[] finalData;
  readBuffer = nullptr;
  finalData = nullptr;
}

JobReport& ClientPrintJob::closeReport() noexcept {
  report.document = std::move(documentName);
  report.bytesSent = protocol::isCollected(settings) ? bytesSent : report.bytesTaken;
  return report;
}
