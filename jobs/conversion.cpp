#include "jobs/conversion.h"

#include "corvane/local_monitor.h"
#include "jobs/final_data.h"
#include "jobs/print_raw_data.h"
#include "jobs/spool_file.h"
#include "jobs/unconverted.h"

#include <cwchar>

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

// The printer wants PDF and gets something else; nobody else knows why.
void Conversion::remarkUnconverted() {
  if (m_job.failure.isNoted() || m_job.finalDataLength < 1) return;
  m_job.remark = whyUnconverted(m_job.finalData, static_cast<std::size_t>(m_job.finalDataLength));
  m_job.trail.add(L"%s", m_job.remark);
  wchar_t line[512];
  std::swprintf(line, std::size(line), L"\"%.200ls\" is %ls", m_job.jobName.wide(), m_job.remark);
  corvane::LocalMonitor::instance().writeLine(L"job:", line);
}

bool Conversion::goesToNotepad() const {
  return m_printerName != nullptr && std::wcsstr(m_printerName, L"Preview PDF") == m_printerName;
}

void Conversion::convertPostScript() {
  m_job.trail.add(L"the conversion begins");
  m_job.failure.expect(JobFault::kCollect);
  const TemporaryDirectory directory;
  if (!directory.isKnown()) m_operation.fail(corvane::kLevelFailure, L"Failed to find temporary path.");
  // Remains of an earlier job of the same name; as a rule there are none.
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
      m_job.trail.add(L"the converted document has %d bytes", m_job.finalDataLength);
      m_pdfFile.reset();
      return;
    case FinalDataRead::kEmpty:
      m_operation.fail(corvane::kLevelFailure, L"Normalized print job file is empty: %s", command);
    case FinalDataRead::kNothingRead:
      m_operation.fail(corvane::kLevelFailure, L"Failed to read normalized print job file: %s", command);
  }
}

}  // namespace mg
