#include "client/sinks/printer/device_jobs.h"
#include "client/sinks/printer/ipp_printer.h"
#include "client/sinks/printer/queued_job.h"

namespace printclient {
namespace {

PrinterPatience shortPatience() {
  PrinterPatience patience;
  patience.connect = patience.silence = kQueuePatience;
  return patience;
}

class IppQueue : public PrinterQueue {
 public:
  IppQueue(const PrinterTarget& target, const std::atomic<bool>& stopping)
      : m_isQueue(target.uri.empty()), m_stopping(stopping), m_printer(target, shortPatience(), stopping) {}

  JobProgress look(const QueuedJob& job) override {
    std::optional<JobStatus> status = m_printer.status(job.numbers.front());
    if (!status) {
      return {protocol::PaperState::kUnknown, "keeps no account of the job any more", "see whether it has come out"};
    }
    if (m_isQueue && status->state >= JobStatus::kCanceled) {
      if (const auto own = statusAtDevice(m_printer, job.title, job.since, m_stopping)) status = own;
    }
    return progressOf(*status);
  }

  void cancel(QueuedJob& job) override {
    m_printer.cancel(job.numbers.front(), job.user);
    job.isCanceled = true;
  }

 private:
  const bool m_isQueue;
  const std::atomic<bool>& m_stopping;
  IppPrinter m_printer;
};

}  // namespace

std::unique_ptr<PrinterQueue> openQueue(const PrinterTarget& printer, const std::atomic<bool>& stopping) {
  return std::make_unique<IppQueue>(printer, stopping);
}

}  // namespace printclient
