#include "server/jobs/printer_cancel.h"

#include "corvane/records/exception.h"
#include "protocol/exchange.h"

#include <fmt/format.h>
#include <fmt/xchar.h>

namespace aps {

using protocol::JobState;

protocol::CancelJob::Answer outcomeAtPrinter(const std::wstring& what, const protocol::JobRecord& job) {
  const std::wstring why = job.cause.empty() ? L"" : fmt::format(L": {} {}", job.cause, job.remedy);
  switch (job.state) {
    case JobState::kCanceled:
      return {true, fmt::format(L"{} is canceled at its printer", what)};
    case JobState::kPrinted:
      return {false, fmt::format(L"{} was printed before its printer could cancel it", what)};
    case JobState::kPrinting:
      return {false, job.cause.empty()
                         ? fmt::format(L"the printer of {} has been told to cancel it, and has not said yet "
                                       L"what became of it",
                                       what)
                         : fmt::format(L"{} is at its printer still{}", what, why)};
    default:
      return {false, fmt::format(L"{} has ended as {}{}", what, protocol::wordOf(job.state), why)};
  }
}

std::wstring PrinterCancel::ask(const JobBook::AtPrinter& job, const std::wstring& by) {
  const auto found = m_sessions.find(job.printer);
  const bool isThere = found && found->session == job.session && found->client;
  const auto host = isThere ? m_clients.hostOf(found->client.get()) : CS_RCPtr<ClientNews::Host>();
  if (!host) {
    return fmt::format(L"the print client of session {} is away: cancel it at the printer, or when the client is back",
                       job.session);
  }
  try {
    const auto answer = protocol::ask(CS_RCPtr<CS_Component>(host.get()),
                                      protocol::CancelAtPrinter{job.clientsPrinter, job.name, by}, kAnswerMilliseconds);
    return answer.isBegun ? L"" : answer.why;
  } catch (const CS_Exception& failure) {
    return fmt::format(
        L"the print client of session {} does not know how to, or does not answer ({}): cancel it at the printer, or "
        L"install this version of the print client there",
        job.session, failure.detail());
  }
}

protocol::CancelJob::Answer PrinterCancel::cancel(const protocol::CancelJob& wanted) {
  const auto job = m_book.findAtPrinter(wanted.job);
  if (!job) return m_book.cancel(wanted);
  m_book.cancelsAtPrinter(wanted.job, wanted.by);  // the news may be faster than the answer
  if (const std::wstring why = ask(*job, wanted.by); !why.empty()) {
    m_book.cancelsAtPrinter(wanted.job, L"");
    return {false, fmt::format(L"{} is at its printer: {}", job->what, why)};
  }
  const auto record = m_book.awaitPaper(wanted.job, job->news, kNewsWait);
  if (!record) return {false, fmt::format(L"{} has ended", job->what)};
  return outcomeAtPrinter(job->what, *record);
}

}  // namespace aps
