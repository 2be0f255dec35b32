#pragma once

#include "protocol/administration.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace protocol {

// Where a job is. The value is the number on the wire; any other one may come.
enum class JobState : std::int32_t {
  kRunning = 1,    // between the port monitor and its print client
  kPrinting = 2,   // the print client has it whole, and its printer is at it
  kPrinted = 3,    // the printer says that it is done
  kDelivered = 4,  // the print client has put it where it was to go, and nobody tells more
  kShown = 5,      // a program was started in the session to show it
  kFailed = 6,
  kCanceled = 7,
  kHeld = 8,  // the application server has it whole, until its print client is back
};

// The words for the states, in the order of their numbers.
struct JobStateName {
  JobState state;
  const wchar_t* word;
};
inline constexpr std::array kJobStates = {
    JobStateName{JobState::kRunning, L"running"},   JobStateName{JobState::kPrinting, L"printing"},
    JobStateName{JobState::kPrinted, L"printed"},   JobStateName{JobState::kDelivered, L"delivered"},
    JobStateName{JobState::kShown, L"shown"},       JobStateName{JobState::kFailed, L"failed"},
    JobStateName{JobState::kCanceled, L"canceled"}, JobStateName{JobState::kHeld, L"held"}};

// That of an unknown number is "failed", and of an unknown word kFailed: what is not known has not been printed.
constexpr const wchar_t* wordOf(JobState state) {
  const auto found = std::find_if(kJobStates.begin(), kJobStates.end(),
                                  [state](const JobStateName& name) { return name.state == state; });
  return found == kJobStates.end() ? wordOf(JobState::kFailed) : found->word;
}
inline JobState jobStateOf(const std::wstring& word) {
  const auto found = std::find_if(kJobStates.begin(), kJobStates.end(),
                                  [&word](const JobStateName& name) { return word == name.word; });
  return found == kJobStates.end() ? JobState::kFailed : found->state;
}
// Whether nothing more becomes of the job.
constexpr bool isFinal(JobState state) {
  return state != JobState::kRunning && state != JobState::kPrinting && state != JobState::kHeld;
}

// The stages of a job's life, in their order.
enum JobStage : std::size_t {
  kCollecting = 0,  // until its first data leave the port monitor: a job that is converted is converted then
  kSending = 1,     // until the port monitor has sent the end
  kTaking = 2,      // until the print client has said what it did with it
  kPaper = 3,       // until the printer was done
};

// The story of one job, as the application server tells it. Texts are empty when they are not known.
struct JobRecord {
  static constexpr int kNotReached = -1;

  int number = 0;  // rises with every job of a server that keeps its history; 0 for none
  JobState state = JobState::kRunning;
  std::wstring server;   // the name of the machine
  std::wstring user;     // whose job the spooler says it is
  int session = 0;       // 0 when no session has the printer
  std::wstring printer;  // its name on the server
  std::wstring document;
  std::wstring spoolerJob;    // the spooler's number of the job
  int process = 0;            // the spooler's
  int copies = 0;             // 0 when it is not known
  int pages = 0;              // of the document, once; 0 when it is not known
  std::int64_t bytes = 0;     // passed on to the print client
  std::wstring began, ended;  // UTC as "2026-01-31T23:59:59Z"; it has ended when the print client has answered
  std::array<int, 4> milliseconds{kNotReached, kNotReached, kNotReached, kNotReached};  // of each JobStage
  std::wstring cause, remedy;  // of a failure, or of what the printer waits for; a sentence each

  bool operator==(const JobRecord&) const = default;

  // Without the pages, which earlier versions do not know.
  static void layout(auto& self, auto& wire) {
    wire(self.number, self.state, self.server, self.user, self.session, self.printer, self.document, self.spoolerJob,
         self.process, self.copies, self.bytes, self.began, self.ended, self.milliseconds, self.cause, self.remedy);
  }
};

// The jobs of a server, the latest first: those in progress and those that its history still has.
struct Jobs {
  static constexpr AdministrationRequest kNumber = AdministrationRequest::kJobs;
  static constexpr int kMost = 500;  // in one answer

  int before = 0;  // only those with a lower number; 0 for all
  int most = 0;    // at most kMost
  // Each narrows the answer unless it is empty, or 0.
  int job = 0;
  int session = 0;
  std::wstring user;          // without regard to case
  std::wstring since, until;  // UTC, by the time of their beginning; until is not included
  bool isFailedOnly = false;

  static void layout(auto& self, auto& wire) {
    wire(self.before, self.most, self.job, self.session, self.user, self.since, self.until, self.isFailedOnly);
  }

  struct Answer {
    std::vector<JobRecord> jobs;
    std::wstring trouble;  // why jobs of earlier are missing; empty when none are

    static void layout(auto& self, auto& wire) {
      wire.untilFalse(self.jobs);
      wire(self.trouble);
      wire.ifMore([&] {
        for (auto& record : self.jobs)
          wire(record.pages);
      });
    }
  };
};

// Ends a job that is running, as though its print client had gone.
struct CancelJob {
  static constexpr AdministrationRequest kNumber = AdministrationRequest::kCancelJob;

  int job = 0;
  std::wstring by;  // who wants it, as the job's record and the application are told

  static void layout(auto& self, auto& wire) { wire(self.job, self.by); }

  struct Answer {
    bool isDone = false;
    std::wstring text;  // what was canceled, or why nothing was

    static void layout(auto& self, auto& wire) { wire(self.isDone, self.text); }
  };
};

}  // namespace protocol
