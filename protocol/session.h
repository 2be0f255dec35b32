#pragma once

#include "corvane/base/rc_ptr.h"
#include "protocol/printer.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

class CS_Component;
class CS_Connection;

// The conversation of a session's print client (kSessionClientClass) with the application server (kSessionHostClass),
// directly on the print client's connection.
namespace protocol {

enum class SessionRequest {
  kRegister = 20,         // from the print client
  kJobFailed = 21,        // from the application server
  kPrinterRefused = 22,   // from the application server
  kPaperNews = 23,        // from the print client
  kCancelAtPrinter = 24,  // from the application server
};

// Brings a session's printers along; they stay for as long as the connection lasts, or until the same client brings
// others. A name has at most kLongestName characters (of UTF-16), each other text 1,024, and all texts together 4,096
// and 192 more for each printer that the server allows a session (16,384 with its usual 64); past that the registration
// is refused.
struct Registration {
  static constexpr std::size_t kLongestName = 200;
  static constexpr SessionRequest kNumber = SessionRequest::kRegister;
  // More than any server allows, so that its own refusal is what a person reads.
  static constexpr Limit kPrinters{4096, corvane::kLimitExceeded, L"%d printers of one session"};

  int session = 0;  // 1 or more
  std::vector<Printer> printers;
  CS_ClassVersionMap versions;  // the classes of the print client

  static void layout(auto& self, auto& wire) {
    wire(self.session);
    wire.counted(self.printers, kPrinters);
    wire(self.versions);
  }

  struct Answer {
    bool isAccepted = true;
    std::wstring refusal;                  // for a person; only when refused
    std::vector<std::wstring> localNames;  // on the server, in the order of the printers; only when accepted

    // The reader gives localNames the length of its own list of printers before.
    static void layout(auto& self, auto& wire) {
      wire(self.isAccepted);
      if (!self.isAccepted) return wire(self.refusal);
      for (auto& name : self.localNames)
        wire(name);
    }
  };
};

// Why a job for the print client has failed; not answered, and as often as that happens.
struct JobFailed {
  static constexpr SessionRequest kNumber = SessionRequest::kJobFailed;

  std::wstring printer;   // the client's own name of it
  std::wstring document;  // empty when it is not known
  std::wstring cause, remedy;

  static void layout(auto& self, auto& wire) { wire(self.printer, self.document, self.cause, self.remedy); }
};

// A printer of the print client cannot be had on the server; not answered.
struct PrinterRefused {
  static constexpr SessionRequest kNumber = SessionRequest::kPrinterRefused;

  std::wstring printer;  // the client's own name of it
  std::wstring cause, remedy;

  static void layout(auto& self, auto& wire) { wire(self.printer, self.cause, self.remedy); }
};

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

// The print client's half. Registers the class of its component, for a program that needs nothing of it.
void registerSessionClientClass();

// The print client's component on its connection; throws CS_Exception when there is none.
CS_RCPtr<CS_Component> makeSessionClient(const CS_RCPtr<CS_Connection>& connection);

// Registers the session's printers with the server of that connection; the server has them for as long as it lasts, or
// until others are registered. Waits 30 s for the answer; throws CS_Exception when the server cannot be asked.
Registration::Answer registerPrinters(const CS_RCPtr<CS_Component>& sessionClient, int session,
                                      const std::vector<Printer>& printers);
// The same for a client that registers once.
Registration::Answer registerPrinters(const CS_RCPtr<CS_Connection>& connection, int session,
                                      const std::vector<Printer>& printers);

}  // namespace protocol
