#pragma once

#include "protocol/print_job.h"
#include "session/job_report.h"
#include "util/utl_string.h"
#include "util/win_handle.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <utility>

// One job that a port is printing. A plain record: made at the start of a document, owned by the port until the
// document ends, and borrowed by the job operations for the length of one call. Belongs to one thread at a time.
class ClientPrintJob {
 public:
  ClientPrintJob() = default;
  ClientPrintJob(const ClientPrintJob&) = delete;
  ClientPrintJob& operator=(const ClientPrintJob&) = delete;
  // Frees both byte arrays, once when they are the same array.
  virtual ~ClientPrintJob() {
    delete[] readBuffer;
    if (finalData != readBuffer) delete[] finalData;
  }

  // Completes the report when the job has ended, well or not, so that it can be told without the job. The document's
  // name goes over to the report. Needs no memory.
  JobReport& closeReport() noexcept {
    report.document = std::move(documentName);
    report.bytesSent = protocol::isCollected(settings) ? bytesSent : report.bytesTaken;
    return report;
  }

  UTL_String jobName;  // the name under which the job travels; an empty one is sent as absent
  UTL_String text2;    // carried, not interpreted
  UTL_String documentName;
  UTL_String dataType;
  UTL_String postScriptPath;            // where the data of a job to be converted is collected
  UTL_String pdfPath;                   // the converter's output
  UTL_String logPath;                   // the converter's standard output
  unsigned char* readBuffer = nullptr;  // owned, made with array new
  std::uint64_t reserved = 0;
  unsigned char* finalData = nullptr;  // owned, made with array new; may be the same array as readBuffer
  std::int32_t finalDataLength = 0;    // bytes in finalData
  std::int32_t bytesSent = 0;          // bytes of finalData that have been sent
  std::int32_t copies = 0;
  UTL_String clientPrinterName;
  UTL_String text15;  // carried, not interpreted
  protocol::JobSettings settings{};
  std::array<std::uint64_t, 2> reservedWords{};
  bool dataLost = false;  // a write failed: what the client has is not the document, and must not be ended as one
  JobReport report;
  mg::ObjectHandle aliveMark;  // tells other processes that the temporary files are in use; may be none
};
