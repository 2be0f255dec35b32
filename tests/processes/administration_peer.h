#pragma once

#include "corvane/components/connection.h"

#include <string>
#include <utility>
#include <vector>

namespace tests {

// What a job's state is as a number on the wire.
inline constexpr int kRunning = 1, kDelivered = 4, kFailed = 6, kCanceled = 7, kHeld = 8;

// An administration tool's questions to the application server, spoken by the test on a connection of its own. Every
// operation throws CS_Exception when it fails. Used by one thread.
class AdministrationPeer {
 public:
  explicit AdministrationPeer(int port);
  // With the monitor's key.
  AdministrationPeer(int port, const std::string& keyFile);
  ~AdministrationPeer();
  AdministrationPeer(const AdministrationPeer&) = delete;
  AdministrationPeer& operator=(const AdministrationPeer&) = delete;

  struct Job {
    int number = 0, state = 0, session = 0, process = 0, copies = 0;
    std::wstring server, user, printer, document, spoolerJob, began, ended, cause, remedy;
    long long bytes = 0;
    std::vector<int> milliseconds;
  };
  struct Status {
    std::wstring version;
    int process = 0;
    // Each session as "5 connected: Laser-2 (session 5), Ink (session 5)" or "5 away: ...".
    std::vector<std::wstring> sessions;
  };
  struct Notice {
    int number = 0;
    std::wstring kind, line;
    std::vector<std::pair<std::wstring, std::wstring>> values;
  };
  struct Notices {
    int latest = 0;
    std::vector<Notice> list;
  };

  Status status();
  std::vector<std::wstring> records(int count);
  Notices notices(int after, int waitMilliseconds);
  // The latest jobs, the latest first.
  std::vector<Job> jobs(int most);
  // Whether the job was canceled, and what is said of it.
  std::pair<bool, std::wstring> cancel(int job, const wchar_t* by);
  // The line of the invitation, or why there is none.
  std::pair<bool, std::wstring> invite(int session, bool isSameUser, const wchar_t* address);

 private:
  void dial(int port);

  CS_RCPtr<CS_Connection> m_connection;
  CS_RCPtr<CS_Component> m_component;
};

}  // namespace tests
