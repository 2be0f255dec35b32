#pragma once

#include "tests/support/spooler/monitor_table.h"

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>

// Jobs through MgPrintMon.dll, which is loaded into this process as into a spooler's. The spooler's queue itself is a
// stand-in that grants everything at once (tests/support/spooler/stand_in_queue.h): it is not ours, and without one
// each job would be one that failed there. Windows only; used by one thread.
class PortJobs {
 public:
  // Throws mg::support::SystemFailure when the module cannot be loaded; std::runtime_error when it has no such port.
  PortJobs(const std::wstring& portName, std::wstring printer);
  ~PortJobs();
  PortJobs(const PortJobs&) = delete;
  PortJobs& operator=(const PortJobs&) = delete;

  // Prints the piece as often as the total wants, from the start of the document to its end. Throws
  // std::runtime_error when that fails.
  void print(std::span<const unsigned char> piece, std::uint64_t total);
  // Prints a document in writes of that size; the rest as above.
  void printDocument(std::span<const unsigned char> document, std::size_t write);

 private:
  void begin();
  void write(std::span<const unsigned char> piece) const;
  void end() const;

  const mg::support::MonitorTable& m_monitor;
  const std::wstring m_printer;
  HANDLE m_port = nullptr;
  int m_count = 0;  // of jobs so far
};

// Removes all files of a folder that have their final names.
void emptyFolder(const std::string& folder);
