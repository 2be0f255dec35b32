// Measures many jobs at once against the same bytes over plain sockets, in turns within one run: 200 jobs of 20
// sessions, each session with a print client of its own, against 20 connections through the raw relay and sink.
//
//   bench_crowd ROUNDS
//
// "crowd" is the MB a second until the last one has all, "crowd-slowest" the time of the slowest session divided by
// that of the median one, of the product alone.

#include "bench/bench_scene.h"
#include "bench/raw_peer.h"
#include "bench/samples.h"
#include "corvane/components/component_server.h"

#include <barrier>
#include <functional>
#include <mutex>
#include <thread>

namespace {

using bench::Clock;

constexpr int kSessions = 20;
constexpr int kJobsOfSession = 10;
constexpr int kPieces = 16;  // of 64 KiB: a job of 1 MiB
constexpr std::size_t kPiece = 65536;
constexpr double kMegabytes = 1e-6 * kPiece * kPieces * kJobsOfSession * kSessions;

// What one of them takes and what it does; all begin together. Returns the seconds of each.
std::vector<double> secondsOfAll(int count, const std::function<void(int)>& work) {
  std::vector<double> seconds(static_cast<std::size_t>(count));
  std::barrier begin(count + 1);
  std::vector<std::jthread> workers;
  Clock::time_point start;
  for (int i = 0; i < count; ++i) {
    workers.emplace_back([&, i] {
      begin.arrive_and_wait();  // everybody is there
      begin.arrive_and_wait();  // the clock runs
      work(i);
      seconds[static_cast<std::size_t>(i)] = bench::secondsSince(start);
    });
  }
  begin.arrive_and_wait();
  start = Clock::now();
  begin.arrive_and_wait();
  workers.clear();
  return seconds;
}

double slowest(const std::vector<double>& seconds) {
  return *std::max_element(seconds.begin(), seconds.end());
}

class Crowd {
 public:
  Crowd() : m_scene(kSessions), m_raw(m_scene.scene().folder() / "raw") {
    for (int i = 0; i < kSessions; ++i)
      m_scene.addClient(BenchScene::kFirstSession + i);
  }

  double raw() {
    const std::vector<unsigned char> piece(kPiece, 'x');
    const auto seconds = secondsOfAll(kSessions, [&](int) {
      bench::streamRaw(m_raw.port(), piece, std::uint64_t{kPiece} * kPieces * kJobsOfSession);
    });
    m_raw.removeFiles();
    return slowest(seconds);
  }

  // The time of each session.
  std::vector<double> product() {
    const std::string piece(kPiece, 'x');
    const auto seconds = secondsOfAll(kSessions * kJobsOfSession, [&](int job) {
      m_scene.print(BenchScene::kFirstSession + job % kSessions, piece, kPieces);
    });
    m_scene.removeDocuments();
    std::vector<double> sessions(kSessions, 0);
    for (std::size_t job = 0; job < seconds.size(); ++job)
      sessions[job % kSessions] = std::max(sessions[job % kSessions], seconds[job]);
    return sessions;
  }

 private:
  BenchScene m_scene;
  RawHops m_raw;
};

void measureAll(int rounds) {
  CS_ComponentServer::initialize(0, 0);
  Crowd crowd;
  for (int round = 0; round <= rounds; ++round) {
    const double raw = crowd.raw();
    const std::vector<double> sessions = crowd.product();
    if (round == 0) continue;  // to warm up
    bench::sample("crowd", bench::kRaw, kMegabytes / raw);
    bench::sample("crowd", bench::kProduct, kMegabytes / slowest(sessions));
    bench::sample("crowd-slowest", bench::kProduct, slowest(sessions) / bench::quantile(sessions, 0.5));
  }
}

}  // namespace

int main(int count, char** arguments) {
  return bench::runMeasurements([&] { measureAll(count > 1 ? std::atoi(arguments[1]) : 9); });
}
