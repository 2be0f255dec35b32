#pragma once

#include "protocol/registration.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <string>

namespace protocol {

// What has become of a job that the print client has taken. The value is the number on the wire; any other one may
// come.
enum class PaperState : std::int32_t {
  kWaiting = 1,   // in the printer's queue
  kPrinting = 2,  // it is being printed
  kStopped = 3,   // it cannot go on before somebody does something about the printer
  kCanceled = 4,
  kAborted = 5,  // the printer has given it up
  kPrinted = 6,
  kHandedOn = 7,  // it is in a folder, or a program has taken it; of paper nobody tells
  kUnknown = 8,   // nobody tells any more
};

// The words that notices and tools use for the states, in the order of their numbers.
struct PaperStateName {
  PaperState state;
  const wchar_t* word;
};
inline constexpr std::array kPaperStates = {
    PaperStateName{PaperState::kWaiting, L"waiting"},    PaperStateName{PaperState::kPrinting, L"printing"},
    PaperStateName{PaperState::kStopped, L"stopped"},    PaperStateName{PaperState::kCanceled, L"canceled"},
    PaperStateName{PaperState::kAborted, L"aborted"},    PaperStateName{PaperState::kPrinted, L"printed"},
    PaperStateName{PaperState::kHandedOn, L"handed on"}, PaperStateName{PaperState::kUnknown, L"unknown"}};

// That of an unknown number and of an unknown word is kUnknown.
constexpr const wchar_t* wordOf(PaperState state) {
  const auto found = std::find_if(kPaperStates.begin(), kPaperStates.end(),
                                  [state](const PaperStateName& name) { return name.state == state; });
  return found == kPaperStates.end() ? wordOf(PaperState::kUnknown) : found->word;
}
inline PaperState paperStateOf(const std::wstring& word) {
  const auto found = std::find_if(kPaperStates.begin(), kPaperStates.end(),
                                  [&word](const PaperStateName& name) { return word == name.word; });
  return found == kPaperStates.end() ? PaperState::kUnknown : found->state;
}
// Whether nothing more becomes of the job.
constexpr bool isFinal(PaperState state) {
  return state != PaperState::kWaiting && state != PaperState::kPrinting && state != PaperState::kStopped;
}

// What has become of a job since it was taken, from the print client; not answered, and as often as it changes. An
// application server that does not know the request ignores it. A client that refuses a job says why in the same way,
// in front of its answer to the job's end: kAborted, or kCanceled where the person did not want it any more.
struct PaperNews {
  static constexpr SessionRequest kNumber = SessionRequest::kPaperNews;

  std::wstring printer;   // the client's own name of it
  std::wstring job;       // the name under which it came (JobStart)
  std::wstring document;  // empty when it is not known
  PaperState state = PaperState::kUnknown;
  std::wstring cause, remedy;  // a sentence each; empty when there is nothing to say

  static void layout(auto& self, auto& wire) {
    wire(self.printer, self.job, self.document, self.state, self.cause, self.remedy);
  }
};

// An administrator wants a job no more that the print client's printer has; answered at once. What becomes of it is
// told as news; where the printer cannot be told, that is the cause of news that are not final.
struct CancelAtPrinter {
  static constexpr SessionRequest kNumber = SessionRequest::kCancelAtPrinter;

  std::wstring printer;  // the client's own name of it
  std::wstring job;      // the name under which it came (JobStart)
  std::wstring by;       // who wants it

  static void layout(auto& self, auto& wire) { wire(self.printer, self.job, self.by); }

  struct Answer {
    bool isBegun = false;
    std::wstring why;  // not; a sentence without its end

    static void layout(auto& self, auto& wire) { wire(self.isBegun, self.why); }
  };
};

}  // namespace protocol
