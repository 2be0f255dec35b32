#pragma once

#include "corvane/base/rc_ptr.h"
#include "corvane/components/bridge_router.h"
#include "corvane/components/connection.h"
#include "server/client_news.h"
#include "server/hold/hold_store.h"
#include "server/jobs/job_book.h"
#include "server/log.h"
#include "server/session_table.h"

#include <memory>
#include <optional>
#include <string>

namespace aps {

// One attempt to deliver a held job: plays the port monitor's part towards the print client, over a connection within
// this process whose other end routes the job's bridge as that of any other job. So its record, its way over a long
// line and its cancellation are those of any other job. Used by one thread, which waits for the client.
class HeldDelivery {
 public:
  // The parts of the server that it works with.
  struct Context {
    Log& log;
    SessionTable& sessions;
    ClientNews& clientNews;
    JobBook& book;
    HoldStore& store;
  };
  enum class End {
    kDelivered,
    kAlreadyThere,  // the print client has it from an earlier delivery
    kCanceled,
    kFailed,   // and never tried again
    kAside,    // tried again when the print client or its printers change
    kDamaged,  // its file is not as it was written
    kAway,     // its print client is not there any more
    kBusy,     // to be tried again after a while
  };
  struct Outcome {
    End end = End::kAway;
    std::string cause, remedy;  // sentences without a stop
  };

  HeldDelivery(const Context& context, HeldJob job, protocol::JobRecord known)
      : m_context(context), m_job(std::move(job)), m_known(std::move(known)) {}
  HeldDelivery(const HeldDelivery&) = delete;
  HeldDelivery& operator=(const HeldDelivery&) = delete;

  Outcome run() noexcept;

 private:
  // How the route of the job's bridge has ended; the thread of either connection says so.
  struct RouteEnd;

  Outcome runOnce();
  void awaitRouteEnd();
  // What the route's end makes of it.
  Outcome behindRoute(Outcome outcome) const;
  Outcome deliver(const SessionTable::Found& found);
  Outcome deliverOver(const CS_RCPtr<CS_Connection>& caller, const CS_RCPtr<CS_Connection>& routed,
                      const SessionTable::Found& found);
  // Continues the bridge at the print client; false when that has just gone.
  bool route(CS_Connection& routed, CS_Component& bridge, const SessionTable::Found& found);
  // Nothing when the job may be sent.
  std::optional<Outcome> askWhether(const CS_RCPtr<CS_Component>& sender);
  Outcome send(const CS_RCPtr<CS_Component>& sender);
  // What a refusal means.
  static Outcome outcomeOf(protocol::PrintResult result);

  const Context m_context;
  const HeldJob m_job;
  const protocol::JobRecord m_known;
  const CS_Connection* m_client = nullptr;  // for comparison only
  std::wstring m_device;                    // of the print client; empty for one that knows of none
  CS_RCPtr<CS_BridgeRouter> m_router;       // once there is a route, like the next
  std::shared_ptr<RouteEnd> m_routeEnd;
};

}  // namespace aps
