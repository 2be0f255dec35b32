#include "jobs/conversion.h"

#include "corvane/records/operation.h"
#include "corvane/records/program_monitor.h"
#include "jobs/print_raw_data.h"
#include "jobs/spool_file.h"
#include "jobs/temporary_files.h"

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
