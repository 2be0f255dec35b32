#include "server/port_monitor_client.h"

#include "corvane/bridge_router.h"
#include "corvane/in_request.h"
#include "programs/one_line.h"

namespace aps {
namespace {

std::string quoted(const std::wstring& text) {
  return "\"" + programs::oneLine(text) + "\"";
}

std::string unknownPrinter() {
  return "no session has a printer of that name; start the session's print client with it, or correct the name of the "
         "local printer";
}

}  // namespace

bool PortMonitorClient::processRequest(CS_InRequest& request) {
  switch (request.number()) {
    case kAttachPrintJobToSession:
      attachPrintJobToSession(request);
      return true;
    case kGetPrinterInfo:
      getPrinterInfo(request);
      return true;
    case kGetPrinterList:
      getPrinterList(request);
      return true;
    case kLaunchApplication:
      launchApplication(request);
      return true;
    default:
      return CS_Component::processRequest(request);
  }
}

void PortMonitorClient::attachPrintJobToSession(CS_InRequest& request) {
  const std::wstring printer = request.readUTF();
  const int processId = request.readInt();
  const int router = request.readInt();
  CS_ClassVersionMap monitorVersions;
  monitorVersions << request.getChannel();

  CS_ClassVersionMap clientVersions;
  const std::string cause = attach(printer, processId, router, monitorVersions, clientVersions);
  if (!cause.empty()) {
    m_application->log->line("job refused: printer " + quoted(printer) + ", process " + std::to_string(processId) +
                             ": " + cause);
  }
  request.reply().writeBoolean(cause.empty());
  if (cause.empty()) {
    CS_Channel channel = request.getChannel().withWriter(request.reply());
    clientVersions >> channel;
  }
  request.sendReply();
}

std::string PortMonitorClient::attach(const std::wstring& printerName, int processId, int router,
                                      const CS_ClassVersionMap& monitor, CS_ClassVersionMap& client) {
  const auto found = m_application->sessions.find(printerName);
  if (!found) return unknownPrinter();
  if (!found->client) {
    return "session " + std::to_string(found->session) + " has no print client; start one and print again";
  }
  const CS_RCPtr<CS_Component> component = getRootOwner()->getChild(static_cast<std::uint32_t>(router));
  const CS_RCPtr<CS_BridgeRouter> bridge(dynamic_cast<CS_BridgeRouter*>(component.get()));
  if (!bridge) return "the request names no bridge of its connection; the port monitor is not of this version";

  const std::string job = "printer " + quoted(printerName) + ", session " + std::to_string(found->session) +
                          ", process " + std::to_string(processId);
  bridge->onEnd([log = m_application->log, job](std::uint64_t bytes, const std::wstring& reason) {
    log->line("job ended: " + job + ": " + std::to_string(bytes) + " bytes passed on; " +
              (reason.empty() ? "closed in order" : programs::oneLine(reason)));
  });
  // What the client may create towards the monitor on this bridge.
  bridge->setVersionsOfClassesInPeerProcess(monitor, CS_Component::kSetVersionsOnOwnPeer);
  m_application->log->line("job attached: " + job);
  if (!bridge->routeTo(found->client)) return "the session's print client has just gone; print again when it is back";
  client = found->versions;
  return "";
}

void PortMonitorClient::getPrinterInfo(CS_InRequest& request) {
  const std::wstring name = request.readUTF();
  const auto found = m_application->sessions.find(name);
  if (!found) m_application->log->line("printer " + quoted(name) + " was asked for: " + unknownPrinter());
  auto& reply = request.reply();
  reply.writeBoolean(found.has_value());
  if (found) {
    for (const auto& text : found->printer.texts) {
      reply.writeBoolean(text.has_value());
      if (text) reply.writeText(text->c_str());
    }
    reply.writeBoolean(found->printer.flag);
    reply.writeInt(found->printer.value);
    reply.writeInt(found->printer.secondValue);
  }
  request.sendReply();
}

void PortMonitorClient::getPrinterList(CS_InRequest& request) {
  const int session = request.readInt();
  request.reply().writeBoolean(true);
  for (const std::wstring& name : m_application->sessions.localNames(session)) {
    request.reply().writeBoolean(true);
    request.reply().writeText(name.c_str());
  }
  request.reply().writeBoolean(false);
  request.sendReply();
}

void PortMonitorClient::launchApplication(CS_InRequest& request) {
  Launch launch;
  launch.program = request.readUTF();
  launch.arguments = request.readUTF();
  if (request.readBoolean()) launch.printer = request.readUTF();
  bool launched = false;
  if (launch.printer.empty()) {
    m_application->launcher.refuse(launch,
                                   "the request names no printer, and so no session; the port monitor is not "
                                   "of this version");
  } else if (const auto found = m_application->sessions.find(launch.printer); !found) {
    m_application->launcher.refuse(launch, unknownPrinter());
  } else {
    launch.session = found->session;
    launched = m_application->launcher.launch(launch);
  }
  request.reply().writeBoolean(launched);
  request.sendReply();
}

}  // namespace aps
