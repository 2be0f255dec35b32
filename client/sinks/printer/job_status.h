#pragma once

#include "client/sinks/printer/queued_job.h"

#include <string>
#include <vector>

namespace printclient {

// What a printer says about one of its jobs and about itself, in the numbers and keywords of IPP. A plain value.
struct JobStatus {
  // As RFC 8011 numbers them.
  enum State { kPending = 3, kHeld = 4, kProcessing = 5, kStopped = 6, kCanceled = 7, kAborted = 8, kCompleted = 9 };

  int state = 0;
  std::vector<std::string> reasons;
  std::string message;
  bool isPrinterStopped = false;
  std::vector<std::string> printerReasons;
  std::string printerMessage;
};

// What a job's status means for whoever waits for it.
enum class JobFate {
  kTaken,     // the queue has it whole, and nothing more is waited for
  kWatched,   // it is being printed, or about to be, without trouble
  kTroubled,  // it cannot go on unless something changes
  kGivenUp,   // the printer has dropped it
};

// Whether the printer cannot print at the moment.
bool isInTrouble(const JobStatus& status);

// A printer without a scheduler (isQueue false) prints what it has or nothing; in a queue of a scheduler a job may wait
// for the printer as long as it takes.
JobFate fateOf(const JobStatus& status, bool isQueue);

// What is wrong, as it follows "the printer ... ", and what to do about it.
struct Trouble {
  std::string cause;
  std::string remedy;
};

// In a person's words as far as there are some, otherwise the printer's own. For a job that stays at the printer
// nobody has to print again.
Trouble troubleOf(const JobStatus& status, bool stays = false);

// What has become of a job that a printer or queue has taken.
JobProgress progressOf(const JobStatus& status);

}  // namespace printclient
