#pragma once

#include "client/job_output.h"
#include "corvane/component.h"

#include <memory>

namespace printclient {

// The print client's half of its registration; see programs/session_registration.h. Hears from the application server
// why jobs of this print client have failed and which of its printers cannot be had, and says it to who prints. On the
// connection's thread.
class SessionClient : public CS_Component {
 public:
  using Context = JobOutput;
  explicit SessionClient(std::shared_ptr<JobOutput> output) : m_output(std::move(output)) {}

  bool processRequest(CS_InRequest& request) override;

 private:
  void sayJobFailure(CS_InRequest& request);
  void sayRefusedPrinter(CS_InRequest& request);

  std::shared_ptr<JobOutput> m_output;
};

}  // namespace printclient
