// Loads the print monitor as a spooler does, without a spooler, and brings one document to a port. Says the result of
// each call; see README.md of this folder.
#include "tests/support/spooler/port_job.h"
#include "tests/support/spooler/system_failure.h"

#include <windows.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

namespace {

using mg::support::MonitorTable;
using mg::support::utf8;
using mg::support::wide;

struct Arguments {
  std::string port, printer, document = "document", file, datatype = "RAW";
  unsigned long long pattern = 0;
  DWORD writeSize = 65536;
  DWORD job = 1;
  bool eachWrite = false;
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

// Says "StartDocPort ok" or "StartDocPort failed (1722)", and the writes as one line with their count.
class Teller {
 public:
  explicit Teller(bool eachWrite) : m_eachWrite(eachWrite) {}

  void operator()(const char* call, bool succeeded, DWORD error) {
    const bool write = std::string(call) == "WritePort";
    if (write && succeeded && !m_eachWrite) {
      ++m_writes;
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
  }

 private:
  bool m_eachWrite;
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

int run(const Arguments& arguments) {
  std::ifstream file;
  mg::support::ReadData read = patternReader(arguments.pattern);
  if (!arguments.file.empty()) {
    file.open(std::filesystem::path(wide(arguments.file)), std::ios::binary);
    if (!file) throw std::runtime_error("\"" + arguments.file + "\" cannot be opened");
    read = fileReader(file);
  }
  const MonitorTable& monitor = mg::support::loadMonitor();
  addPortToMonitor(monitor, wide(arguments.port));
  mg::support::PortJob job;
  job.port = wide(arguments.port);
  job.printer = wide(arguments.printer);
  job.job = arguments.job;
  job.document = wide(arguments.document);
  job.datatype = wide(arguments.datatype);
  job.writeSize = arguments.writeSize;
  const std::string failed = printOnPort(monitor, job, read, Teller(arguments.eachWrite));
  std::printf("%s\n", failed.empty() ? "printed" : ("not printed: " + failed + " failed").c_str());
  return failed.empty() ? 0 : 1;
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
