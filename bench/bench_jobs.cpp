// Measures jobs through MgPrintMon.dll against raw sockets on the same hops, in turns within one run.
//
//   bench_jobs PRINTER PORT-NAME RAW-PORT [ROUNDS]      with MgPrintMon.dll beside it
//
// Prints one line a measurement with the medians of both and their ratio. The time of a job goes from the start of the
// document to the end of MGEndDocPort, the time of a raw stream from its first byte to the answer of the sink.

#include "bench/raw_socket.h"
#include "corvane/net/socket.h"
#include "corvane/records/exception.h"
#include "corvane/wire/frame.h"
#include "tests/support/spooler/monitor_table.h"
#include "tests/support/spooler/system_failure.h"

#include <windows.h>
#include <winsock2.h>
#include <winspool.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <string>
#include <vector>

namespace {

using Clock = std::chrono::steady_clock;
using corvane::Socket;

double secondsSince(Clock::time_point start) {
  return std::chrono::duration<double>(Clock::now() - start).count();
}

class Bench {
 public:
  Bench(const MONITOR2& operations, HANDLE port, std::wstring printer, std::uint16_t rawPort)
      : m_operations(operations), m_port(port), m_printer(std::move(printer)), m_rawPort(rawPort) {}

  double rawStream(std::size_t total, std::size_t write) {
    const std::vector<unsigned char> data(write, 'x');
    const auto start = Clock::now();
    Socket socket = Socket::connect("localhost", m_rawPort, false);
    unsigned char head[9] = {'s'};
    corvane::storeLittleEndian32(head + 1, static_cast<std::uint32_t>(total));
    sendAll(socket, head);
    for (std::size_t sent = 0; sent < total; sent += write)
      sendAll(socket, data);
    unsigned char done = 0;
    receiveAll(socket, {&done, 1});
    return secondsSince(start);
  }

  // A connection and as many round trips as a job needs: handshake, printer, session, end.
  double rawEmpty() {
    const auto start = Clock::now();
    Socket socket = Socket::connect("localhost", m_rawPort, false);
    unsigned char ping[65] = {'p'};
    sendAll(socket, ping);
    for (int i = 0; i < 4; ++i) {
      if (i > 0) sendAll(socket, std::span(ping).last(64));
      receiveAll(socket, std::span(ping).last(64));
    }
    return secondsSince(start);
  }

  double job(std::size_t total, std::size_t write) {
    std::vector<unsigned char> data(write, 'x');
    std::wstring document = L"bench";
    std::wstring type = L"RAW";
    DOC_INFO_1W info{document.data(), nullptr, type.data()};
    const auto start = Clock::now();
    if (!m_operations.pfnStartDocPort(m_port, m_printer.data(), 1, 1, reinterpret_cast<BYTE*>(&info)))
      fail("start of document");
    for (std::size_t sent = 0; sent < total; sent += write) {
      DWORD written = 0;
      if (!m_operations.pfnWritePort(m_port, data.data(), static_cast<DWORD>(write), &written) || written != write)
        fail("write");
    }
    if (!m_operations.pfnEndDocPort(m_port)) fail("end of document");
    return secondsSince(start);
  }

 private:
  [[noreturn]] static void fail(const char* what) {
    std::fprintf(stderr, "bench_jobs: the %s failed; the logs of aps and of the module say why\n", what);
    std::exit(1);
  }

  const MONITOR2& m_operations;
  HANDLE m_port;
  std::wstring m_printer;
  std::uint16_t m_rawPort;
};

double median(std::vector<double> values) {
  std::sort(values.begin(), values.end());
  return values[values.size() / 2];
}

void compareStreams(Bench& bench, int rounds) {
  for (const std::size_t write : {4096u, 32768u, 65536u}) {
    const std::size_t total = write * (write == 4096u ? 8192u : 2048u);
    std::vector<double> raw, product;
    for (int round = 0; round < rounds; ++round) {
      raw.push_back(bench.rawStream(total, write));
      product.push_back(bench.job(total, write));
    }
    const double megabytes = static_cast<double>(total) / 1e6;
    std::printf("stream, writes of %2zu KiB: raw %7.1f MB/s, monitor %7.1f MB/s, ratio %.2f\n", write / 1024,
                megabytes / median(raw), megabytes / median(product), median(raw) / median(product));
  }
}

void compareEmptyJobs(Bench& bench, int rounds) {
  std::vector<double> raw, product;
  for (int round = 0; round < 4 * rounds; ++round) {
    raw.push_back(bench.rawEmpty());
    product.push_back(bench.job(0, 1));
  }
  std::printf("empty job: raw %.0f us, monitor %.0f us, ratio %.2f\n", 1e6 * median(raw), 1e6 * median(product),
              median(product) / median(raw));
}

}  // namespace

int wmain(int count, wchar_t** arguments) {
  if (count < 4) {
    std::fprintf(stderr, "usage: bench_jobs PRINTER PORT-NAME RAW-PORT [ROUNDS]\n");
    return 2;
  }
  corvane::initializeNetwork();
  const int rounds = count > 4 ? _wtoi(arguments[4]) : 7;
  try {
    const mg::support::MonitorTable& monitor = mg::support::loadMonitor();
    HANDLE port = nullptr;
    if (!monitor.operations->pfnOpenPort(monitor.monitor, arguments[2], &port)) {
      std::fprintf(stderr, "bench_jobs: the module has no port %ls\n", arguments[2]);
      return 1;
    }
    Bench bench(*monitor.operations, port, arguments[1], static_cast<std::uint16_t>(_wtoi(arguments[3])));
    bench.job(4096, 4096);
    compareStreams(bench, rounds);
    compareEmptyJobs(bench, rounds);
    monitor.operations->pfnClosePort(port);
  } catch (const CS_Exception& exception) {
    std::fprintf(stderr, "bench_jobs: %ls\n", exception.detail());
    return 1;
  } catch (const mg::support::SystemFailure& failure) {
    std::fprintf(stderr, "bench_jobs: %s\n", failure.what());
    return 1;
  }
  return 0;
}
