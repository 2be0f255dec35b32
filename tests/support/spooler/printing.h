#pragma once

#include <windows.h>

#include <string>

namespace mg::support {

// One file to print through the spooler as RAW data.
struct PrintRequest {
  std::wstring printer;
  std::wstring file;
  std::wstring title;
  short copies = 1;
  // The most bytes of one write to the port; 0 leaves the choice to the print processor.
  DWORD writeSize = 0;
};

// Prints the file and returns the spooler's job number when the monitor took the job to its end. Throws a SystemFailure
// when the spooler refuses something and a std::runtime_error that names the monitor's failing call otherwise. To be
// called once in a process, which is how it knows the number that Wine's spooler will give.
DWORD printFile(const PrintRequest& request);

}  // namespace mg::support
