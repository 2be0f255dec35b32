#pragma once

#include <condition_variable>
#include <mutex>
#include <thread>

// Tells whether the module's locks are free, which only another thread can: the lock of the port list, those of the
// ports "CPP7" and "CPP8", and the port monitor lock.
class LockProbe {
 public:
  LockProbe();
  ~LockProbe();
  LockProbe(const LockProbe&) = delete;
  LockProbe& operator=(const LockProbe&) = delete;

  // Ends the process when a lock is still held after ten seconds: nothing could be tested after that.
  void expectFree();

 private:
  void serve();

  std::mutex m_lock;  // guards what follows
  std::condition_variable m_changed;
  int m_asked = 0;
  int m_answered = 0;
  bool m_ends = false;
  std::thread m_thread;
};
