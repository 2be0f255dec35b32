#include "corvane/exception.h"
#include "corvane/in_request.h"
#include "corvane/message_numbers.h"
#include "corvane/operation.h"
#include "corvane/out_request.h"
#include "session/port_monitor_server.h"

bool PortMonitorServer::GetPrinterInfo(const wchar_t* printerName, ClientPrinter& printer) {
  CS_TraceEntry trace(L"PortMonitorServer::GetPrinterInfo (printerName = %s)", printerName);
  Operation operation(L"Stack Trace: MgPrintMon - PortMonitorServer::GetPrinterInfo()");
  bool result = false;
  operation.run([&] {
    if (printerName == nullptr) throw CS_Exception(corvane::kBadArgument, nullptr);
    CS_OutRequest request(CS_RCPtr<CS_Component>(this), kGetPrinterInfo);
    request.writeUTF(printerName);

    CS_InRequest reply(request);
    request.execute(reply, kReplyTimeout);
    const bool found = reply.readBoolean();
    if (found) {
      for (UTL_String* text : {&printer.printerName, &printer.text2, &printer.text3, &printer.driverName,
                               &printer.text5, &printer.text6, &printer.text7, &printer.text8}) {
        if (reply.readBoolean()) *text = reply.readUTF();
      }
      printer.flag = reply.readBoolean();
      printer.printerValue = reply.readInt();
      printer.secondValue = reply.readInt();
    }
    reply.release();
    request.release();
    result = found;
    if (!found) operation.note(corvane::kLevelException, L"Failed to get printer info");
  });
  return result;
}
