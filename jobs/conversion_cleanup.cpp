#include "jobs/conversion.h"

#include <string>

namespace mg {

int Conversion::run() {
  int result = 0;
  m_operation.run(
      [&] {
        m_operation.attempt([&] { result = convert(); });
        removeFiles();
      },
      [&] { recordLog(); });
  release();
  return result;
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

void Conversion::release() {
  m_logHandle.reset();
  m_log.reset();
  m_key.reset();
  m_pdfFile.reset();
  m_logFile.reset();
  m_process.reset();
  m_thread.reset();
}

}  // namespace mg
