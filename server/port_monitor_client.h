#pragma once

#include "corvane/components/bridge_router.h"
#include "corvane/components/component.h"
#include "server/client_news.h"
#include "server/jobs_in_progress.h"
#include "server/launcher.h"
#include "server/log.h"
#include "server/session_table.h"
#include "server/stand_in.h"

#include <atomic>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>

namespace protocol {
struct AttachJob;
}

namespace aps {

// The application server's half of the port monitor's component: answers its requests. A request that is refused has a
// line in the log with the cause and what to do about it. A request about a print client that is expected back waits
// for it on the thread of its own connection, for as long as the session table says; the wait ends at once when this
// component is released, and within a moment when the peer has closed its connection.
class PortMonitorClient : public CS_Component {
 public:
  // The parts of the server that it works with.
  struct Context {
    Log& log;
    SessionTable& sessions;
    ClientNews& clientNews;
    JobsInProgress& jobs;
    ShownJobs& shownJobs;
    Launcher& launcher;
    JobWatch& watch;
    StandIn*& standIn;  // null where jobs are not taken for clients that are away
  };

  explicit PortMonitorClient(std::shared_ptr<Context> context) : m_context(std::move(context)) {}

  bool release() override;
  bool processRequest(CS_InRequest& request) override;
  bool answersTogether(int number) const override;

 private:
  bool serve(CS_InRequest& request);
  void attachPrintJobToSession(CS_InRequest& request);
  void getPrinterInfo(CS_InRequest& request);
  void getPrinterList(CS_InRequest& request);
  void launchApplication(CS_InRequest& request);
  // Continues the job's bridge in the session's print client. An empty answer is success, otherwise the cause.
  std::string attach(const protocol::AttachJob& request, std::optional<CS_ClassVersionMap>& client);

  // A job whose bridge leads on.
  struct Attached {
    std::string words;  // which one it is, for the log
    int number = 0;
    std::wstring printer;          // its name on this server
    bool isHeld = false;           // this server takes it in its client's place,
    std::uint32_t heldBridge = 0;  // where the bridge is that one
  };
  // attach() once the job has its record, which ends when this throws.
  std::string attachBegun(const std::shared_ptr<Attached>& job, JobsInProgress::Mark mark,
                          const protocol::AttachJob& request, const SessionTable::Found& found,
                          const CS_RCPtr<CS_BridgeRouter>& bridge, std::optional<CS_ClassVersionMap>& client);
  // Is told of what goes over the job's bridge, and of its end. Before it leads on.
  void watchBridge(const std::shared_ptr<Attached>& job, CS_BridgeRouter& bridge, JobsInProgress::Mark mark) const;
  // attach() in the place of a client that is away; the other one where it is there.
  std::string attachToHold(const std::shared_ptr<Attached>& job, const SessionTable::Found& found, int process,
                           CS_BridgeRouter& bridge, std::optional<CS_ClassVersionMap>& client);
  std::string attachToClient(const Attached& job, const SessionTable::Found& found, CS_BridgeRouter& bridge);

  // Writes the line of a job's end, and says it to who watches.
  static void jobEnded(const Context& context, const Attached& job, const CS_BridgeRouter::Ending& ending);
  // Of one that was to be held.
  static void heldJobEnded(const Context& context, const Attached& job, const CS_BridgeRouter::Ending& ending,
                           bool isCanceled);
  // The printer, once its client is there or not expected any more; a job that waits for that has a line in the log.
  std::optional<SessionTable::Found> awaitPrinter(const std::wstring& printerName);
  // Whether this server takes a job for that printer in its client's place.
  bool isToBeHeld(const SessionTable::Found& found) const;
  // True when nobody waits for an answer any more.
  bool hasGivenUp();
  // The process at the other end, as it introduced itself.
  std::string peerProcess();

  std::shared_ptr<Context> m_context;
  std::atomic<bool> m_released{false};
};

}  // namespace aps
