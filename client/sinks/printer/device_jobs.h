#pragma once

#include "client/sinks/printer/ipp_printer.h"

#include <atomic>
#include <chrono>
#include <optional>
#include <string>
#include <vector>

namespace printclient {

// What the printer behind a queue says itself of a job that the queue calls ended: CUPS calls some jobs completed, and
// others canceled, that the printer has given up. The printer can be asked where the queue sends to it by IPP; the job
// is found there by its title among those that came since then. Nothing where the printer cannot be asked within a few
// seconds, does not know the job, or has several of that title that ended differently: then the queue's word counts.
std::optional<JobStatus> statusAtDevice(IppPrinter& queue, const std::string& title,
                                        std::chrono::steady_clock::time_point since, const std::atomic<bool>& stopping);

// Which of those that came since then tells of the job: the only one that was begun, or the first where all were given
// up.
std::optional<JobStatus> tellingOne(std::vector<JobStatus> found);

}  // namespace printclient
