#include "tests/support/spooler/port_job.h"

#include <vector>

namespace mg::support {
namespace {

// Remembers the first call that failed.
class Calls {
 public:
  explicit Calls(const TellCall& tell) : m_tell(tell) {}

  bool note(const char* call, bool succeeded) {
    const DWORD error = succeeded ? 0 : GetLastError();
    if (!succeeded && m_failed.empty()) m_failed = call;
    if (m_tell) m_tell(call, succeeded, error);
    return succeeded;
  }
  const std::string& failed() const { return m_failed; }

 private:
  const TellCall& m_tell;
  std::string m_failed;
};

void writeAll(const MONITOR2& monitor, HANDLE port, const ReadData& read, DWORD writeSize, Calls& calls) {
  std::vector<BYTE> buffer(writeSize);
  for (DWORD size = read(buffer.data(), writeSize); size > 0; size = read(buffer.data(), writeSize)) {
    // A monitor may take less than it was given; the rest is offered again.
    for (DWORD done = 0; done < size;) {
      DWORD written = 0;
      const BOOL taken = monitor.pfnWritePort(port, buffer.data() + done, size - done, &written);
      if (!calls.note("WritePort", taken && written > 0)) return;
      done += written;
    }
  }
}

}  // namespace

std::string printOnPort(const MonitorTable& monitor, const PortJob& job, const ReadData& read, const TellCall& tell) {
  Calls calls(tell);
  // The table takes writable text.
  std::wstring portName = job.port;
  std::wstring printer = job.printer;
  std::wstring document = job.document;
  std::wstring datatype = job.datatype;
  const MONITOR2& operations = *monitor.operations;
  HANDLE port = nullptr;
  if (!calls.note("OpenPort", operations.pfnOpenPort(monitor.monitor, portName.data(), &port))) return calls.failed();
  DOC_INFO_1W information = {document.data(), nullptr, datatype.data()};
  if (calls.note("StartDocPort",
                 operations.pfnStartDocPort(port, printer.data(), job.job, 1, reinterpret_cast<BYTE*>(&information)))) {
    writeAll(operations, port, read, job.writeSize, calls);
    calls.note("EndDocPort", operations.pfnEndDocPort(port));
  }
  calls.note("ClosePort", operations.pfnClosePort(port));
  return calls.failed();
}

}  // namespace mg::support
