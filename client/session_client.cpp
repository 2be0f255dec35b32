#include "client/session_client.h"

#include "corvane/in_request.h"
#include "programs/one_line.h"
#include "programs/session_registration.h"

namespace printclient {

bool SessionClient::processRequest(CS_InRequest& request) {
  if (request.number() != programs::kJobFailed) return CS_Component::processRequest(request);
  sayJobFailure(request);
  return true;
}

void SessionClient::sayJobFailure(CS_InRequest& request) {
  const std::string printer = programs::oneLine(request.readUTF());
  const std::string document = programs::oneLine(request.readUTF());
  std::string cause = programs::oneLine(request.readUTF());
  const std::string remedy = programs::oneLine(request.readUTF());
  while (!cause.empty() && cause.back() == '.')
    cause.pop_back();
  m_output->reporter().line("the server says why " + (document.empty() ? "a job" : "\"" + document + "\"") + " for \"" +
                            printer + "\" was not printed: " + cause + ". " + remedy);
}

}  // namespace printclient
