#pragma once

#include "corvane/bridge_router.h"
#include "corvane/component.h"
#include "server/application.h"

#include <atomic>
#include <memory>
#include <optional>

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

  // text printer name, int process id, int identifier of the bridge's router, class version map
  // -> boolean attached, and only when attached the class version map of the session's print client
  static constexpr int kAttachPrintJobToSession = 4;
  // text printer name -> boolean found, and only when found: eight times a boolean and, when it is true, a text;
  // boolean flag; int printer value; int second value
  static constexpr int kGetPrinterInfo = 5;
  // int session -> boolean success, then for each printer true and its name on this server, then false
  static constexpr int kGetPrinterList = 6;
  // text program, text arguments, boolean and, when it is true, text printer name -> boolean launched
  static constexpr int kLaunchApplication = 7;
  // The request that ends a job, from the port monitor to the print client: a job whose end the print client has not
  // answered was cut.
  static constexpr int kEndJob = 3;

 private:
  bool serve(CS_InRequest& request);
  void attachPrintJobToSession(CS_InRequest& request);
  void getPrinterInfo(CS_InRequest& request);
  void getPrinterList(CS_InRequest& request);
  void launchApplication(CS_InRequest& request);
  // Continues the job's bridge in the session's print client. An empty answer is success, otherwise the cause.
  std::string attach(const std::wstring& printerName, int processId, int router, const CS_ClassVersionMap& monitor,
                     CS_ClassVersionMap& client);

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
