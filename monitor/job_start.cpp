#include "monitor/job_start.h"

#include "corvane/components/bridge.h"
#include "corvane/components/bridge_router.h"
#include "corvane/records/operation.h"
#include "jobs/job_settings.h"
#include "protocol/names.h"
#include "session/make_component.h"
#include "session/port_monitor_server.h"

namespace {

CS_RCPtr<CS_Component> makeBridge(Operation& operation, CS_Connection& connection) {
  return mg::makeComponent(operation, connection,
                           {CS_Bridge::m_className, CS_BridgeRouter::getClassName(), corvane::kLevelFailure,
                            L"Failed to get the root owner's class factory", L"Failed to create bridge"});
}

CS_RCPtr<PortMonitorServer> makePortMonitor(Operation& operation, CS_Connection& connection) {
  auto server = mg::makeOwnComponent<PortMonitorServer>(operation, connection, mg::kPortMonitorServerKind);
  mg::startChannel(*server);
  return server;
}

CS_RCPtr<PrintServer> makePrintServer(Operation& operation, CS_Component& bridge) {
  auto server = mg::makeOwnComponent<PrintServer>(
      operation, bridge,
      {protocol::kPrintServerClass, protocol::kPrintClientClass, corvane::kLevelFailure,
       L"Failed to get the bridge's class factory", L"Failed to create the print server"});
  mg::startChannel(*server);
  return server;
}

}  // namespace

namespace mg {

CS_RCPtr<PrintServer> startJob(Operation& operation, CS_Connection& connection, ClientPrintJob& job,
                               const wchar_t* printerName, DWORD jobId) {
  const CS_RCPtr<CS_Component> bridge = makeBridge(operation, connection);
  const CS_RCPtr<PortMonitorServer> portMonitor = makePortMonitor(operation, connection);
  ClientPrinter printer;
  if (!portMonitor->GetPrinterInfo(printerName, printer)) {
    job.report.begin(connection.isConnected() ? JobFault::kPrinter : JobFault::kConnection);
    operation.fail(corvane::kLevelFailure,
                   L"Failed to get the printer's information: %s, print job #%d has failed to print.", printerName,
                   jobId);
  }
  job.report.add(L"the client printer is \"%s\", format %d", printer.printerName.wide(), printer.printerValue);
  ConfigurePrintJobSettings(&job, printer);
  if (!portMonitor->AttachPrintJobToSession(printerName, bridge.get())) {
    job.report.fail(connection.isConnected() ? JobFault::kAttach : JobFault::kConnection,
                    L"Failed to attach print job to session for %s", printerName);
    // The attach has recorded why.
    throw CS_Exception(CS_ProgramMonitor::getDefaultMonitor());
  }
  job.report.begin(JobFault::kStream, L"attached to the session, delivery mode %d",
                   job.settings[protocol::kDeliverySetting]);
  CS_RCPtr<PrintServer> stream = makePrintServer(operation, *bridge);
  stream->StartJob(&job);
  job.report.add(L"announced to the print client");
  return stream;
}

}  // namespace mg
