#pragma once

#include "protocol/job_record.h"

#include <array>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <mutex>

namespace aps {

// What a job that failed failed by: a few words that never become more, so that they can be labels.
enum class FailureClass : std::size_t {
  kNone,         // it has not failed
  kNotAttached,  // aps did not route it: no such printer, no print client, a limit
  kPortMonitor,  // the port monitor says why, or left
  kPrintClient,  // the print client's answer, or it left
};
inline constexpr std::array kFailureClasses = {"none", "not attached", "port monitor", "print client"};

// Counts of jobs that have ended since this server began, for who watches it. Nothing here tells one job or user from
// another. Safe from any thread.
class JobMetrics {
 public:
  static constexpr std::array kSeconds = {0.1, 0.5, 1.0, 5.0, 10.0, 30.0, 60.0, 300.0, 1800.0};
  // How a job ended: delivered (also when its paper is not out yet), shown, failed, canceled.
  enum class Outcome : std::size_t { kDelivered, kShown, kFailed, kCanceled };
  static constexpr std::array kOutcomes = {"delivered", "shown", "failed", "canceled"};
  // What became of the paper of those that were delivered.
  enum class Paper : std::size_t { kPrinted, kFailed, kCanceled };
  static constexpr std::array kPapers = {"printed", "failed", "canceled"};

  struct Histogram {
    std::array<std::uint64_t, kSeconds.size() + 1>
        counts{};  // up to each bound, not with the ones before, and above all
    double sum = 0;

    void add(double seconds);
    std::uint64_t total() const;
  };
  struct Counts {
    std::array<std::array<std::uint64_t, kFailureClasses.size()>, kOutcomes.size()> ended{};
    std::array<std::uint64_t, kPapers.size()> paper{};
    std::array<Histogram, 4> stages{};  // by protocol::JobStage
    std::int64_t bytes = 0;             // passed on to print clients
  };

  // A job has ended, as its record says.
  void ended(const protocol::JobRecord& job, FailureClass failure) noexcept;
  // It is known what became of the paper of a job that had ended before.
  void paperEnded(const protocol::JobRecord& job) noexcept;

  Counts counts() const;

 private:
  mutable std::mutex m_lock;  // guards what follows
  Counts m_counts;
};

}  // namespace aps
