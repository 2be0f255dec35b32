#pragma once

#include "client/job.h"
#include "client/job_output.h"
#include "corvane/components/component.h"

#include <memory>
#include <optional>

namespace printclient {

// One job's component on its bridge: takes the port monitor's requests. They come one after another, on the bridge's
// thread, and pieces of the document on that of the connection as well. When the component goes before the job has
// ended, the job is dropped.
class PrintClient : public CS_Component {
 public:
  using Context = JobOutput;
  explicit PrintClient(std::shared_ptr<JobOutput> output) : m_output(std::move(output)) {}

  bool processRequest(CS_InRequest& request) override;
  bool servesAtOnce(int request) const override;
  void letGoOfPieces() noexcept override;

 private:
  // The job that follows was held by the server.
  void askWhether(CS_InRequest& request);
  void startJob(CS_InRequest& request);
  void writeJob(CS_InRequest& request);
  void endJob(CS_InRequest& request);
  // When the person cancels the job while its data come, its bridge ends, and the application's side knows why.
  void endBridgeOnCancel();

  std::shared_ptr<JobOutput> m_output;
  std::unique_ptr<TakenJobs::Delivery> m_delivery;  // of the job that follows, where the server has held it
  std::unique_ptr<Job> m_job;
  std::optional<CancelRequest::Handler> m_onCancel;  // of the job while its data come
};

}  // namespace printclient
