#pragma once

#include "tests/support/spooler/monitor_table.h"

#include <windows.h>

#include <functional>
#include <string>

namespace mg::support {

// One document as a spooler brings it to a port.
struct PortJob {
  std::wstring port;
  std::wstring printer;
  DWORD job = 0;
  std::wstring document;
  std::wstring datatype;
  // The most bytes of one write; spoolers use 64 KiB.
  DWORD writeSize = 65536;
};

// Gives up to `size` bytes of the document into the buffer; 0 is its end.
using ReadData = std::function<DWORD(BYTE* buffer, DWORD size)>;
// Called after each call to the monitor: its name, whether it succeeded, its last error when it did not.
using TellCall = std::function<void(const char* call, bool succeeded, DWORD error)>;

// Brings a document to its port as a spooler does: open, start, writes, end, close. A failing start ends the document
// there; after a failing write no more is written, but the document is ended, as a spooler does for a job that is
// deleted meanwhile. Returns an empty text when every call succeeded and every byte was taken, else the failed call.
std::string printOnPort(const MonitorTable& monitor, const PortJob& job, const ReadData& read, const TellCall& tell);

}  // namespace mg::support
