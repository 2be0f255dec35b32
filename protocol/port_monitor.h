#pragma once

#include "protocol/printer.h"

#include <optional>
#include <string>
#include <vector>

// What the port monitor (kPortMonitorServerClass) asks the application server (kPortMonitorClientClass). Names of
// printers are those on the server.
namespace protocol {

enum class PortMonitorRequest { kAttachJob = 4, kPrinterInfo = 5, kPrinterList = 6, kLaunch = 7 };

// Continues a job's bridge on the print client of the session that owns the printer.
struct AttachJob {
  static constexpr PortMonitorRequest kNumber = PortMonitorRequest::kAttachJob;

  std::wstring printer;
  int processId = 0;
  int bridge = 0;               // its identifier on the connection of the request
  CS_ClassVersionMap versions;  // the classes of the process that asks

  static void layout(auto& self, auto& wire) { wire(self.printer, self.processId, self.bridge, self.versions); }

  struct Answer {
    std::optional<CS_ClassVersionMap> versions;  // the classes of the print client; none when the job is not attached

    static void layout(auto& self, auto& wire) { wire(self.versions); }
  };
};

// Which client printer is behind a printer of the server.
struct PrinterInfo {
  static constexpr PortMonitorRequest kNumber = PortMonitorRequest::kPrinterInfo;

  std::wstring printer;

  static void layout(auto& self, auto& wire) { wire(self.printer); }

  struct Answer {
    std::optional<Printer> printer;  // none when no session has it

    static void layout(auto& self, auto& wire) { wire(self.printer); }
  };
};

// The printers of a session.
struct PrinterList {
  static constexpr PortMonitorRequest kNumber = PortMonitorRequest::kPrinterList;

  int session = 0;

  static void layout(auto& self, auto& wire) { wire(self.session); }

  struct Answer {
    bool isGiven = true;  // false when the server refuses the list
    std::vector<std::wstring> names;

    static void layout(auto& self, auto& wire) {
      wire(self.isGiven);
      if (self.isGiven) wire.untilFalse(self.names);
    }
  };
};

// Starts a program in the session that owns the printer.
struct LaunchProgram {
  static constexpr PortMonitorRequest kNumber = PortMonitorRequest::kLaunch;

  std::wstring program;
  std::wstring arguments;
  std::optional<std::wstring> printer;

  static void layout(auto& self, auto& wire) { wire(self.program, self.arguments, self.printer); }

  struct Answer {
    bool isLaunched = false;

    static void layout(auto& self, auto& wire) { wire(self.isLaunched); }
  };
};

}  // namespace protocol
