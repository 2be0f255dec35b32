#include "client/sinks/printer/queued_job.h"
#include "corvane/base/process.h"
#include "corvane/base/text.h"

#include <windows.h>
#include <winspool.h>

#include <algorithm>
#include <stdexcept>

namespace printclient {
namespace {

using protocol::PaperState;

struct KnownStatus {
  DWORD bit;
  JobProgress progress;
};

// The worst first.
const std::vector<KnownStatus>& knownStatuses() {
  static const std::vector<KnownStatus> kAll = {
      {JOB_STATUS_DELETED, {PaperState::kCanceled, "was told to delete the job", "print again if it is still wanted"}},
      {JOB_STATUS_DELETING, {PaperState::kCanceled, "was told to delete the job", "print again if it is still wanted"}},
      {JOB_STATUS_PAPEROUT, {PaperState::kStopped, "has no paper", "put paper in"}},
      {JOB_STATUS_OFFLINE, {PaperState::kStopped, "is off line", "see that it is switched on and connected"}},
      {JOB_STATUS_USER_INTERVENTION, {PaperState::kStopped, "wants somebody to do something", "see what it shows"}},
      {JOB_STATUS_BLOCKED_DEVQ,
       {PaperState::kStopped, "cannot print the job", "see among this machine's printers that its driver is right"}},
      {JOB_STATUS_ERROR, {PaperState::kStopped, "has a fault", "see what it and its queue show"}},
      {JOB_STATUS_PAUSED, {PaperState::kStopped, "keeps the job, which is paused", "let the job go on in the queue"}},
      {JOB_STATUS_PRINTED, {PaperState::kPrinted}},
      {JOB_STATUS_COMPLETE, {PaperState::kPrinted}},
      {JOB_STATUS_PRINTING, {PaperState::kPrinting}}};
  return kAll;
}

// A queue of this machine.
class WindowsQueue : public PrinterQueue {
 public:
  explicit WindowsQueue(const std::string& queue) {
    std::wstring name = corvane::fromUtf8(queue);
    if (!OpenPrinterW(name.data(), &m_printer, nullptr)) throw std::runtime_error("the queue cannot be opened");
  }
  ~WindowsQueue() override { ClosePrinter(m_printer); }
  WindowsQueue(const WindowsQueue&) = delete;
  WindowsQueue& operator=(const WindowsQueue&) = delete;

  // Of several copies, those that the queue has no more have come out, as long as it has others.
  JobProgress look(const QueuedJob& job) override {
    bool isThere = false, isWaiting = false, isPrinting = false;
    for (const int number : job.numbers) {
      DWORD status = 0;
      if (!ask(static_cast<DWORD>(number), status)) continue;
      const JobProgress progress = progressOf(status);
      const bool isTrouble = progress.state == PaperState::kStopped || progress.state == PaperState::kCanceled;
      if (isTrouble) return progress;
      isThere = true;
      isWaiting |= progress.state == PaperState::kWaiting;
      isPrinting |= progress.state == PaperState::kPrinting;
    }
    if (isPrinting) return {PaperState::kPrinting};
    if (isWaiting) return {PaperState::kWaiting};
    if (job.isCanceled && !isThere) return knownStatuses().front().progress;
    // A queue drops a job that it has printed, and says nothing of one that was printed between two looks.
    if (isThere || job.progress.state == PaperState::kPrinting) return {PaperState::kPrinted};
    return {PaperState::kUnknown, "has the job no longer in its queue, and has not said how it ended",
            "see whether it has come out"};
  }

  // Copies that the queue has no more have come out.
  void cancel(QueuedJob& job) override {
    for (const int number : job.numbers) {
      if (SetJobW(m_printer, static_cast<DWORD>(number), 0, nullptr, JOB_CONTROL_DELETE)) {
        job.isCanceled = true;
        continue;
      }
      const DWORD error = GetLastError();
      if (error == ERROR_INVALID_PARAMETER) continue;
      throw std::runtime_error(corvane::toUtf8(corvane::systemErrorWords(error)));
    }
  }

 private:
  // False when the queue has no such job any more.
  bool ask(DWORD number, DWORD& status) const {
    DWORD needed = 0;
    std::vector<unsigned char> room;
    while (!GetJobW(m_printer, number, 1, room.data(), static_cast<DWORD>(room.size()), &needed)) {
      const DWORD error = GetLastError();
      if (error == ERROR_INVALID_PARAMETER) return false;
      if (error != ERROR_INSUFFICIENT_BUFFER || needed <= room.size()) {
        throw std::runtime_error("the queue does not tell of its job");
      }
      room.resize(needed);
    }
    status = reinterpret_cast<const JOB_INFO_1W*>(room.data())->Status;
    return true;
  }

  static JobProgress progressOf(DWORD status) {
    const auto& all = knownStatuses();
    const auto found =
        std::find_if(all.begin(), all.end(), [status](const KnownStatus& known) { return (status & known.bit) != 0; });
    return found == all.end() ? JobProgress{PaperState::kWaiting} : found->progress;
  }

  HANDLE m_printer = nullptr;
};

}  // namespace

std::unique_ptr<PrinterQueue> openQueue(const PrinterTarget& printer, const std::atomic<bool>&) {
  return std::make_unique<WindowsQueue>(printer.queue);
}

}  // namespace printclient
