#include "jobs/print_raw_data.h"

#include "corvane/records/messages.h"
#include "corvane/records/operation.h"
#include "jobs/spool_file.h"
#include "jobs/temporary_files.h"
#include "session/port_monitor_server.h"

#include <windows.h>

int StripEscapeChars(unsigned char* data, int length) {
  CS_TraceEntry trace(L"StripEscapeChars()");
  constexpr unsigned char kEscape = 0x1B;
  constexpr unsigned char kFirstTerminator = 0x3D;
  constexpr unsigned char kLastTerminator = 0x5A;
  if (data == nullptr || length <= 0) return 0;
  int kept = 0;
  for (int at = 0; at < length; ++at) {
    if (data[at] != kEscape) {
      data[kept++] = data[at];
      continue;
    }
    do {
      ++at;
    } while (at < length && (data[at] < kFirstTerminator || data[at] > kLastTerminator));
  }
  return kept;
}

namespace {

constexpr wchar_t kNotepad[] = L"notepad.exe";

// One quoted token whose inner quotes are escaped: "/PT \"<file>\" \"<printer>\""
UTL_String notepadParameters(const UTL_String& file, const wchar_t* printerName) {
  UTL_String parameters(L"\"/PT \\\"");
  parameters.append(file);
  parameters.append(L"\\\" \\\"");
  parameters.append(printerName);
  parameters.append(L"\\\"\"");
  return parameters;
}

void writeText(Operation& operation, const UTL_String& path, ClientPrintJob& job) {
  mg::File file(std::fopen(path.narrow(), "wb"));
  if (file == nullptr) {
    operation.fail(corvane::kLevelFailure, L"Failed to open raw data: %s - Last Error = %d.", path.wide(),
                   GetLastError());
  }
  job.finalDataLength = StripEscapeChars(job.finalData, job.finalDataLength);
  const auto size = static_cast<std::size_t>(job.finalDataLength);
  const bool taken = std::fwrite(job.finalData, 1, size, file.get()) == size;
  // A full disk shows when the runtime writes what it held back; a cut text must not look printed.
  if (!taken || std::fflush(file.get()) != 0) {
    operation.fail(corvane::kLevelFailure, L"Failed to write raw data: %s - Last Error = %d.", path.wide(),
                   GetLastError());
  }
}

}  // namespace

void PrintRawDataViaNotepad(ClientPrintJob& job, const wchar_t* printerName) {
  CS_TraceEntry trace(L"PrintRawDataViaNotepad (printerName = %s)", printerName);
  Operation operation(L"Stack Trace: MgPrintMon - PrintRawDataViaNotepad()");
  operation.run(
      [&] {
        UTL_String path;
        job.report.begin(JobFault::kCollect);
        mg::appendTemporaryPath(path, mg::TemporaryDirectory(), job.jobName, GetTickCount(), L".txt");
        writeText(operation, path, job);
        job.report.begin(JobFault::kNotepad);
        const UTL_String parameters = notepadParameters(path, printerName);
        const CS_RCPtr<PortMonitorServer> server = PortMonitorServer::getInstance();
        if (!server->LaunchApplication(kNotepad, parameters.wide(), printerName)) {
          operation.fail(corvane::kLevelFailure, L"Failed to launch notepad: %s %s", kNotepad, parameters.wide());
        }
        // LaunchApplication also says yes when the request was lost on the way.
        if (server->isConnected()) {
          job.report.add(L"notepad was started in the session");
        } else {
          job.report.fail(JobFault::kConnection, L"%s", corvane::messageText(corvane::kConnectionLost));
        }
      },
      [&] { job.report.fail(operation.errorRecord()); });
}
