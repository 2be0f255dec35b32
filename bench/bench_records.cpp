// Measures what the records of jobs cost a job: small jobs through aps that keeps them in a file, through one that has
// them in memory, and through another aps, such as one of an earlier version, in turns within one run. Also through one
// that writes a line for each job (--job-log), and through one that would hold jobs if the print client were away; it
// is there. That one needs keys, and stands beside one with keys alone.
//
//   bench_records ROUNDS [OTHER_APS]
//
// What a turn gives is the median of its jobs, in seconds. The other aps, or without one records in memory, is what the
// rest stands beside.

#include "bench/raw_peer.h"
#include "bench/samples.h"
#include "corvane/components/component_server.h"
#include "tests/processes/keys.h"
#include "tests/processes/monitor_peer.h"
#include "tests/processes/scene.h"

#include <memory>
#include <optional>
#include <utility>

namespace {

using namespace tests;

constexpr int kJobs = 200;  // in one turn

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

  // Prints the jobs of one turn and returns the median of their seconds.
  double print() {
    return bench::secondsOf(kJobs, [this] { printOne(); });
  }
  const char* name() const { return m_name; }

 private:
  void printOne() {
    std::optional<MonitorPeer> peer;
    m_keys ? peer.emplace(m_scene.port(), corvane::Identity::monitor(), m_keys->path("monitor"))
           : peer.emplace(m_scene.port());
    peer->attach(L"Laser (session 5)");
    peer->startJob({L"Laser - Job #1", L"Laser", L"document " + std::to_wstring(++m_count), L"RAW"}, {1, 1, 1, 1});
    if (peer->endJob() <= 0) bench::giveUp("a job was not printed");
  }

  static std::vector<std::string> with(std::vector<std::string> words, const std::vector<std::string>& more) {
    words.insert(words.end(), more.begin(), more.end());
    return words;
  }

  const char* m_name;
  std::unique_ptr<Keys> m_keys;  // null without
  Scene m_scene;
  std::unique_ptr<ChildProcess> m_client;
  int m_count = 0;  // of jobs so far, each of which has a name of its own
};

std::unique_ptr<Keys> makeKeys() {
  auto keys = std::make_unique<Keys>();
  keys->make("monitor");
  keys->make("session-5");
  return keys;
}

void measureAll(int rounds, const char* otherAps) {
  CS_ComponentServer::initialize(0, 0);
  std::vector<std::unique_ptr<Way>> ways;
  if (otherAps != nullptr) {
    // The shell puts the other program in the place of ours.
    ways.push_back(
        std::make_unique<Way>("records-other-aps", std::vector<std::string>{},
                              std::vector<std::string>{"/bin/sh", "-c", "shift; exec \"$0\" \"$@\"", otherAps}));
  }
  const std::vector<std::string> inFile = {"--history", "{folder}/jobs"};
  ways.push_back(std::make_unique<Way>("records-memory", std::vector<std::string>{}));
  ways.push_back(std::make_unique<Way>("records-file", inFile));
  ways.push_back(std::make_unique<Way>(
      "records-lines", std::vector<std::string>{inFile[0], inFile[1], "--job-log", "{folder}/jobs.json"}));
  ways.push_back(std::make_unique<Way>("records-keys", std::vector<std::string>{}, makeKeys()));
  ways.push_back(
      std::make_unique<Way>("records-hold", std::vector<std::string>{"--hold", "{folder}/held"}, makeKeys()));
  for (const auto& way : ways)
    way->print();
  for (int round = 0; round < rounds; ++round) {
    const double first = ways.front()->print();
    for (std::size_t i = 1; i < ways.size(); ++i) {
      bench::sample(ways[i]->name(), bench::kRaw, first);
      bench::sample(ways[i]->name(), bench::kProduct, ways[i]->print());
    }
  }
}

}  // namespace

int main(int count, char** arguments) {
  return bench::runMeasurements(
      [&] { measureAll(count > 1 ? std::atoi(arguments[1]) : 9, count > 2 ? arguments[2] : nullptr); });
}
