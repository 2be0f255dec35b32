#pragma once

#include "client/persons_printers.h"

#include <chrono>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <thread>
#include <vector>

namespace printclient {

// Looks now and then whether the person's printers are still the same, on a thread of its own, and tells when they are
// not. Ends with the object; a question to the system that takes long is waited for.
class PrinterFollower {
 public:
  // Called on that thread, with at least one printer.
  using OnChange = std::function<void(const std::vector<PrinterOption>& printers)>;

  PrinterFollower(const PersonsPrinters::Choice& choice, std::chrono::milliseconds every, OnChange onChange);
  ~PrinterFollower();
  PrinterFollower(const PrinterFollower&) = delete;
  PrinterFollower& operator=(const PrinterFollower&) = delete;

  static constexpr std::chrono::milliseconds kUsual{5000};

 private:
  void follow();

  PersonsPrinters m_printers;  // used by the thread
  const std::chrono::milliseconds m_every;
  const OnChange m_onChange;
  std::mutex m_lock;  // guards what follows
  std::condition_variable m_changed;
  bool m_isStopping = false;
  std::thread m_thread;
};

}  // namespace printclient
