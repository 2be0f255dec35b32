#pragma once

#include "corvane/operation.h"
#include "jobs/file.h"
#include "jobs/temporary_path.h"
#include "session/client_print_job.h"
#include "util/utl_string.h"
#include "util/win_handle.h"

#include <windows.h>

#include <memory>
#include <string>

namespace mg {

// One conversion from its start to its clean-up: what it holds lives until the records of its failure are written. Used
// once, by ConvertJob.
class Conversion {
 public:
  Conversion(ClientPrintJob& job, const wchar_t* printerName) : m_job(job), m_printerName(printerName) {}
  Conversion(const Conversion&) = delete;
  Conversion& operator=(const Conversion&) = delete;

  // The result of ConvertJob. Does not throw.
  int run();

  static constexpr std::size_t kCommandLineSize = 4096;  // bytes of the command line, terminator included
  static constexpr std::size_t kLogPiece = 512;          // characters of the converter's log in one record

 private:
  int convert();
  bool goesToNotepad() const;
  void remarkUnconverted();
  void convertPostScript();
  void buildCommandLine(const TemporaryDirectory& directory);
  void startConverter();
  void waitForConverter();
  void createLog();
  void readLog();
  void takePdf();

  void noteFailure();
  // What the converter printed last, without white space around it; empty when it printed nothing or without memory.
  std::wstring lastLineOfLog() const noexcept;

  void removeFiles();
  void removeFile(const UTL_String& path, const wchar_t* message);
  void recordLog();
  void release();

  ClientPrintJob& m_job;
  const wchar_t* m_printerName;
  Operation m_operation{L"Stack Trace: MgPrintMon - ConvertJob()"};

  UTL_String m_commandLine;
  RegistryKey m_key;
  FileHandle m_logHandle;
  File m_logFile;
  File m_pdfFile;
  std::unique_ptr<char[]> m_log;  // what the converter printed, terminated
  long m_logLength = 0;
  ObjectHandle m_process;
  ObjectHandle m_thread;
};

}  // namespace mg
