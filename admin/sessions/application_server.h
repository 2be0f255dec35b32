#pragma once

#include "admin/sessions/session_printers.h"
#include "corvane/components/component.h"
#include "corvane/components/connection.h"
#include "protocol/administration.h"
#include "protocol/job_record.h"

#include <string>
#include <vector>

namespace admin {

// A connection for queries to the application server of this machine. Belongs to one thread. Every operation throws a
// Failure with kServerAway when the server cannot be queried; it can be retried with a new object.
class ApplicationServer {
 public:
  // Connects to that port of this machine; 0 means the one in the registry.
  explicit ApplicationServer(int port = 0);
  ~ApplicationServer();
  ApplicationServer(const ApplicationServer&) = delete;
  ApplicationServer& operator=(const ApplicationServer&) = delete;

  protocol::ServerStatus status();
  // Makes an invitation to the session and returns the line; throws a Failure with the server's words where it makes
  // none.
  std::wstring invite(const protocol::Invite& invitation);
  // The jobs that it knows, the latest first, and as many as one answer has.
  protocol::Jobs::Answer jobs(const protocol::Jobs& wanted);
  protocol::CancelJob::Answer cancelJob(const protocol::CancelJob& wanted);
  // The latest lines of its log that report a failure, oldest first.
  std::vector<std::wstring> records(int most);
  // The notices after that number; waits that long for the first one. -1 requests the latest number only. The server
  // has patienceMilliseconds in addition for its answer.
  protocol::Notices::Answer notices(int after, unsigned waitMilliseconds,
                                    unsigned patienceMilliseconds = kReplyMilliseconds);
  // Reports to the server, for its log and the session's print client, that a printer is not available on this machine.
  void tellRefusal(int session, const RefusedPrinter& printer);

  static constexpr unsigned kReplyMilliseconds = 15000;

 private:
  CS_RCPtr<CS_Connection> m_connection;
  CS_RCPtr<CS_Component> m_component;
  int m_port;
};

// Identifies a job whose end is awaited. The spooler of Windows numbers the jobs of all programs; that of Wine numbers
// the jobs of each process from 1, so there the process is needed as well.
struct AwaitedJob {
  unsigned long number = 0;
  std::wstring printer;
  unsigned long process = 0;  // 0: any

  bool isOf(const protocol::Notice& notice) const;
  bool isOf(const protocol::JobRecord& record) const;
};

// How a job ended, from its notice.
struct JobOutcome {
  bool isPrinted = false;
  std::wstring result;  // "delivered", "shown" or "failed"; "held" where the server is asked for that
  std::wstring session, bytes, cause, remedy;

  static JobOutcome of(const protocol::Notice& notice);
};

}  // namespace admin
