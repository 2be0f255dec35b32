#include "monitor/job_start.h"

#include "corvane/bridge.h"
#include "corvane/bridge_router.h"
#include "corvane/class_factory.h"
#include "corvane/operation.h"
#include "jobs/job_settings.h"
#include "session/port_monitor_server.h"
#include "session/start_channel.h"

namespace {

CS_RCPtr<CS_Component> makeBridge(Operation& operation, CS_Connection& connection) {
  const CS_RCPtr<CS_ClassFactory> factory =
      connection.getClassFactory(CS_Bridge::m_className, CS_BridgeRouter::getClassName(), true);
  if (!factory) operation.fail(corvane::kLevelFailure, L"Failed to get the root owner's class factory");
  const CS_RCPtr<CS_Component> bridge(factory->newInstance(0));
  if (!bridge) operation.fail(corvane::kLevelFailure, L"Failed to create bridge");
  return bridge;
}

CS_RCPtr<PortMonitorServer> makePortMonitor(Operation& operation, CS_Connection& connection) {
  const CS_RCPtr<CS_ClassFactory> factory =
      connection.getClassFactory(L"Quillfern::NTR::PortMonitorServer", L"Quillfern::NTR::PortMonitorClient", true);
  if (!factory) operation.fail(corvane::kLevelException, L"Failed to get port monitor class factory.");
  const CS_RCPtr<PortMonitorServer> server(static_cast<PortMonitorServer*>(factory->newInstance(0)));
  if (!server) operation.fail(corvane::kLevelException, L"Failed to create port monitor server instance.");
  mg::startChannel(*server);
  return server;
}

CS_RCPtr<PrintServer> makePrintServer(Operation& operation, CS_Component& bridge) {
  const CS_RCPtr<CS_ClassFactory> factory =
      bridge.getClassFactory(L"Quillfern::NTR::PrintServer", L"Quillfern::NTR::PrintClient", true);
  if (!factory) operation.fail(corvane::kLevelFailure, L"Failed to get the bridge's class factory");
  const CS_RCPtr<PrintServer> server(static_cast<PrintServer*>(factory->newInstance(0)));
  if (!server) operation.fail(corvane::kLevelFailure, L"Failed to create the print server");
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
    operation.fail(corvane::kLevelFailure,
                   L"Failed to get the printer's information: %s, print job #%d has failed to print.", printerName,
                   jobId);
  }
  ConfigurePrintJobSettings(&job, printer);
  if (!portMonitor->AttachPrintJobToSession(printerName, bridge.get())) {
    // The attach has recorded why.
    throw CS_Exception(CS_ProgramMonitor::getDefaultMonitor());
  }
  const CS_RCPtr<PrintServer> stream = makePrintServer(operation, *bridge);
  stream->StartJob(&job);
  return stream;
}

}  // namespace mg
