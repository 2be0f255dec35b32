#pragma once

namespace corvane {

// Keeps the thread's last error (GetLastError on Windows, errno elsewhere) over its scope, so that tracing and
// recording are invisible to the code around them.
class LastErrorKeeper {
 public:
  LastErrorKeeper();
  ~LastErrorKeeper();
  LastErrorKeeper(const LastErrorKeeper&) = delete;
  LastErrorKeeper& operator=(const LastErrorKeeper&) = delete;

 private:
  [[maybe_unused]] unsigned long m_lastError;  // Windows only
  int m_errno;
};

}  // namespace corvane
