#pragma once

#include "corvane/components/component.h"
#include "protocol/print_job.h"
#include "server/hold/hold_store.h"

#include <memory>

namespace aps {

class JobHold;

// The print client's part of a job that this server takes in the place of a client that is away: its requests are those
// of a print client's component, and what they bring goes to the disk. On its bridge's thread. When it goes before the
// job's end, nothing of the job stays.
class HeldJobTaker : public CS_Component {
 public:
  struct Context {
    std::unique_ptr<JobHold>& hold;  // null where no jobs are held
  };
  explicit HeldJobTaker(std::shared_ptr<Context> context) : m_context(std::move(context)) {}

  // False where nobody expects a job.
  bool initialize() override;
  bool processRequest(CS_InRequest& request) override;

 private:
  void takeStart(CS_InRequest& request);
  void takeData(CS_InRequest& request);
  void takeEnd(CS_InRequest& request);
  protocol::PrintResult complete();
  // The job cannot be held: its record says why, and the port monitor, whose bridge ends with it.
  void refuse(const HoldRefusal& refusal);

  const std::shared_ptr<Context> m_context;
  std::unique_ptr<HoldStore::Coming> m_job;
  bool m_isStarted = false;
  bool m_isCollected = false;
  bool m_isBroken = false;
};

}  // namespace aps
