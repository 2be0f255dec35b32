#include "client/session_client.h"

#include "corvane/components/in_request.h"
#include "programs/text.h"
#include "protocol/exchange.h"
#include "protocol/registration.h"

namespace printclient {

namespace {

using programs::oneLine;

// Two sentences.
std::string whyText(const std::wstring& cause, const std::wstring& remedy) {
  std::string text = oneLine(cause);
  while (!text.empty() && text.back() == '.')
    text.pop_back();
  return text + ". " + oneLine(remedy);
}

}  // namespace

bool SessionClient::processRequest(CS_InRequest& request) {
  switch (static_cast<protocol::SessionRequest>(request.number())) {
    case protocol::SessionRequest::kJobFailed:
      say(protocol::read<protocol::JobFailed>(request));
      return true;
    case protocol::SessionRequest::kPrinterRefused:
      say(protocol::read<protocol::PrinterRefused>(request));
      return true;
    default:
      return CS_Component::processRequest(request);
  }
}

void SessionClient::say(const protocol::JobFailed& job) {
  const std::string document = oneLine(job.document);
  m_output->reporter().line("the server says why " + (document.empty() ? "a job" : "\"" + document + "\"") + " for \"" +
                            oneLine(job.printer) + "\" was not printed: " + whyText(job.cause, job.remedy));
}

void SessionClient::say(const protocol::PrinterRefused& printer) {
  m_output->reporter().line("\"" + oneLine(printer.printer) +
                            "\" is no printer on the server: " + whyText(printer.cause, printer.remedy));
}

}  // namespace printclient
