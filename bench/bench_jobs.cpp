// Measures jobs through MgPrintMon.dll against raw sockets on the same hops, in turns within one run.
//
//   bench_jobs ROUNDS MEASUREMENTS PRINTER PORT-NAME RAW-PORT FOLDER      with MgPrintMon.dll beside it
//
// MEASUREMENTS is a list of "direct-4k", "direct-32k", "direct-64k", "disk-64k" and "empty", separated by commas. The
// documents, those of the raw sink and those of the print client, are in "raw" and "out" of the folder; they are
// removed behind each turn, when nobody looks at the clock. The time of a job goes from the start of the document to
// the end of MGEndDocPort, that of a raw stream from its connection to the answer of the sink.
//
//   bench_jobs memory PRINTER PORT-NAME FOLDER PROCESS PROCESS
//
// prints how much the highest memory of this process, of aps and of the print client grows by a job of 1 GB behind
// empty ones.

#include "bench/port_jobs.h"
#include "bench/raw_peer.h"
#include "bench/samples.h"

#include <windows.h>

#include <fstream>
#include <psapi.h>

namespace {

using bench::Clock;
using bench::secondsSince;

constexpr std::size_t kMiB = 1024 * 1024;

struct Stream {
  const char* name;
  std::size_t write;
  std::uint64_t total;  // past what a print client keeps for the person's page, 64 MiB: that copy is no part of it
};
constexpr Stream kStreams[] = {{"direct-4k", 4096, 72 * kMiB},
                               {"direct-32k", 32768, 128 * kMiB},
                               {"direct-64k", 65536, 128 * kMiB},
                               {"disk-64k", 65536, 96 * kMiB}};
constexpr int kEmptyJobs = 40;  // in one turn
// What an empty job cannot do without: the handshake, the printer's description and the attachment are answered by aps,
// the end of the document by the print client.
constexpr int kAnsweredByServer = 3;

std::string narrow(const wchar_t* text) {
  return {text, text + std::wcslen(text)};
}

class Bench {
 public:
  Bench(int rounds, PortJobs& jobs, std::uint16_t relay, std::string folder)
      : m_rounds(rounds), m_jobs(jobs), m_relay(relay), m_folder(std::move(folder)) {}

  void compare(const Stream& stream) {
    const std::vector<unsigned char> piece(stream.write, 'x');
    bench::takeTurns(
        stream.name, m_rounds,
        [&] { return rateOf(stream.total, [&] { bench::streamRaw(m_relay, piece, stream.total); }); },
        [&] { return rateOf(stream.total, [&] { m_jobs.print(piece, stream.total); }); });
  }

  void compareEmpty() {
    bench::takeTurns(
        "empty", m_rounds, [&] { return bench::secondsOf(kEmptyJobs, [&] { rawEmpty(); }); },
        [&] {
          const double seconds = bench::secondsOf(kEmptyJobs, [&] { m_jobs.print({}, 0); });
          emptyFolder(m_folder + "\\out");
          return seconds;
        });
  }

 private:
  // MB a second.
  template <class Call>
  double rateOf(std::uint64_t bytes, Call call) const {
    const auto start = Clock::now();
    call();
    const double seconds = secondsSince(start);
    emptyFolder(m_folder + "\\out");
    emptyFolder(m_folder + "\\raw");
    return 1e-6 * static_cast<double>(bytes) / seconds;
  }

  void rawEmpty() const {
    bench::RawPings pings(m_relay);
    for (int i = 0; i < kAnsweredByServer; ++i)
      pings.ask(bench::kByRelay);
    pings.ask(bench::kBySink);
  }

  const int m_rounds;
  PortJobs& m_jobs;
  const std::uint16_t m_relay;
  const std::string m_folder;
};

double ownPeak() {
  PROCESS_MEMORY_COUNTERS counters = {};
  counters.cb = sizeof counters;
  GetProcessMemoryInfo(GetCurrentProcess(), &counters, sizeof counters);
  return static_cast<double>(counters.PeakWorkingSetSize);
}

// The same of a process of the host, in bytes.
double hostsPeak(const std::string& process) {
  std::ifstream status("Z:\\proc\\" + process + "\\status");
  for (std::string word; status >> word;) {
    double kilobytes = 0;
    if (word == "VmHWM:" && status >> kilobytes) return kilobytes * 1024;
  }
  bench::giveUp("there is no process " + process);
}

void measureMemory(wchar_t** arguments) {
  PortJobs jobs(arguments[1], arguments[0]);
  const std::vector<unsigned char> piece(65536, 'x');
  const std::string out = narrow(arguments[2]) + "\\out";
  const std::string server = narrow(arguments[3]), client = narrow(arguments[4]);
  for (int i = 0; i < 3; ++i)
    jobs.print({}, 0);
  emptyFolder(out);
  const double before[] = {ownPeak(), hostsPeak(server), hostsPeak(client)};
  jobs.print(piece, 1000 * std::uint64_t{1000000});
  bench::sample("memory-host", bench::kProduct, ownPeak() - before[0]);
  bench::sample("memory-aps", bench::kProduct, hostsPeak(server) - before[1]);
  bench::sample("memory-client", bench::kProduct, hostsPeak(client) - before[2]);
  emptyFolder(out);
}

void measure(wchar_t** arguments) {
  const std::string wanted = narrow(arguments[1]);
  PortJobs jobs(arguments[3], arguments[2]);
  Bench bench(_wtoi(arguments[0]), jobs, static_cast<std::uint16_t>(_wtoi(arguments[4])), narrow(arguments[5]));
  for (const Stream& stream : kStreams) {
    if (bench::isAsked(wanted, stream.name)) bench.compare(stream);
  }
  if (bench::isAsked(wanted, "empty")) bench.compareEmpty();
}

}  // namespace

int wmain(int count, wchar_t** arguments) {
  if (count != 7) {
    std::fprintf(stderr,
                 "usage: bench_jobs ROUNDS MEASUREMENTS PRINTER PORT-NAME RAW-PORT FOLDER\n"
                 "       bench_jobs memory PRINTER PORT-NAME FOLDER APS-PROCESS PRINTCLIENT-PROCESS\n");
    return 2;
  }
  corvane::initializeNetwork();
  return bench::runMeasurements(
      [&] { std::wstring(arguments[1]) == L"memory" ? measureMemory(arguments + 2) : measure(arguments + 1); });
}
