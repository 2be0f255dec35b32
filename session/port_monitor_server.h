#pragma once

#include "corvane/components/component_server.h"
#include "corvane/components/connection.h"
#include "util/object_map.h"
#include "util/utl_string.h"

#include <windows.h>

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

// The monitor's component towards the application server; its requests are in protocol/port_monitor.h.
//
// One instance serves the whole process: made by getInstance() when it is first needed, kept in a holder that the port
// monitor lock guards, and let go when its connection ends; the next getInstance() then makes a new one. Jobs make
// further instances on their own connections.
//
// Any thread may call the requests, several at once on one instance. They never throw: what goes wrong is recorded and
// shows in the result.
class PortMonitorServer : public CS_Component {
 public:
  // How long a reply is waited for, in milliseconds.
  static constexpr unsigned kReplyTimeout = 120000;

  // How long a refused connection is waited out before it is tried again, in milliseconds.
  static constexpr DWORD kConnectPause = 5000;

  PortMonitorServer() = default;
  ~PortMonitorServer() override;

  // Creates the port monitor lock at the start of the module and stores it where the lock is looked for. False when
  // there is none afterwards; when the allocation fails, one from an earlier call stays.
  static bool initialize(LPCRITICAL_SECTION& lock = s_lock);

  // The process's instance, made when there is none or its connection has ended. Throws CS_Exception when it cannot be
  // made. While the application server cannot be reached the caller waits, and with it everybody else who calls this.
  static CS_RCPtr<PortMonitorServer> getInstance();

  // A new connection to the application server of this machine. While the server refuses, tries again every
  // kConnectPause milliseconds without end; null, after recording why, when anything else fails.
  static CS_RCPtr<CS_Connection> connectToLocalhost();

  // Deletes the port monitor lock and ends the instance's connection, at the end of the module, when nobody else is
  // left who could call. True when that went well or there was no instance.
  static bool shutdown();

  // The framework lets go of this component. Empties the holder when this is the process's instance, and nothing else:
  // the holder's reference is what keeps the instance alive. Always true.
  bool release() override;

  // Attaches the job whose bridge is given to the session that owns the printer, and tells the bridge which classes the
  // session's print client has. False when the server refuses, for a null or empty name, or after a failure.
  bool AttachPrintJobToSession(const wchar_t* printerName, CS_Component* bridge);

  // Fills in the description of a client printer; false when no session has it or after a failure.
  bool GetPrinterInfo(const wchar_t* printerName, ClientPrinter& printer);

  // Adds the names of a session's client printers to the map; their values are kPresent. False only when the server
  // refuses: after a failure the result is true and the map is as far as it got.
  bool GetPrinterList(unsigned int sessionId, TObjectMap<UTL_String, void*>* printers);

  // Starts a program with its arguments in a session; the third text names the local printer whose session it is and
  // may be null. False only when the server answers that it did not start it.
  bool LaunchApplication(const wchar_t* program, const wchar_t* arguments, const wchar_t* extra);

  // The value of every entry of a list of printers. The map is a set of names; the pointer is never dereferenced.
  static void* const kPresent;

 private:
  // Makes the instance with the port monitor lock held; on failure the holder stays empty and the reason is recorded.
  static void InitComponent();

  static LPCRITICAL_SECTION s_lock;
  static CS_RCPtr<PortMonitorServer> s_instance;  // guarded by *s_lock
};

// Registered as "Quillfern::NTR::PortMonitorServer"; the component server owns it from then on.
using PortMonitorServerClass = corvane::ComponentClass<PortMonitorServer>;
