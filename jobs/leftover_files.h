#pragma once

class ClientPrintJob;

namespace mg {

// A process that ends in the middle of a job, as a killed spooler does, leaves the job's temporary files behind: what
// was collected, the PDF, the converter's log. The next start of the module removes them.
//
// A file is removed when its name is exactly one that the module gives (jobs/temporary_path.h), it is a plain file with
// no other name, nobody has it open, it was last written more than a day ago, and no process of this machine has marked
// the job of that name as alive. The mark is what counts: a job's file is closed between two writes of an application
// that takes its time, and a clock may jump. The day is for jobs whose mark could not be made.

// Marks a job whose files have been named as alive until the job is destroyed or its process ends, however it ends.
// Without memory or handles the job goes on without the mark.
void markAlive(ClientPrintJob& job) noexcept;

// Removes what ended processes have left in the folder for temporary files, as the process and not as the user whom the
// thread impersonates. Ends after kMostLookedAt names that look like those of jobs, or kMostMilliseconds, whichever
// comes first; the rest is for the next start. Nothing fails because of it, and the thread's last error stays. How many
// files it were is a line of the log.
void removeLeftoverFiles() noexcept;

inline constexpr int kMostLookedAt = 10000;
inline constexpr int kMostMilliseconds = 1000;

}  // namespace mg
