// Measures what aps needs of memory for 1,000 sessions, each with a print client that has registered a printer and has
// nothing to do. The clients are connections of this process.
//
//   bench_sessions ROUNDS
//
// The resident memory of aps in bytes, and what of it is there without any session.

#include "bench/bench_scene.h"
#include "bench/raw_peer.h"
#include "bench/samples.h"
#include "corvane/components/component_server.h"
#include "corvane/components/connection.h"
#include "protocol/session.h"

#include <chrono>
#include <fstream>
#include <thread>

namespace {

constexpr int kSessions = 1000;
constexpr std::chrono::seconds kUntilAtRest{3};  // aps does without the thread of a client that says nothing

double residentBytes(pid_t process) {
  std::ifstream status("/proc/" + std::to_string(process) + "/status");
  for (std::string word; status >> word;) {
    double kilobytes = 0;
    if (word == "VmRSS:" && status >> kilobytes) return kilobytes * 1024;
  }
  bench::giveUp("aps has gone");
}

CS_RCPtr<CS_Connection> registered(BenchScene& scene, int session) {
  const CS_RCPtr<CS_Connection> connection = CS_Connection::create();
  connection->useKey(corvane::Identity::session(session), scene.keys().path("session-" + std::to_string(session)));
  connection->connect(L"localhost", scene.scene().port(), CS_Connection::kDirect, false);
  protocol::Printer printer;
  printer.texts[protocol::Printer::kNameText] = L"Laser";
  printer.texts[protocol::Printer::kDriverText] = L"Generic PostScript";
  if (!protocol::registerPrinters(connection, session, {printer}).isAccepted) bench::giveUp("a session was refused");
  return connection;
}

void measure(BenchScene& scene) {
  scene.scene().restartServer();
  const pid_t server = scene.scene().server().id();
  bench::sample("sessions-none", bench::kProduct, residentBytes(server));
  std::vector<CS_RCPtr<CS_Connection>> clients;
  for (int i = 0; i < kSessions; ++i)
    clients.push_back(registered(scene, BenchScene::kFirstSession + i));
  std::this_thread::sleep_for(kUntilAtRest);
  bench::sample("sessions-1000", bench::kProduct, residentBytes(server));
  for (const auto& client : clients)
    CS_Connection::destroy(client, true);
}

void measureAll(int rounds) {
  CS_ComponentServer::initialize(0, 0);
  protocol::registerSessionClientClass();
  BenchScene scene(kSessions, {"--max-sessions", std::to_string(kSessions)});
  for (int round = rounds; round > 0; --round)
    measure(scene);
}

}  // namespace

int main(int count, char** arguments) {
  return bench::runMeasurements([&] { measureAll(count > 1 ? std::atoi(arguments[1]) : 9); });
}
