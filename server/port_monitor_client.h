#pragma once

#include "corvane/components/bridge_router.h"
#include "corvane/components/component.h"
#include "server/application.h"

#include <atomic>
#include <memory>
#include <optional>

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
  using Context = Application;
  explicit PortMonitorClient(std::shared_ptr<Application> application) : m_application(std::move(application)) {}

  bool release() override;
  bool processRequest(CS_InRequest& request) override;

 private:
  bool serve(CS_InRequest& request);
  void attachPrintJobToSession(CS_InRequest& request);
  void getPrinterInfo(CS_InRequest& request);
  void getPrinterList(CS_InRequest& request);
  void launchApplication(CS_InRequest& request);
  // Continues the job's bridge in the session's print client. An empty answer is success, otherwise the cause.
  std::string attach(const protocol::AttachJob& request, std::optional<CS_ClassVersionMap>& client);

  // Writes the line of a job's end; job says which one it was, printer is its name on this server.
  static void jobEnded(Application& application, const std::string& job, const std::wstring& printer,
                       const CS_BridgeRouter::Ending& ending);
  // The printer, once its client is there or not expected any more; a job that waits for that has a line in the log.
  std::optional<SessionTable::Found> awaitPrinter(const std::wstring& printerName);
  // True when nobody waits for an answer any more.
  bool hasGivenUp();
  // The process at the other end, as it introduced itself.
  std::string peerProcess();

  std::shared_ptr<Application> m_application;
  std::atomic<bool> m_released{false};
};

}  // namespace aps
