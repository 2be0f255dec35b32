#pragma once

#include "admin/sessions/session_printers.h"
#include "corvane/components/component.h"
#include "corvane/components/connection.h"
#include "protocol/administration.h"

#include <string>
#include <vector>

namespace admin {

// A connection to the application server of this machine, to ask what it knows. One thread. Every operation throws a
// Failure with kServerAway when the server cannot be asked, and can be tried again on a new object.
class ApplicationServer {
 public:
  // Dials that port of this machine; 0 is the one in the registry.
  explicit ApplicationServer(int port = 0);
  ~ApplicationServer();
  ApplicationServer(const ApplicationServer&) = delete;
  ApplicationServer& operator=(const ApplicationServer&) = delete;

  protocol::ServerStatus status();
  // The latest lines of its log that tell of a failure, oldest first.
  std::vector<std::wstring> records(int most);
  // What was noticed after that number, waiting that long for the first one; -1 asks for the latest number only.
  // The server has the patience on top of that for its answer.
  protocol::Notices::Answer notices(int after, unsigned waitMilliseconds,
                                    unsigned patienceMilliseconds = kReplyMilliseconds);
  // Tells it that a session's printer cannot be had on this machine, for its log and for the session's print client.
  void tellRefusal(int session, const RefusedPrinter& printer);

  static constexpr unsigned kReplyMilliseconds = 15000;

 private:
  CS_RCPtr<CS_Connection> m_connection;
  CS_RCPtr<CS_Component> m_component;
  int m_port;
};

// Which job's end is waited for. The spooler of Windows numbers the jobs of all programs; Wine's numbers those of each
// process from 1, and runs in it, so there the process counts as well.
struct AwaitedJob {
  unsigned long number = 0;
  std::wstring printer;
  unsigned long process = 0;  // 0: whichever

  bool isOf(const protocol::Notice& notice) const;
};

// How a job ended, as its notice says.
struct JobOutcome {
  bool isPrinted = false;
  std::wstring result;  // "delivered", "shown" or "failed"
  std::wstring session, bytes, cause, remedy;

  static JobOutcome of(const protocol::Notice& notice);
};

}  // namespace admin
