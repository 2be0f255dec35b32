#include "client/session_client.h"

#include "corvane/base/text.h"
#include "corvane/components/in_request.h"
#include "programs/text.h"
#include "protocol/exchange.h"
#include "protocol/print_job.h"
#include "protocol/session.h"

#include <fmt/format.h>

namespace printclient {

namespace {

using programs::oneLine;

// Two sentences.
std::string whyText(const std::wstring& cause, const std::wstring& remedy) {
  std::string text = oneLine(cause);
  while (!text.empty() && text.back() == '.')
    text.pop_back();
  return fmt::format("{}. {}", text, oneLine(remedy));
}

}  // namespace

bool SessionClient::processRequest(CS_InRequest& request) {
  switch (static_cast<protocol::SessionRequest>(request.number())) {
    case protocol::SessionRequest::kJobFailed:
      report(protocol::read<protocol::JobFailed>(request));
      return true;
    case protocol::SessionRequest::kPrinterRefused:
      report(protocol::read<protocol::PrinterRefused>(request));
      return true;
    case protocol::SessionRequest::kCancelAtPrinter:
      cancel(request);
      return true;
    default:
      return CS_Component::processRequest(request);
  }
}

void SessionClient::cancel(CS_InRequest& request) {
  const auto wanted = protocol::read<protocol::CancelAtPrinter>(request);
  const std::string why = m_output->cancelAtPrinter(m_output->originOf(getConnection()), wanted);
  if (why.empty()) {
    m_output->reporter().line(fmt::format("{}{} cancels a job at {}", label(),
                                          wanted.by.empty() ? "the server" : oneLine(wanted.by),
                                          programs::quoted(wanted.printer)));
  }
  protocol::answer(request, protocol::CancelAtPrinter::Answer{why.empty(), corvane::fromUtf8(why)});
}

void SessionClient::report(const protocol::JobFailed& job) {
  // The sink's own words stand in the job's line already; this is what the port monitor makes of the answer.
  if (job.cause == protocol::textOf(protocol::PrintResult::kNotTaken)) return;
  BoardJob failed;
  failed.server = m_output->originOf(getConnection()).server;
  failed.title = oneLine(job.document);
  failed.printer = oneLine(job.printer);
  failed.cause = oneLine(job.cause);
  failed.remedy = oneLine(job.remedy);
  m_output->board().explain(failed);
  m_output->reporter().line(fmt::format("{}the server says why {} for {} was not printed: {}", label(),
                                        oneLine(job.document).empty() ? "a job" : programs::quoted(job.document),
                                        programs::quoted(job.printer), whyText(job.cause, job.remedy)));
}

void SessionClient::report(const protocol::PrinterRefused& printer) {
  m_output->reporter().line(fmt::format("{}{} is not a printer on the server: {}", label(),
                                        programs::quoted(printer.printer), whyText(printer.cause, printer.remedy)));
}

std::string SessionClient::label() {
  return m_output->originOf(getConnection()).label;
}

}  // namespace printclient
