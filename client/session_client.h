#pragma once

#include "client/job_output.h"
#include "corvane/components/component.h"
#include "protocol/session.h"

#include <memory>
#include <string>

namespace printclient {

// The print client's half of its registration; see protocol/session.h. Hears from the application server
// why jobs of this print client have failed and which of its printers are not available, and tells the user. On the
// connection's thread.
class SessionClient : public CS_Component {
 public:
  using Context = JobOutput;
  explicit SessionClient(std::shared_ptr<JobOutput> output) : m_output(std::move(output)) {}

  bool processRequest(CS_InRequest& request) override;

 private:
  void report(const protocol::JobFailed& job);
  void cancel(CS_InRequest& request);
  void report(const protocol::PrinterRefused& printer);
  // Which server says so, where there are several.
  std::string label();

  std::shared_ptr<JobOutput> m_output;
};

}  // namespace printclient
