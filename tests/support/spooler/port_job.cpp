#include "tests/support/spooler/port_job.h"

#include <vector>

namespace mg::support {
namespace {

// Remembers the first call that failed.
class Calls {
 public:
  explicit Calls(const TellCall& tell) : tell_(tell) {}

  bool Note(const char* call, bool succeeded) {
    const DWORD error = succeeded ? 0 : GetLastError();
    if (!succeeded && failed_.empty()) failed_ = call;
    if (tell_) tell_(call, succeeded, error);
    return succeeded;
  }
  const std::string& failed() const { return failed_; }

 private:
  const TellCall& tell_;
  std::string failed_;
};

void WriteAll(const MONITOR2& monitor, HANDLE port, const ReadData& read, DWORD write_size, Calls& calls) {
  std::vector<BYTE> buffer(write_size);
  for (DWORD size = read(buffer.data(), write_size); size > 0; size = read(buffer.data(), write_size)) {
    // A monitor may take less than it was given; the rest is offered again.
    for (DWORD done = 0; done < size;) {
      DWORD written = 0;
      const BOOL taken = monitor.pfnWritePort(port, buffer.data() + done, size - done, &written);
      if (!calls.Note("WritePort", taken && written > 0)) return;
      done += written;
    }
  }
}

}  // namespace

std::string PrintOnPort(const MonitorTable& monitor, const PortJob& job, const ReadData& read, const TellCall& tell) {
  Calls calls(tell);
  // The table takes writable text.
  std::wstring port_name = job.port;
  std::wstring printer = job.printer;
  std::wstring document = job.document;
  std::wstring datatype = job.datatype;
  const MONITOR2& operations = *monitor.operations;
  HANDLE port = nullptr;
  if (!calls.Note("OpenPort", operations.pfnOpenPort(monitor.monitor, port_name.data(), &port))) return calls.failed();
  DOC_INFO_1W information = {document.data(), nullptr, datatype.data()};
  if (calls.Note("StartDocPort",
                 operations.pfnStartDocPort(port, printer.data(), job.job, 1, reinterpret_cast<BYTE*>(&information)))) {
    WriteAll(operations, port, read, job.write_size, calls);
    calls.Note("EndDocPort", operations.pfnEndDocPort(port));
  }
  calls.Note("ClosePort", operations.pfnClosePort(port));
  return calls.failed();
}

}  // namespace mg::support
