#include "corvane/components/component_server.h"
#include "corvane/records/exception.h"
#include "corvane/records/messages.h"
#include "corvane/records/operation.h"
#include "protocol/exchange.h"
#include "protocol/port_monitor.h"
#include "session/port_monitor_server.h"

#include <array>

namespace {

// A text that the server did not send stays as it was.
void fill(ClientPrinter& printer, const protocol::Printer& found) {
  const std::array<UTL_String*, protocol::Printer::kTexts> texts = {
      &printer.printerName, &printer.text2, &printer.text3, &printer.driverName,
      &printer.text5,       &printer.text6, &printer.text7, &printer.text8};
  for (std::size_t i = 0; i < texts.size(); ++i) {
    if (found.texts[i]) *texts[i] = found.texts[i]->c_str();
  }
  printer.flag = found.isDefault;
  printer.printerValue = static_cast<std::int32_t>(found.format);
  printer.secondValue = found.resolution;
}

}  // namespace

bool PortMonitorServer::AttachPrintJobToSession(const wchar_t* printerName, CS_Component* bridge) {
  CS_TraceEntry trace(L"PortMonitorServer::AttachPrintJobToSession (printerName = %s)", printerName);
  if (printerName == nullptr || *printerName == L'\0') return false;
  Operation operation(L"Stack Trace: MgPrintMon - PortMonitorServer::AttachPrintJobToSession()");
  bool result = false;
  operation.run([&] {
    if (bridge == nullptr) throw CS_Exception(corvane::kBadArgument, nullptr);
    protocol::AttachJob job{
        printerName, static_cast<int>(GetCurrentProcessId()), static_cast<int>(bridge->getIdentifier()), {}};
    CS_ComponentServer::getServer()->copyRegisteredClassVersionMap(job.versions);
    const auto theirs = protocol::ask(CS_RCPtr<CS_Component>(this), job, kReplyTimeout).versions;
    result = theirs.has_value();

    if (!theirs) {
      operation.note(corvane::kLevelFailure, L"Failed to attach print job to session for %s", printerName);
    } else if (!bridge->setVersionsOfClassesInPeerProcess(*theirs, CS_Component::kSetVersionsOnOwnPeer)) {
      operation.note(corvane::kLevelFailure, L"Failed to set peer process versions.");
    }
  });
  return result;
}

bool PortMonitorServer::GetPrinterInfo(const wchar_t* printerName, ClientPrinter& printer) {
  CS_TraceEntry trace(L"PortMonitorServer::GetPrinterInfo (printerName = %s)", printerName);
  Operation operation(L"Stack Trace: MgPrintMon - PortMonitorServer::GetPrinterInfo()");
  bool result = false;
  operation.run([&] {
    if (printerName == nullptr) throw CS_Exception(corvane::kBadArgument, nullptr);
    const auto found =
        protocol::ask(CS_RCPtr<CS_Component>(this), protocol::PrinterInfo{printerName}, kReplyTimeout).printer;
    if (found) fill(printer, *found);
    result = found.has_value();
    if (!found) operation.note(corvane::kLevelException, L"Failed to get printer info");
  });
  return result;
}

bool PortMonitorServer::GetPrinterList(unsigned int sessionId, TObjectMap<UTL_String, void*>* printers) {
  CS_TraceEntry trace(L"PortMonitorServer::GetPrinterList (sessionId = %d)", sessionId);
  Operation operation(L"Stack Trace: MgPrintMon - PortMonitorServer::GetPrinterList()");
  bool result = true;
  operation.run([&] {
    if (sessionId == 0 || printers == nullptr) throw CS_Exception(corvane::kBadArgument, nullptr);
    protocol::PrinterList::Answer answer;
    const auto keepNames = [&] {
      for (const std::wstring& name : answer.names) {
        if (!name.empty() && !printers->insert(UTL_String(name.c_str()), kPresent)) {
          throw CS_Exception(corvane::kAllocationFailed, nullptr);
        }
      }
    };
    try {
      protocol::ask(CS_RCPtr<CS_Component>(this), protocol::PrinterList{static_cast<int>(sessionId)}, kReplyTimeout,
                    answer);
    } catch (...) {
      keepNames();  // those in front of the failure
      throw;
    }
    keepNames();
    result = answer.isGiven;
  });
  return result;
}

bool PortMonitorServer::LaunchApplication(const wchar_t* program, const wchar_t* arguments, const wchar_t* extra) {
  CS_TraceEntry trace(L"PortMonitorServer::LaunchApplication (program = %s)", program);
  Operation operation(L"Stack Trace: MgPrintMon - PortMonitorServer::LaunchApplication()");
  bool result = true;
  operation.run([&] {
    if (program == nullptr || arguments == nullptr) throw CS_Exception(corvane::kBadArgument, nullptr);
    protocol::LaunchProgram launch{program, arguments, std::nullopt};
    if (extra != nullptr) launch.printer = extra;
    result = protocol::ask(CS_RCPtr<CS_Component>(this), launch, kReplyTimeout).isLaunched;
  });
  return result;
}
