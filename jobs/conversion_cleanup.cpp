#include "jobs/conversion.h"

#include <string>

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
  release();
  return result;
}

// What the converter said says more than what became of it, which is in the records.
void Conversion::noteFailure() {
  const std::wstring words = lastLineOfLog();
  if (!words.empty()) m_job.failure.note(JobFault::kConversion, L"The conversion failed: %s", words.c_str());
  m_job.failure.note(m_operation.errorRecord());
  m_job.trail.add(L"the conversion failed");
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
