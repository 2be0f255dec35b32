#pragma once

#include "admin/server_facts.h"

#include <string>

namespace admin {

// Which job's end is waited for. The spooler of Windows numbers the jobs of all programs; Wine's numbers those of each
// process from 1, and runs in it, so there the process counts as well.
struct AwaitedJob {
  unsigned long number = 0;
  std::wstring printer;
  unsigned long process = 0;  // 0: whichever

  bool isOf(const Notice& notice) const;
};

// How a job ended, as its notice says.
struct JobOutcome {
  bool isPrinted = false;
  std::wstring result;  // "delivered", "shown" or "failed"
  std::wstring session, bytes, cause, remedy;

  static JobOutcome of(const Notice& notice);
};

}  // namespace admin
