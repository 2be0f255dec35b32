// Measures jobs for a print client behind a narrow line (2 Mbit/s, 80 ms there and back) against what the line can
// carry.
//
//   bench_line ROUNDS
//
// "line-document": a PostScript job of 5 MB, in seconds, against the time that its compressed size (zlib, level 6)
// takes on that line. "line-page": a page that is printed in the middle of such a job, against the same page alone.

#include "bench/bench_scene.h"
#include "bench/raw_peer.h"
#include "bench/samples.h"
#include "corvane/components/component_server.h"
#include "tests/support/network/forwarder.h"
#include "tests/support/network/sample_document.h"

#include <thread>

namespace {

using namespace tests;

constexpr LineQuality kLine{250000, std::chrono::milliseconds(40)};
constexpr std::size_t kPiece = 65536;

double secondsOfCompressed(const std::string& data) {
  return static_cast<double>(compressedSize(data)) / static_cast<double>(kLine.bytesPerSecond);
}

class Line {
 public:
  Line() : m_scene(1, {"--listen-clients", "127.0.0.1:0"}), m_way(m_scene.remotePort(), kLine) {
    m_scene.addClient(BenchScene::kFirstSession, m_way.address());
  }

  // Seconds from the first request to the answer to the last one.
  double print(const std::string& data) const {
    const auto start = bench::Clock::now();
    m_scene.printDocument(BenchScene::kFirstSession, data, kPiece);
    return bench::secondsSince(start);
  }

 private:
  BenchScene m_scene;
  Forwarder m_way;
};

void measureAll(int rounds) {
  CS_ComponentServer::initialize(0, 0);
  const Line line;
  const std::string page = postScript(30000);
  const std::string catalogue = postScript(5000000);
  line.print(page);
  for (int round = 0; round < rounds; ++round) {
    bench::sample("line-document", bench::kRaw, secondsOfCompressed(catalogue));
    bench::sample("line-page", bench::kRaw, line.print(page));
    bench::sample("line-document", bench::kProduct, line.print(catalogue));
    std::thread job([&] { line.print(catalogue); });
    std::this_thread::sleep_for(std::chrono::seconds(2));  // so that it is in its middle
    bench::sample("line-page", bench::kProduct, line.print(page));
    job.join();
  }
}

}  // namespace

int main(int count, char** arguments) {
  return bench::runMeasurements([&] { measureAll(count > 1 ? std::atoi(arguments[1]) : 9); });
}
