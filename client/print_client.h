#pragma once

#include "client/job.h"
#include "client/job_output.h"
#include "corvane/components/component.h"

#include <memory>

namespace printclient {

// One job's component on its bridge: takes the port monitor's requests. They come one after another, on the bridge's
// thread. When the component goes before the job has ended, the job is dropped.
class PrintClient : public CS_Component {
 public:
  using Context = JobOutput;
  explicit PrintClient(std::shared_ptr<JobOutput> output) : m_output(std::move(output)) {}

  bool processRequest(CS_InRequest& request) override;

 private:
  void startJob(CS_InRequest& request);
  void writeJob(CS_InRequest& request);
  void endJob(CS_InRequest& request);

  std::shared_ptr<JobOutput> m_output;
  std::unique_ptr<Job> m_job;
};

}  // namespace printclient
