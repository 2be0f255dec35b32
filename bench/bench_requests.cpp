// Measures requests with a reply, GetPrinterInfo of the monitor's own PortMonitorServer, against round trips of 64
// bytes to the raw relay, in turns within one run:
//
//   bench_requests ROUNDS MEASUREMENTS PRINTER RAW-PORT
//
// MEASUREMENTS is a list of "request", "request-p99" and "threads-64", separated by commas: the median of one caller,
// in seconds, what 99 of 100 of its calls take at most, and the calls a second of 64 threads on one connection, which
// stand beside 8 raw sockets with a thread each.

#include "bench/raw_peer.h"
#include "bench/samples.h"
#include "corvane/components/component_server.h"
#include "session/make_component.h"
#include "session/port_monitor_server.h"

#include <functional>
#include <thread>

namespace {

using bench::Clock;
using bench::secondsSince;

constexpr int kCalls = 3000;  // of one caller in one turn
constexpr int kThreads = 64;
constexpr int kSockets = 8;
constexpr int kCrowdCalls = 12800;  // of all threads together in one turn

struct Times {
  double median, p99;
};

Times timesOf(const std::function<void()>& call) {
  std::vector<double> each;
  for (int i = 0; i < kCalls; ++i) {
    const auto start = Clock::now();
    call();
    each.push_back(secondsSince(start));
  }
  return {bench::quantile(each, 0.5), bench::quantile(each, 0.99)};
}

// Calls a second of so many threads, each with what makeCall gives it.
double rateOf(int threads, const std::function<std::function<void()>()>& makeCall) {
  std::vector<std::function<void()>> calls;
  for (int i = 0; i < threads; ++i)
    calls.push_back(makeCall());
  const auto start = Clock::now();
  std::vector<std::thread> callers;
  for (const std::function<void()>& call : calls) {
    callers.emplace_back([&call, threads] {
      for (int i = 0; i < kCrowdCalls / threads; ++i)
        call();
    });
  }
  for (std::thread& caller : callers)
    caller.join();
  return kCrowdCalls / secondsSince(start);
}

class Bench {
 public:
  Bench(std::wstring printer, std::uint16_t relay)
      : m_printer(std::move(printer)), m_relay(relay), m_connection(PortMonitorServer::connectToLocalhost()) {
    if (!m_connection) bench::giveUp("aps cannot be reached");
    Operation operation(L"bench");
    operation.run([&] {
      m_monitor = mg::makeOwnComponent<PortMonitorServer>(operation, *m_connection, mg::kPortMonitorServerKind);
      mg::startChannel(*m_monitor);
    });
    if (!m_monitor) bench::giveUp("the component of the requests cannot be made");
  }
  ~Bench() { CS_Connection::destroy(m_connection, true); }
  Bench(const Bench&) = delete;
  Bench& operator=(const Bench&) = delete;

  void compareOne(int rounds, const std::string& wanted) {
    bench::RawPings pings(m_relay);
    for (int round = 0; round <= rounds; ++round) {
      const Times raw = timesOf([&] { pings.ask(bench::kByRelay); });
      const Times product = timesOf([&] { ask(); });
      if (round == 0) continue;  // to warm up
      if (bench::isAsked(wanted, "request")) tell("request", raw.median, product.median);
      if (bench::isAsked(wanted, "request-p99")) tell("request-p99", raw.p99, product.p99);
    }
  }

  void compareCrowd(int rounds) {
    const auto raw = [this] {
      const auto pings = std::make_shared<bench::RawPings>(m_relay);
      return [pings] { pings->ask(bench::kByRelay); };
    };
    bench::takeTurns(
        "threads-64", rounds, [&] { return rateOf(kSockets, raw); },
        [&] { return rateOf(kThreads, [this] { return [this] { ask(); }; }); });
  }

 private:
  static void tell(const char* measurement, double raw, double product) {
    bench::sample(measurement, bench::kRaw, raw);
    bench::sample(measurement, bench::kProduct, product);
  }

  void ask() {
    ClientPrinter printer;
    if (!m_monitor->GetPrinterInfo(m_printer.c_str(), printer)) bench::giveUp("aps does not know the printer");
  }

  const std::wstring m_printer;
  const std::uint16_t m_relay;
  const CS_RCPtr<CS_Connection> m_connection;
  CS_RCPtr<PortMonitorServer> m_monitor;
};

}  // namespace

int wmain(int count, wchar_t** arguments) {
  if (count != 5) {
    std::fprintf(stderr, "usage: bench_requests ROUNDS MEASUREMENTS PRINTER RAW-PORT\n");
    return 2;
  }
  CS_ComponentServer::initialize(0, 0);
  CS_ComponentServer::getServer()->registerClass(protocol::kPortMonitorServerClass,
                                                 new PortMonitorServerClass(protocol::kVersion));
  PortMonitorServer::initialize();
  const std::string wanted(arguments[2], arguments[2] + std::wcslen(arguments[2]));
  const int rounds = _wtoi(arguments[1]);
  return bench::runMeasurements([&] {
    Bench bench(arguments[3], static_cast<std::uint16_t>(_wtoi(arguments[4])));
    if (bench::isAsked(wanted, "request") || bench::isAsked(wanted, "request-p99")) bench.compareOne(rounds, wanted);
    if (bench::isAsked(wanted, "threads-64")) bench.compareCrowd(rounds);
  });
}
