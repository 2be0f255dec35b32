#include "session/client_print_job.h"

ClientPrintJob::~ClientPrintJob() {
  delete[] readBuffer;
  if (finalData != readBuffer) delete[] finalData;
  readBuffer = nullptr;
  finalData = nullptr;
}
