#pragma once

#include "server/metrics/metrics_text.h"

#include <chrono>
#include <cstddef>
#include <functional>
#include <memory>
#include <string>

namespace aps {

// Answers GET /metrics over HTTP. One thread for all peers, of which a slow one holds up no other, and nothing of it is
// waited for by a job. Bounded: connections, of which a new one takes the place of the oldest; the size of a request;
// the time for it and for its answer. Ends with the object, whatever its peers do.
class MetricsServer {
 public:
  struct Limits {
    std::size_t connections = 16;
    std::chrono::milliseconds patience{10000};  // for a request, and for its answer
  };
  static constexpr std::size_t kRequestBytes = 8192;

  using Collect = std::function<Metrics()>;

  // Throws std::runtime_error with the cause when it cannot listen there. What is collected is asked for on the
  // server's thread.
  MetricsServer(const std::string& address, Collect collect, const Limits& limits);
  MetricsServer(const std::string& address, Collect collect) : MetricsServer(address, std::move(collect), Limits()) {}
  ~MetricsServer();
  MetricsServer(const MetricsServer&) = delete;
  MetricsServer& operator=(const MetricsServer&) = delete;

  // "127.0.0.1:9464", with the port that it has.
  std::string address() const;

 private:
  class State;

  std::unique_ptr<State> m_state;
};

// Why metrics cannot be served at what the command line says; empty when they can. A port alone is one of 127.0.0.1.
std::string metricsRefusal(const std::string& address);

}  // namespace aps
