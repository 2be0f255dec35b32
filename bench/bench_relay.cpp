// Measures the processor time that aps takes for each MB of a job, against the raw relay's, in turns within one run:
//
//   bench_relay ROUNDS
//
// Of a whole process, its threads that have ended included. The seconds of one MB.

#include "bench/bench_scene.h"
#include "bench/raw_peer.h"
#include "bench/samples.h"
#include "corvane/components/component_server.h"

#include <functional>
#include <time.h>

namespace {

constexpr std::size_t kPiece = 65536;
constexpr int kPieces = 4096;
constexpr double kMegabytes = kPiece * 1e-6 * kPieces;

double processorSeconds(pid_t process) {
  clockid_t clock;
  timespec time{};
  if (clock_getcpuclockid(process, &clock) != 0 || clock_gettime(clock, &time) != 0) {
    bench::giveUp("there is no processor time of a process");
  }
  return static_cast<double>(time.tv_sec) + 1e-9 * static_cast<double>(time.tv_nsec);
}

double costOf(pid_t process, const std::function<void()>& work) {
  const double before = processorSeconds(process);
  work();
  return (processorSeconds(process) - before) / kMegabytes;
}

void measureAll(int rounds) {
  CS_ComponentServer::initialize(0, 0);
  BenchScene scene(1);
  scene.addClient(BenchScene::kFirstSession);
  RawHops hops(scene.scene().folder() / "raw");
  const std::vector<unsigned char> rawPiece(kPiece, 'x');
  const std::string piece(kPiece, 'x');
  const auto raw = [&] {
    const double cost =
        costOf(hops.relay().id(), [&] { bench::streamRaw(hops.port(), rawPiece, std::uint64_t{kPiece} * kPieces); });
    hops.removeFiles();
    return cost;
  };
  const auto product = [&] {
    const double cost =
        costOf(scene.scene().server().id(), [&] { scene.print(BenchScene::kFirstSession, piece, kPieces); });
    scene.removeDocuments();
    return cost;
  };
  bench::takeTurns("relay-cpu", rounds, raw, product);
}

}  // namespace

int main(int count, char** arguments) {
  return bench::runMeasurements([&] { measureAll(count > 1 ? std::atoi(arguments[1]) : 9); });
}
