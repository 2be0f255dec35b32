// Loads the print monitor as a spooler does, without a spooler, and brings one document to a port. Says the result of
// each call; see README.md of this folder.
#include "tests/support/spooler/port_job.h"
#include "tests/support/spooler/stand_in_queue.h"
#include "tests/support/spooler/system_failure.h"

#include <windows.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <functional>
#include <stdexcept>
#include <string>
#include <vector>

namespace {

using mg::support::MonitorTable;
using mg::support::utf8;
using mg::support::wide;

constexpr char kOpenPort[] = "OpenPort", kStartDocPort[] = "StartDocPort", kWritePort[] = "WritePort";
constexpr char kLastWrite[] = "LastWrite";

struct Arguments {
  std::string port, printer, document = "document", file, datatype = "RAW";
  unsigned long long pattern = 0;
  DWORD writeSize = 65536;
  DWORD job = 1;
  bool eachWrite = false;
  bool standInQueue = false;
  std::vector<std::string> holdAfter;
  DWORD repeat = 1;
  DWORD reportEvery = 1000;
};

void addOptions(CLI::App& app, Arguments& arguments) {
  app.add_option("--port", arguments.port, "port to print on, as in CPP5; added when missing")->required();
  app.add_option("--printer", arguments.printer, "printer name that the spooler would give")->required();
  app.add_option("--document", arguments.document)->capture_default_str();
  app.add_option("--datatype", arguments.datatype)->capture_default_str();
  app.add_option("--job", arguments.job, "job number")->capture_default_str();
  app.add_option("--write-size", arguments.writeSize, "bytes of one write")
      ->check(CLI::Range(1u, 1u << 30))
      ->capture_default_str();
  app.add_option("--pattern", arguments.pattern, "print this many bytes, the byte at offset n being n * 31 mod 251");
  app.add_option("--file", arguments.file, "print this file");
  app.add_flag("--each-write", arguments.eachWrite, "say every write, not only the last one and failures");
  app.add_flag("--stand-in-queue", arguments.standInQueue,
               "every printer and job is there, and what the monitor does to a job in its queue is said");
  app.add_option("--hold-after", arguments.holdAfter, "say so and wait for a line of input after this")
      ->check(CLI::IsMember({kOpenPort, kStartDocPort, kWritePort, kLastWrite}));
  app.add_option("--repeat", arguments.repeat, "print so many documents, with numbers behind their names")
      ->capture_default_str();
  app.add_option("--report-every", arguments.reportEvery, "with --repeat: hold after so many documents")
      ->check(CLI::Range(1u, 1u << 30))
      ->capture_default_str();
}

mg::support::ReadData patternReader(unsigned long long size) {
  return [size, at = 0ull](BYTE* buffer, DWORD room) mutable {
    const DWORD count = static_cast<DWORD>(std::min<unsigned long long>(room, size - at));
    for (DWORD i = 0; i < count; ++i)
      buffer[i] = static_cast<BYTE>((at + i) * 31 % 251);
    at += count;
    return count;
  };
}

mg::support::ReadData fileReader(std::ifstream& file) {
  return [&file](BYTE* buffer, DWORD room) {
    file.read(reinterpret_cast<char*>(buffer), room);
    return static_cast<DWORD>(file.gcount());
  };
}

// Waits for the one who started this program, who may do what he likes in between.
void hold(const std::string& after) {
  std::printf("holding after %s\n", after.c_str());
  std::fflush(stdout);
  char line[16];
  if (std::fgets(line, sizeof line, stdin) == nullptr) throw std::runtime_error("the input ended while holding");
}

// Says "StartDocPort ok" or "StartDocPort failed (1722)", and the writes as one line with their count; of one document
// among many only what failed.
class Teller {
 public:
  explicit Teller(const Arguments& arguments) : m_arguments(arguments) {}

  void operator()(const char* call, bool succeeded, DWORD error) {
    const bool write = call == std::string(kWritePort);
    if (succeeded && m_arguments.repeat > 1) return;
    if (write && succeeded && !m_arguments.eachWrite) {
      ++m_writes;
      if (m_writes == 1) holdAfter(call);
      return;
    }
    if (m_writes > 0) std::printf("WritePort ok %lu times\n", m_writes);
    m_writes = 0;
    if (succeeded) {
      std::printf("%s ok\n", call);
    } else {
      std::printf("%s failed (%lu)\n", call, static_cast<unsigned long>(error));
    }
    std::fflush(stdout);
    if (succeeded) holdAfter(call);
  }

  void holdAfter(const std::string& call) const {
    const auto& calls = m_arguments.holdAfter;
    if (std::find(calls.begin(), calls.end(), call) != calls.end()) hold(call);
  }

 private:
  const Arguments& m_arguments;
  unsigned long m_writes = 0;
};

void addPortToMonitor(const MonitorTable& monitor, std::wstring port) {
  HANDLE channel = nullptr;
  DWORD needed = 0;
  mg::support::require(monitor.operations->pfnXcvOpenPort(monitor.monitor, L"", SERVER_ACCESS_ADMINISTER, &channel),
                       "XcvOpenPort failed");
  const DWORD status =
      monitor.operations->pfnXcvDataPort(channel, L"AddPort", reinterpret_cast<BYTE*>(port.data()),
                                         static_cast<DWORD>((port.size() + 1) * sizeof(wchar_t)), nullptr, 0, &needed);
  monitor.operations->pfnXcvClosePort(channel);
  if (status != ERROR_SUCCESS) throw mg::support::SystemFailure("AddPort failed", status);
}

mg::support::PortJob jobOf(const Arguments& arguments) {
  mg::support::PortJob job;
  job.port = wide(arguments.port);
  job.printer = wide(arguments.printer);
  job.job = arguments.job;
  job.document = wide(arguments.document);
  job.datatype = wide(arguments.datatype);
  job.writeSize = arguments.writeSize;
  return job;
}

int printOnce(const MonitorTable& monitor, const Arguments& arguments) {
  std::ifstream file;
  mg::support::ReadData read = patternReader(arguments.pattern);
  if (!arguments.file.empty()) {
    file.open(std::filesystem::path(wide(arguments.file)), std::ios::binary);
    if (!file) throw std::runtime_error("\"" + arguments.file + "\" cannot be opened");
    read = fileReader(file);
  }
  Teller teller(arguments);
  const mg::support::ReadData readAndHold = [&](BYTE* buffer, DWORD room) {
    const DWORD count = read(buffer, room);
    if (count == 0) teller.holdAfter(kLastWrite);
    return count;
  };
  const std::string failed = printOnPort(monitor, jobOf(arguments), readAndHold, std::ref(teller));
  std::printf("%s\n", failed.empty() ? "printed" : ("not printed: " + failed + " failed").c_str());
  return failed.empty() ? 0 : 1;
}

// Many documents, each in its turn; the median time of those since the last hold is said before each hold.
int printOften(const MonitorTable& monitor, const Arguments& arguments) {
  mg::support::PortJob job = jobOf(arguments);
  std::vector<long long> times;
  for (DWORD number = 1; number <= arguments.repeat; ++number) {
    job.job = arguments.job + number - 1;
    job.document = wide(arguments.document) + L" " + std::to_wstring(number);
    const auto begin = std::chrono::steady_clock::now();
    const std::string failed = printOnPort(monitor, job, patternReader(arguments.pattern), Teller(arguments));
    times.push_back((std::chrono::steady_clock::now() - begin) / std::chrono::microseconds(1));
    if (!failed.empty()) {
      std::printf("not printed: %s failed in document %lu\n", failed.c_str(), static_cast<unsigned long>(number));
      return 1;
    }
    if (number % arguments.reportEvery != 0) continue;
    std::nth_element(times.begin(), times.begin() + static_cast<std::ptrdiff_t>(times.size() / 2), times.end());
    std::printf("%lu documents, median %lld us\n", static_cast<unsigned long>(number), times[times.size() / 2]);
    times.clear();
    hold(std::to_string(number));
  }
  std::printf("printed\n");
  return 0;
}

int run(const Arguments& arguments) {
  const MonitorTable& monitor = mg::support::loadMonitor();
  if (arguments.standInQueue) mg::support::useStandInQueue(GetModuleHandleW(L"MgPrintMon.dll"));
  addPortToMonitor(monitor, wide(arguments.port));
  return arguments.repeat > 1 ? printOften(monitor, arguments) : printOnce(monitor, arguments);
}

}  // namespace

int wmain(int count, wchar_t** words) {
  CLI::App app("Brings one document to a port of the print monitor, as a spooler does.", "port_host");
  Arguments arguments;
  addOptions(app, arguments);
  // CLI11 takes the words last first.
  std::vector<std::string> reversed;
  for (int i = count - 1; i > 0; --i)
    reversed.push_back(utf8(words[i]));
  try {
    app.parse(reversed);
    return run(arguments);
  } catch (const CLI::ParseError& error) {
    return app.exit(error);
  } catch (const std::exception& error) {
    std::fprintf(stderr, "port_host: %s\n", error.what());
    return 1;
  }
}
