#pragma once

#include "corvane/base/rc_ptr.h"
#include "protocol/printer.h"

#include <cstddef>
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
  kPaperNews = 23,        // from the print client; paper_news.h
  kCancelAtPrinter = 24,  // from the application server; paper_news.h
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
