#pragma once

#include "corvane/base/text.h"
#include "tests/support/local_log.h"
#include "tests/support/monitor/job_path.h"

#include <string>
#include <vector>

// What the tests of a job's end share: the notices and the entries of the event log that came, as text.
class JobEndTest : public JobPath {
 protected:
  JobEndTest();

  // The lines of the notices so far.
  std::vector<std::string> told() const;
  // "name=value" of the latest notice, in its order.
  std::vector<std::string> values() const;
  // Of who runs the test.
  static std::string userName() {
    wchar_t name[257] = L"";
    DWORD size = 257;
    GetUserNameW(name, &size);
    return corvane::toUtf8(name);
  }
  // That a failed job was reported once, in a line that goes on behind the job's and the printer's names with this, and
  // that the event log has the same line.
  void expectFailure(const std::string& rest, const std::string& job = "Job 17 \"letter.txt\" on \"Laser\"");
  void breakConnection();
  void refuseAttach();
  // Lets the next "register", "report" or "deregister" fail.
  static void failEventLog(const std::string& call);

  // The calls that wrote to the event log: "register MgPrintMon", "error 0xc0000001 category 0: line", "deregister".
  std::vector<std::string> m_events;
  LocalLog m_log;
};
