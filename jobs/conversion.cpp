#include "jobs/conversion.h"

#include "corvane/records/messages.h"
#include "corvane/records/operation.h"
#include "corvane/records/program_monitor.h"
#include "jobs/spool_file.h"
#include "jobs/temporary_files.h"
#include "session/port_monitor_server.h"

#include <cwchar>
#include <string>

namespace mg {

int Conversion::convert() {
  if (!protocol::isPdfOfPostScript(m_job.settings)) return 0;
  if (IsPostScriptData(m_job)) {
    convertPostScript();
    return 0;
  }
  ReadDataIntoFinalBuffer(m_job);
  if (!goesToNotepad()) {
    remarkUnconverted();
    return 0;
  }
  PrintRawDataViaNotepad(m_job, m_printerName);
  return 1;
}

// Says why a printer that wants PDF gets something else; only this code knows the reason.
void Conversion::remarkUnconverted() {
  if (m_job.report.hasFailed() || m_job.finalDataLength < 1) return;
  m_job.report.remark = whyUnconverted(m_job.finalData, static_cast<std::size_t>(m_job.finalDataLength));
  m_job.report.add(L"%s", m_job.report.remark);
  wchar_t line[512];
  std::swprintf(line, std::size(line), L"\"%.200ls\" is %ls", m_job.jobName.wide(), m_job.report.remark);
  corvane::LocalMonitor::instance().writeLine(L"job:", line);
}

bool Conversion::goesToNotepad() const {
  return m_printerName != nullptr && std::wcsstr(m_printerName, L"Preview PDF") == m_printerName;
}

void Conversion::convertPostScript() {
  m_job.report.begin(JobFault::kCollect, L"the conversion begins");
  const TemporaryDirectory directory;
  if (!directory.isKnown()) m_operation.fail(corvane::kLevelFailure, L"Failed to find temporary path.");
  // Left by an earlier job of the same name; usually there are none.
  if (!m_job.pdfPath.isEmpty()) DeleteFileW(m_job.pdfPath.wide());
  if (!m_job.logPath.isEmpty()) DeleteFileW(m_job.logPath.wide());
  buildCommandLine(directory);
  createLog();
  startConverter();
  waitForConverter();
  readLog();
  takePdf();
}

void Conversion::takePdf() {
  const wchar_t* command = m_commandLine.wide();
  m_pdfFile.reset(std::fopen(m_job.pdfPath.narrow(), "rb"));
  if (m_pdfFile == nullptr) {
    m_operation.fail(corvane::kLevelFailure, L"Failed to open normalized print job file: %s - Last Error = %d.",
                     command, GetLastError());
  }
  switch (readFinalData(m_pdfFile.get(), m_job)) {
    case FinalDataRead::kTaken:
      m_job.report.add(L"the converted document has %d bytes", m_job.finalDataLength);
      m_pdfFile.reset();
      return;
    case FinalDataRead::kEmpty:
      m_operation.fail(corvane::kLevelFailure, L"Normalized print job file is empty: %s", command);
    case FinalDataRead::kNothingRead:
      m_operation.fail(corvane::kLevelFailure, L"Failed to read normalized print job file: %s", command);
  }
}

}  // namespace mg

int ConvertJob(ClientPrintJob* job, const wchar_t* printerName) {
  CS_TraceEntry trace(L"ConvertJob (printerName = %s)", printerName);
  if (job == nullptr) return 0;
  return mg::Conversion(*job, printerName).run();
}

namespace mg {

int Conversion::run() {
  int result = 0;
  m_operation.run(
      [&] {
        bool finished = false;
        m_operation.attempt([&] {
          result = convert();
          finished = true;
        });
        if (!finished) noteFailure();
        removeFiles();
      },
      [&] { recordLog(); });
  return result;
}

// What the converter said says more than what became of it, which is in the records.
void Conversion::noteFailure() {
  const std::wstring words = lastLineOfLog();
  if (!words.empty()) m_job.report.fail(JobFault::kConversion, L"The conversion failed: %s", words.c_str());
  m_job.report.fail(m_operation.errorRecord());
  m_job.report.add(L"the conversion failed");
}

std::wstring Conversion::lastLineOfLog() const noexcept try {
  if (m_logLength < 1) return {};
  constexpr char kBlank[] = " \t\r\n";
  const std::string log(m_log.get());
  const std::size_t last = log.find_last_not_of(kBlank);
  if (last == std::string::npos) return {};
  const std::size_t before = log.find_last_of("\r\n", last);
  const std::size_t first = log.find_first_not_of(kBlank, before == std::string::npos ? 0 : before);
  return UTL_String::fromNarrow(log.substr(first, last + 1 - first).c_str()).wide();
} catch (...) {
  return {};
}

// Nothing in here throws: the paths were built as wide texts, and a record is written without memory if need be. So a
// file that cannot be deleted never keeps the next one from being deleted.
void Conversion::removeFiles() {
  removeFile(m_job.postScriptPath, L"Failed to delete the temporary print job file: %s");
  if (!m_job.pdfPath.isEmpty()) m_pdfFile.reset();
  removeFile(m_job.pdfPath, L"Failed to delete the temporary print job file: %s");
  if (!m_job.logPath.isEmpty()) {
    m_logHandle.reset();
    m_logFile.reset();
  }
  removeFile(m_job.logPath, L"Failed to delete the temporary print job log file: %s");
}

void Conversion::removeFile(const UTL_String& path, const wchar_t* message) {
  if (path.isEmpty()) return;
  if (!DeleteFileW(path.wide())) m_operation.note(corvane::kLevelCleanupNote, message, path.wide());
}

// Whatever was recorded, what the converter itself said belongs to it.
void Conversion::recordLog() {
  if (m_logLength < 1) return;
  try {
    const UTL_String log = UTL_String::fromNarrow(m_log.get());
    const std::wstring text(log.wide());
    std::size_t at = 0;
    do {
      m_operation.note(corvane::kLevelFailure, L"normalizer log: %s", text.substr(at, kLogPiece).c_str());
      at += kLogPiece;
    } while (at < text.size());
  } catch (...) {
    m_operation.closeWith(L"Stack Trace: MgPrintMon - ConvertJob() cleanup execption", corvane::kLevelFailure);
  }
}

}  // namespace mg

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
