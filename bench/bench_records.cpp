// Measures what the records of jobs cost a job: small jobs through aps that keeps them in a file, through one that has
// them in memory, and through another aps, such as one of an earlier version, in turns within one run. Also through one
// that writes a line for each job (--job-log), and through one that would hold jobs if the print client were away; it
// is there. That one needs keys, and stands beside one with keys alone.
//
//   bench_records [ROUNDS] [OTHER_APS]
//
// Prints medians of one job in microseconds and their ratios to the first.

#include "tests/processes/keys.h"
#include "tests/processes/monitor_peer.h"
#include "tests/processes/scene.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <optional>
#include <utility>

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
  // With keys, which have the monitor's and that of session 5.
  Way(const char* name, std::vector<std::string> options, std::unique_ptr<Keys> keys)
      : m_name(name), m_keys(std::move(keys)), m_scene(with(std::move(options), m_keys->serverOptions())) {
    std::vector<std::string> command = m_scene.clientCommand(5, {"Laser"});
    m_client = std::make_unique<ChildProcess>(with(std::move(command), {"--key", m_keys->path("session-5")}));
    m_client->waitForLine("ready: ");
  }

  void print(int jobs) {
    for (int i = 0; i < jobs; ++i) {
      const auto from = Clock::now();
      std::optional<MonitorPeer> dialed;
      m_keys ? dialed.emplace(m_scene.port(), corvane::Identity::monitor(), m_keys->path("monitor"))
             : dialed.emplace(m_scene.port());
      MonitorPeer& peer = *dialed;
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
  static std::vector<std::string> with(std::vector<std::string> words, const std::vector<std::string>& more) {
    words.insert(words.end(), more.begin(), more.end());
    return words;
  }

  const char* m_name;
  std::unique_ptr<Keys> m_keys;  // null without
  Scene m_scene;
  std::unique_ptr<ChildProcess> m_client;
  std::vector<double> m_times;
};

std::unique_ptr<Keys> makeKeys() {
  auto keys = std::make_unique<Keys>();
  keys->make("monitor");
  keys->make("session-5");
  return keys;
}

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
  ways.push_back(std::make_unique<Way>(
      "a line for each", std::vector<std::string>{"--history", "{folder}/jobs", "--job-log", "{folder}/jobs.json"}));
  ways.push_back(std::make_unique<Way>("with keys", std::vector<std::string>{}, makeKeys()));
  ways.push_back(
      std::make_unique<Way>("that would hold them", std::vector<std::string>{"--hold", "{folder}/held"}, makeKeys()));
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
