#include "client/sinks/printer/device_jobs.h"

#include <algorithm>

namespace printclient {
namespace {

constexpr std::chrono::seconds kClockSlack{2};  // both clocks count whole seconds

}  // namespace

std::optional<JobStatus> tellingOne(std::vector<JobStatus> found) {
  // One that the printer has not begun says nothing: it may wait for data that the queue did not send.
  std::erase_if(found, [](const JobStatus& job) { return job.state < JobStatus::kProcessing; });
  if (found.size() == 1) return found.front();
  const bool isGivenUp = std::all_of(found.begin(), found.end(), [](const JobStatus& job) {
    return job.state == JobStatus::kCanceled || job.state == JobStatus::kAborted;
  });
  if (found.empty() || !isGivenUp) return std::nullopt;
  return found.front();
}

std::optional<JobStatus> statusAtDevice(IppPrinter& queue, const std::string& title,
                                        std::chrono::steady_clock::time_point since,
                                        const std::atomic<bool>& stopping) try {
  const std::string device = queue.deviceUri();
  if (!device.starts_with("ipp://") && !device.starts_with("ipps://")) return std::nullopt;
  PrinterPatience patience;
  patience.connect = patience.silence = kQueuePatience;
  IppPrinter printer({"", device}, patience, stopping);
  const auto passed = std::chrono::duration_cast<std::chrono::seconds>(std::chrono::steady_clock::now() - since);
  return tellingOne(printer.jobsCalled(title, passed + kClockSlack));
} catch (const IppFailure&) {
  return std::nullopt;
}

}  // namespace printclient
