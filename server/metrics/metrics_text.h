#pragma once

#include "server/metrics/job_metrics.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>

namespace aps {

// What this server is like at one moment, for who watches it. No title, no user, and labels of a few values each.
struct Metrics {
  static constexpr std::array kRooms = {"arriving", "arriving from network", "print clients", "monitor",
                                        "administration"};  // in the order of Room

  JobMetrics::Counts jobs;
  std::size_t running = 0, held = 0;  // jobs
  std::size_t recordsWaiting = 0;     // that the history's file has not taken yet
  std::size_t sessionsConnected = 0, sessionsAway = 0;
  std::array<std::size_t, kRooms.size()> connections{};
  std::uint64_t logLinesLost = 0;
  std::string version;
  double startedAt = 0;  // seconds since 1970
};

// The two forms of the text in which Prometheus reads metrics, and what their content is called.
enum class MetricsForm { kOpenMetrics, kPlain };
const char* contentTypeOf(MetricsForm form);
// What an Accept header wants; the plain form unless it names the other one.
MetricsForm formFor(const std::string& accept);

std::string textOf(const Metrics& metrics, MetricsForm form);

}  // namespace aps
