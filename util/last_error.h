#pragma once

namespace mg {

// Keeps the thread's last error (GetLastError on Windows, and errno) over its scope, so that closing, tracing and
// recording are invisible to the code around them. Belongs to its thread; never fails.
class LastErrorKeeper {
 public:
  LastErrorKeeper() noexcept;
  ~LastErrorKeeper();
  LastErrorKeeper(const LastErrorKeeper&) = delete;
  LastErrorKeeper& operator=(const LastErrorKeeper&) = delete;

 private:
  [[maybe_unused]] unsigned long m_lastError = 0;  // Windows only
  int m_errno = 0;
};

}  // namespace mg
