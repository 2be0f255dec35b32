#include "client/session_client.h"

#include "corvane/in_request.h"
#include "programs/one_line.h"
#include "programs/session_registration.h"

namespace printclient {

namespace {

std::string readLine(CS_InRequest& request) {
  return programs::oneLine(request.readUTF());
}

// Cause and remedy, the next two texts, as two sentences.
std::string readWhy(CS_InRequest& request) {
  std::string cause = readLine(request);
  while (!cause.empty() && cause.back() == '.')
    cause.pop_back();
  return cause + ". " + readLine(request);
}

}  // namespace

bool SessionClient::processRequest(CS_InRequest& request) {
  switch (request.number()) {
    case programs::kJobFailed:
      sayJobFailure(request);
      return true;
    case programs::kPrinterRefused:
      sayRefusedPrinter(request);
      return true;
    default:
      return CS_Component::processRequest(request);
  }
}

void SessionClient::sayJobFailure(CS_InRequest& request) {
  const std::string printer = readLine(request);
  const std::string document = readLine(request);
  m_output->reporter().line("the server says why " + (document.empty() ? "a job" : "\"" + document + "\"") + " for \"" +
                            printer + "\" was not printed: " + readWhy(request));
}

void SessionClient::sayRefusedPrinter(CS_InRequest& request) {
  const std::string printer = readLine(request);
  m_output->reporter().line("\"" + printer + "\" is no printer on the server: " + readWhy(request));
}

}  // namespace printclient
