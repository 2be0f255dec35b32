#pragma once

#include "util/utl_string.h"

#include <windows.h>

#include <array>
#include <cstddef>
#include <string>
#include <string_view>

class ClientPrintJob;

namespace mg {

// The directory for temporary files, terminated; empty when Windows names none or one too long for it.
class TemporaryDirectory {
 public:
  TemporaryDirectory();
  const wchar_t* text() const { return m_text.data(); }
  bool isEmpty() const { return m_text[0] == L'\0'; }
  // False when Windows named no directory at all.
  bool isKnown() const { return m_length != 0; }

 private:
  std::array<wchar_t, MAX_PATH + 1> m_text{};
  DWORD m_length;
};

// The name under which a job travels and its files are found: the printer's name with every character that a file name
// cannot have, and "@" and "+", replaced by "-", then " - Job #" and the job's number. "\\srv\HP+1" with job 17 gives
// "--srv-HP-1 - Job #17". The printer's name is shorter than kPortNameSize characters.
UTL_String buildJobName(const wchar_t* printerName, DWORD jobId);

// Appends the name of a job's temporary file to the path: the directory, the job's name, "-", the tick count and the
// extension. The tick count is written as a signed number, so one of 2^31 milliseconds or more has a sign of its own.
//
// A file is opened by the narrow form of its path and deleted by the wide one, and both must mean the same file. So a
// job's name that the ANSI code page cannot tell exactly, or that has characters which no file can have, stands there
// as fileNameOf() has it. Every other name stands as it is.
void appendTemporaryPath(UTL_String& path, const TemporaryDirectory& directory, const UTL_String& jobName, DWORD ticks,
                         const wchar_t* extension);

// The job's name itself where a file can have it. Otherwise the name with "_" in place of what cannot stand, cut to
// kMostKept characters, with "~" and 16 hexadecimal digits that tell names apart which would look alike.
std::wstring fileNameOf(const UTL_String& jobName);

inline constexpr std::size_t kMostKept = 100;

// Whether a file's name, without its directory, is one that appendTemporaryPath() gives the collected data, the PDF or
// the log of some printer's job. Nothing else passes: no other ending, number or character.
bool isTemporaryName(std::wstring_view name);

// A process that ends in the middle of a job, as a killed spooler does, leaves the job's temporary files behind: what
// was collected, the PDF, the converter's log. The next start of the module removes them.
//
// A file is removed when its name is exactly one that the module gives, it is a plain file with no other name, nobody
// has it open, it was last written more than a day ago, and no process of this machine has marked the job of that name
// as alive. The mark decides: a job's file is closed between two writes of an application that takes its time, and a
// clock may jump. The day is for jobs whose mark could not be made.

// Marks a job whose files have been named as alive until the job is destroyed or its process ends, however it ends.
// Without memory or handles the job goes on without the mark.
void markAlive(ClientPrintJob& job) noexcept;

// Removes what ended processes have left in the folder for temporary files, as the process and not as the user whom the
// thread impersonates. Ends after kMostLookedAt names that look like those of jobs, or kMostMilliseconds, whichever
// comes first; the rest is for the next start. Nothing fails because of it, and the thread's last error stays. The log
// gets a line with the number of removed files.
void removeLeftoverFiles() noexcept;

inline constexpr int kMostLookedAt = 10000;
inline constexpr int kMostMilliseconds = 1000;

}  // namespace mg
