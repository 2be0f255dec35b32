#pragma once

#include "protocol/job_record.h"
#include "protocol/session.h"
#include "server/client_news.h"
#include "server/jobs/job_book.h"
#include "server/session_table.h"

#include <chrono>

namespace aps {

// Cancels a job for an administrator, wherever it is: one that is on its way is cut here (JobBook::cancel), and of one
// that its print client has the client is asked to tell the printer. Then the answer waits for what has become of it,
// as the client tells that, for at most kNewsWait. Not on the thread of a print client's connection.
class PrinterCancel {
 public:
  static constexpr unsigned kAnswerMilliseconds = 3000;  // of the print client
  static constexpr std::chrono::milliseconds kNewsWait{5000};

  PrinterCancel(JobBook& book, SessionTable& sessions, ClientNews& clients)
      : m_book(book), m_sessions(sessions), m_clients(clients) {}

  protocol::CancelJob::Answer cancel(const protocol::CancelJob& wanted);

 private:
  // Empty when the client has begun, otherwise why not.
  std::wstring ask(const JobBook::AtPrinter& job, const std::wstring& by);

  JobBook& m_book;
  SessionTable& m_sessions;
  ClientNews& m_clients;
};

// What to say of a job that was to be canceled at its printer, by its record.
protocol::CancelJob::Answer outcomeAtPrinter(const std::wstring& what, const protocol::JobRecord& job);

}  // namespace aps
