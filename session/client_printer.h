#pragma once

#include "util/utl_string.h"

#include <cstdint>

// One printer of a session's client as the application server describes it. A plain record: made by the caller that
// asks for the description and filled by PortMonitorServer::GetPrinterInfo, which replaces a text only when the server
// sent it. Belongs to one thread at a time.
class ClientPrinter {
 public:
  ClientPrinter() = default;
  ClientPrinter(const ClientPrinter&) = delete;
  ClientPrinter& operator=(const ClientPrinter&) = delete;
  virtual ~ClientPrinter() { delete[] extraData; }

  UTL_String printerName;  // as the client knows the printer
  UTL_String text2;        // the texts with a number are carried, not interpreted
  UTL_String text3;
  UTL_String driverName;
  UTL_String text5;
  UTL_String text6;
  UTL_String text7;
  UTL_String text8;
  bool flag = false;
  std::int32_t printerValue = 0;  // data format code: 1 or 2 is sent as it comes, 3 is collected and converted
  std::int32_t secondValue = 0;
  unsigned char* extraData = nullptr;  // owned, made with array new
};
