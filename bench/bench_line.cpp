// Measures jobs for a print client behind a narrow line (2 Mbit/s, 80 ms there and back) against what the line can
// carry.
//
//   bench_line [ROUNDS]
//
// Prints medians and ratios: a PostScript job of 5 MB against the time that its compressed size (zlib, level 6) takes
// on that line, and a page that is printed in the middle of such a job against the same page alone.

#include "tests/processes/keys.h"
#include "tests/processes/monitor_peer.h"
#include "tests/processes/scene.h"
#include "tests/support/network/forwarder.h"
#include "tests/support/network/sample_document.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <thread>

namespace {

using Clock = std::chrono::steady_clock;
using namespace tests;

constexpr LineQuality kLine{250000, std::chrono::milliseconds(40)};

double secondsOfCompressed(const std::string& data) {
  return static_cast<double>(compressedSize(data)) / static_cast<double>(kLine.bytesPerSecond);
}

double median(std::vector<double> values) {
  std::sort(values.begin(), values.end());
  return values[values.size() / 2];
}

class Bench {
 public:
  Bench() {
    m_keys.make("monitor");
    m_keys.make("session-5");
    std::vector<std::string> options = m_keys.serverOptions();
    options.insert(options.end(), {"--listen-clients", "127.0.0.1:0"});
    m_scene = std::make_unique<Scene>(options);
    const std::string said = m_scene->server().waitForLine("aps listens for print clients on ");
    m_way = std::make_unique<Forwarder>(static_cast<std::uint16_t>(std::stoi(said.substr(said.rfind(':') + 1))), kLine);
    auto command = m_scene->clientCommand(5, {"Laser"});
    command[2] = m_way->address();
    command.insert(command.end(), {"--tls", "--key", m_keys.path("session-5")});
    m_client = std::make_unique<ChildProcess>(command);
    m_client->waitForLine("ready: ");
  }

  // Seconds from the first request to the answer to the last one.
  double print(const std::string& data) const {
    const auto from = Clock::now();
    MonitorPeer peer(m_scene->port(), corvane::Identity::monitor(), m_keys.path("monitor"));
    peer.attach(L"Laser (session 5)");
    peer.startJob({L"j", L"", L"document", L""}, {1, 1, 1, 1});
    for (std::size_t at = 0; at < data.size(); at += 65536)
      peer.writeJob(data.substr(at, 65536));
    if (peer.endJob() != 1) std::fputs("a job was not printed\n", stderr);
    return std::chrono::duration<double>(Clock::now() - from).count();
  }

 private:
  const Keys m_keys;
  std::unique_ptr<Scene> m_scene;
  std::unique_ptr<Forwarder> m_way;
  std::unique_ptr<ChildProcess> m_client;
};

}  // namespace

int main(int count, char** arguments) {
  const int rounds = count > 1 ? std::max(1, std::atoi(arguments[1])) : 5;
  const Bench bench;
  const std::string page = postScript(30000);
  const std::string catalogue = postScript(5000000);
  std::vector<double> whole, alone, between;
  bench.print(page);
  for (int i = 0; i < rounds; ++i) {
    alone.push_back(bench.print(page));
    whole.push_back(bench.print(catalogue));
    std::thread job([&] { bench.print(catalogue); });
    std::this_thread::sleep_for(std::chrono::seconds(2));
    between.push_back(bench.print(page));
    job.join();
  }
  const double ideal = secondsOfCompressed(catalogue);
  std::printf("5 MB of PostScript      %8.0f ms, its compressed size alone %8.0f ms: %.2f\n", 1000 * median(whole),
              1000 * ideal, median(whole) / ideal);
  std::printf("a page in its middle    %8.0f ms, the page alone            %8.0f ms: %.2f\n", 1000 * median(between),
              1000 * median(alone), median(between) / median(alone));
}
