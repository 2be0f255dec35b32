// Measures what the records of jobs cost a job: small jobs through aps that keeps them in a file, through one that has
// them in memory, and through another aps, such as one of an earlier version, in turns within one run.
//
//   bench_records [ROUNDS] [OTHER_APS]
//
// Prints medians of one job in microseconds and their ratios.

#include "tests/processes/monitor_peer.h"
#include "tests/processes/scene.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <memory>

namespace {

using Clock = std::chrono::steady_clock;
using namespace tests;

constexpr int kJobs = 300;  // in one turn

double median(std::vector<double> values) {
  std::sort(values.begin(), values.end());
  return values[values.size() / 2];
}

class Way {
 public:
  Way(const char* name, const std::vector<std::string>& options, const std::vector<std::string>& launcher = {})
      : m_name(name), m_scene(options, launcher), m_client(m_scene.startClient(5, {"Laser"})) {}

  void print(int jobs) {
    for (int i = 0; i < jobs; ++i) {
      const auto from = Clock::now();
      MonitorPeer peer(m_scene.port());
      peer.attach(L"Laser (session 5)");
      peer.startJob({L"Laser - Job #1", L"Laser", L"document", L"RAW"}, {1, 1, 1, 1});
      if (peer.endJob() == 0) std::fputs("a job was not answered\n", stderr);
      m_times.push_back(std::chrono::duration<double, std::micro>(Clock::now() - from).count());
    }
  }
  void forget() { m_times.clear(); }
  double median() const { return ::median(m_times); }
  const char* name() const { return m_name; }

 private:
  const char* m_name;
  Scene m_scene;
  std::unique_ptr<ChildProcess> m_client;
  std::vector<double> m_times;
};

}  // namespace

int main(int count, char** arguments) {
  const int rounds = count > 1 ? std::max(1, std::atoi(arguments[1])) : 9;
  std::vector<std::unique_ptr<Way>> ways;
  if (count > 2) {
    // The shell puts the other program in the place of ours.
    ways.push_back(
        std::make_unique<Way>("the other aps", std::vector<std::string>{},
                              std::vector<std::string>{"/bin/sh", "-c", "shift; exec \"$0\" \"$@\"", arguments[2]}));
  }
  ways.push_back(std::make_unique<Way>("records in memory", std::vector<std::string>{}));
  ways.push_back(std::make_unique<Way>("records in a file", std::vector<std::string>{"--history", "{folder}/jobs"}));
  for (const auto& way : ways) {
    way->print(kJobs);
    way->forget();
  }
  for (int round = 0; round < rounds; ++round) {
    for (const auto& way : ways)
      way->print(kJobs);
  }
  const double first = ways.front()->median();
  for (const auto& way : ways)
    std::printf("%-20s %8.0f us a job, ratio %.2f\n", way->name(), way->median(), way->median() / first);
  return 0;
}
