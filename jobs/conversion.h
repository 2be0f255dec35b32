#pragma once

#include "corvane/records/operation.h"
#include "jobs/spool_file.h"
#include "session/client_print_job.h"
#include "util/utl_string.h"
#include "util/win_handle.h"

#include <windows.h>

#include <memory>
#include <string>

namespace mg {

class TemporaryDirectory;

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

// Turns a job that was collected in its PostScript file into what is sent to the client, at the end of its document:
//  - PostScript is converted by the external converter, and the PDF becomes the job's final data;
//  - anything else becomes the final data as it is and, for a printer whose name begins with "Preview PDF", is printed
//    as plain text through notepad in the user's session.
// Only jobs whose second and third settings are 2 and 3 are touched. The temporary files are gone afterwards, whatever
// happened.
//
// The name is the local printer's and may be null. Returns 1 when the job went to notepad and nothing is to be sent,
// otherwise 0, also after a failure, which is recorded together with what the converter printed. Does not throw. Runs
// on the caller's thread, waits for the converter without limit, and ends the thread's impersonation of a client.
int ConvertJob(ClientPrintJob* job, const wchar_t* printerName);

// Removes printer escape sequences from the bytes, in place, and returns how many are left; 0 for null data. A sequence
// runs from an ESC (0x1B) to the next byte from 0x3D to 0x5A, both included; one that has no such byte ends with the
// data. No other control character is touched.
int StripEscapeChars(unsigned char* data, int length);

// Prints the job's final data as plain text: filters them in place, writes them to a new temporary text file and has
// notepad started in the user's session to print that file to the printer. The file stays, because notepad reads it
// after this call has returned. Failures are recorded; does not throw.
void PrintRawDataViaNotepad(ClientPrintJob& job, const wchar_t* printerName);
