#pragma once

#include "client/sinks/printer/printer_target.h"
#include "client/sinks/sink.h"

#include <atomic>
#include <chrono>
#include <memory>
#include <string>
#include <vector>

namespace printclient {

// A job that a printer has whole and that goes on there. A plain value.
struct QueuedJob {
  PrinterTarget printer;
  std::vector<int> numbers;  // the printer's own; several where each copy is a job
  std::string title;         // as the printer was told
  std::string user;          // likewise
  std::chrono::steady_clock::time_point since;
  JobProgress progress;     // when it was looked at last
  bool isCanceled = false;  // the printer has taken the order to end it
};

// A printer that is asked what has become of its jobs. Used by one thread; every wait is short (kQueuePatience), and
// ends when the flag is set that it was opened with.
class PrinterQueue {
 public:
  virtual ~PrinterQueue() = default;
  // Throws std::runtime_error when the printer does not tell.
  virtual JobProgress look(const QueuedJob& job) = 0;
  // Tells the printer to end the job; what has become of it says look(). Throws std::runtime_error when it refuses.
  virtual void cancel(QueuedJob& job) = 0;
};
inline constexpr std::chrono::milliseconds kQueuePatience{3000};

// Per platform. Throws std::runtime_error when the printer does not answer.
std::unique_ptr<PrinterQueue> openQueue(const PrinterTarget& printer, const std::atomic<bool>& stopping);

}  // namespace printclient
