#pragma once

#include "corvane/exception.h"
#include "corvane/in_request.h"
#include "programs/failure.h"
#include "server/log.h"

#include <string>

namespace aps {

// Serves a request and passes on what is thrown, after a line of the log: the peer may not wait for an answer, and then
// nobody else would learn that the request was lost. Such lines are counted together, whoever sent the request.
template <class Serve>
bool logThrown(Log& log, const std::string& who, const CS_InRequest& request, Serve&& serve) {
  try {
    return serve();
  } catch (const CS_Exception& failure) {
    log.refusal("requests",
                who + " " + std::to_string(request.number()) + " was not served: " + programs::describe(failure));
    throw;
  } catch (...) {
    log.refusal("requests", who + " " + std::to_string(request.number()) + " was not served: out of memory");
    throw;
  }
}

}  // namespace aps
