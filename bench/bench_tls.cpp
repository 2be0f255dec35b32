// Measures a job for a print client of another machine, over TLS, against OpenSSL's own stream on the same hop
// (bench/raw_tls.cpp), in turns within one run:
//
//   bench_tls ROUNDS
//
// The MB a second of a document that cannot be made smaller, so that packing has no part in it.

#include "bench/bench_scene.h"
#include "bench/raw_peer.h"
#include "bench/samples.h"
#include "corvane/components/component_server.h"

#include <random>

namespace {

constexpr std::size_t kPiece = 65536;
constexpr int kPieces = 2048;
constexpr double kMegabytes = 1e-6 * kPiece * kPieces;

std::string randomPiece() {
  std::mt19937 random(7);
  std::string piece(kPiece, '\0');
  for (char& byte : piece)
    byte = static_cast<char>(random());
  return piece;
}

void measureAll(int rounds) {
  CS_ComponentServer::initialize(0, 0);
  BenchScene scene(1, {"--listen-clients", "127.0.0.1:0"});
  scene.addClient(BenchScene::kFirstSession, "127.0.0.1:" + std::to_string(scene.remotePort()));
  RawHops hops(scene.scene().folder() / "raw", "raw_tls");
  const std::string piece = randomPiece();
  const std::vector<unsigned char> rawPiece(piece.begin(), piece.end());
  const auto raw = [&] {
    const auto start = bench::Clock::now();
    bench::streamRaw(hops.port(), rawPiece, std::uint64_t{kPiece} * kPieces);
    const double seconds = bench::secondsSince(start);
    hops.removeFiles();
    return kMegabytes / seconds;
  };
  const auto product = [&] {
    const auto start = bench::Clock::now();
    scene.print(BenchScene::kFirstSession, piece, kPieces);
    const double seconds = bench::secondsSince(start);
    scene.removeDocuments();
    return kMegabytes / seconds;
  };
  bench::takeTurns("tls", rounds, raw, product);
}

}  // namespace

int main(int count, char** arguments) {
  return bench::runMeasurements([&] { measureAll(count > 1 ? std::atoi(arguments[1]) : 9); });
}
