#include "corvane/base/process.h"
#include "jobs/conversion.h"
#include "jobs/temporary_files.h"

#include <array>
#include <cstring>

namespace mg {

void Conversion::buildCommandLine(const TemporaryDirectory& directory) {
  m_job.report.begin(JobFault::kRootPath);
  // The location of the installation does not depend on the user who prints.
  const corvane::ProcessIdentity identity;
  if (RegOpenKeyExW(HKEY_LOCAL_MACHINE, L"SOFTWARE\\Quillfern\\Marrowgate", 0, KEY_READ, m_key.receive()) !=
      ERROR_SUCCESS) {
    m_operation.fail(corvane::kLevelFailure, L"Failed to find RootPath registry key.");
  }
  std::array<wchar_t, MAX_PATH + 1> root{};  // one more than is requested: the value may come without a terminator
  DWORD size = MAX_PATH * sizeof(wchar_t);
  const LSTATUS status =
      RegQueryValueExW(m_key.get(), L"RootPath", nullptr, nullptr, reinterpret_cast<BYTE*>(root.data()), &size);
  // It is the temporary directory that must not be empty; an empty RootPath means a path on the current drive.
  if (status != ERROR_SUCCESS || directory.isEmpty()) {
    m_operation.fail(corvane::kLevelFailure, L"Failed to query RootPath registry key.");
  }
  m_commandLine = root.data();
  const std::size_t length = std::wcslen(root.data());
  if (length == 0 || root[length - 1] != L'\\') m_commandLine.append(L"\\");
  m_commandLine.append(L"Programs\\ps2pdf.exe \"");
  m_commandLine.append(m_job.postScriptPath);
  m_commandLine.append(L"\"");
}

void Conversion::createLog() {
  m_job.report.begin(JobFault::kConversion);
  SECURITY_ATTRIBUTES inheritable{};
  inheritable.nLength = sizeof inheritable;
  inheritable.bInheritHandle = TRUE;
  const HANDLE log =
      CreateFileA(m_job.logPath.narrow(), GENERIC_READ | GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE,
                  &inheritable, CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr);
  if (log != nullptr) m_logHandle.reset(log);
  if (!m_logHandle) {
    m_operation.note(corvane::kLevelCleanupNote, L"Failed to create a normalizer error log: %s", m_job.logPath.wide());
  }
}

void Conversion::startConverter() {
  std::array<char, kCommandLineSize> command{};
  const char* narrow = m_commandLine.narrow();
  const std::size_t length = std::strlen(narrow);
  if (length < command.size()) std::memcpy(command.data(), narrow, length);

  // The converter runs as the spooler, which may read the file that was collected, and not as the job's user.
  if (!RevertToSelf()) m_operation.note(corvane::kLevelCleanupNote, L"Failed to revert to the SYSTEM context.");

  STARTUPINFOA start{};
  start.cb = sizeof start;
  start.dwFlags = STARTF_USESHOWWINDOW;
  start.wShowWindow = SW_HIDE;
  if (m_logHandle) {
    start.dwFlags |= STARTF_USESTDHANDLES;
    start.hStdOutput = m_logHandle.get();
  }
  PROCESS_INFORMATION process{};
  m_job.report.begin(JobFault::kConverterStart);
  if (length >= command.size() || !CreateProcessA(nullptr, command.data(), nullptr, nullptr, TRUE,
                                                  NORMAL_PRIORITY_CLASS, nullptr, nullptr, &start, &process)) {
    m_operation.fail(corvane::kLevelFailure, L"Failed to normalize print job: %s", m_commandLine.wide());
  }
  m_job.report.begin(JobFault::kConversion);
  m_process.reset(process.hProcess);
  m_thread.reset(process.hThread);
}

void Conversion::waitForConverter() {
  if (WaitForSingleObject(m_process.get(), INFINITE) != WAIT_OBJECT_0) {
    m_operation.note(corvane::kLevelCleanupNote, L"Failed to wait for print job normalization: %s",
                     m_commandLine.wide());
  }
  DWORD exitCode = 0;
  if (GetExitCodeProcess(m_process.get(), &exitCode)) m_job.report.add(L"the converter ended with %d", exitCode);
}

void Conversion::readLog() {
  if (!m_logHandle) return;
  m_logHandle.reset();
  m_logFile.reset(std::fopen(m_job.logPath.narrow(), "r"));
  if (m_logFile == nullptr) {
    m_operation.note(corvane::kLevelCleanupNote, L"Failed to open normalized print job log file: %s - Last Error = %d.",
                     m_job.logPath.wide(), GetLastError());
    return;
  }
  const long length = measure(m_logFile.get());
  if (length > 0) {
    const auto size = static_cast<std::size_t>(length);
    m_log.reset(new char[size + 1]());
    m_logLength = length;
    // Fewer characters than bytes arrive, because line ends are made one character each.
    std::fread(m_log.get(), 1, size, m_logFile.get());
  }
  m_logFile.reset();
}

}  // namespace mg
