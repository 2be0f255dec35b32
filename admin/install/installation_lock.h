#pragma once

#include "admin/base/failure.h"
#include "util/win_handle.h"

#include <windows.h>

namespace admin {

// Held while this process installs, repairs or removes, so that no two do that at once. The object is the system's, and
// gone with the process. The constructor throws a Failure when another process holds it.
class InstallationLock {
 public:
  InstallationLock() : m_mutex(CreateMutexW(nullptr, FALSE, L"Global\\MarrowgateInstallation")) {
    // That of one that was killed is ours now.
    if (m_mutex && WaitForSingleObject(m_mutex.get(), 0) != WAIT_TIMEOUT) return;
    throw Failure(ExitCode::kInUse, "another mgprintmon installs or removes just now",
                  "Wait for its end, and do this again.");
  }
  ~InstallationLock() { ReleaseMutex(m_mutex.get()); }
  InstallationLock(const InstallationLock&) = delete;
  InstallationLock& operator=(const InstallationLock&) = delete;

 private:
  const mg::ObjectHandle m_mutex;
};

}  // namespace admin
