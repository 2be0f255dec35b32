#pragma once

#include "corvane/component.h"
#include "server/application.h"

#include <memory>

namespace aps {

// The application server's half of the port monitor's component: answers its requests. A request that is refused has a
// line in the log with the cause and what to do about it.
class PortMonitorClient : public CS_Component {
 public:
  using Context = Application;
  explicit PortMonitorClient(std::shared_ptr<Application> application) : m_application(std::move(application)) {}

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

 private:
  void attachPrintJobToSession(CS_InRequest& request);
  void getPrinterInfo(CS_InRequest& request);
  void getPrinterList(CS_InRequest& request);
  void launchApplication(CS_InRequest& request);
  // Continues the job's bridge in the session's print client. An empty answer is success, otherwise the cause.
  std::string attach(const std::wstring& printerName, int processId, int router, const CS_ClassVersionMap& monitor,
                     CS_ClassVersionMap& client);

  std::shared_ptr<Application> m_application;
};

}  // namespace aps
