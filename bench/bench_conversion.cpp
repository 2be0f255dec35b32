// Measures a PostScript job for a client printer that wants PDF against Ghostscript alone and the start of one Windows
// program, in turns within one run:
//
//   bench_conversion ROUNDS PRINTER PORT-NAME RAW-PORT FOLDER DOCUMENT      with MgPrintMon.dll and ps2pdf.exe beside
//   it
//
// The raw sink's command is that Ghostscript with that document. Documents that the print client has are in "out" of
// the folder, and removed behind each turn.

#include "bench/port_jobs.h"
#include "bench/raw_peer.h"
#include "bench/samples.h"
#include "util/win_handle.h"

#include <windows.h>

#include <fstream>
#include <iterator>

namespace {

using bench::Clock;
using bench::secondsSince;

constexpr std::size_t kWrite = 65536;

// A Windows program that does nothing.
void startProgram() {
  wchar_t command[] = L"ps2pdf.exe --version";
  STARTUPINFOW startup = {};
  startup.cb = sizeof startup;
  PROCESS_INFORMATION started = {};
  if (!CreateProcessW(nullptr, command, nullptr, nullptr, FALSE, CREATE_NO_WINDOW, nullptr, nullptr, &startup,
                      &started)) {
    bench::giveUp("ps2pdf.exe cannot be started");
  }
  WaitForSingleObject(started.hProcess, INFINITE);
  CloseHandle(started.hThread);
  CloseHandle(started.hProcess);
}

std::vector<unsigned char> contentOf(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  std::vector<unsigned char> content{std::istreambuf_iterator<char>(file), {}};
  if (content.empty()) bench::giveUp("there is no document " + path);
  return content;
}

class Conversion {
 public:
  Conversion(PortJobs& jobs, std::uint16_t relay, std::string folder, std::vector<unsigned char> document)
      : m_jobs(jobs), m_relay(relay), m_folder(std::move(folder)), m_document(std::move(document)) {}

  double raw() const {
    const auto start = Clock::now();
    startProgram();
    bench::runRawCommand(m_relay);
    return secondsSince(start);
  }

  double product() {
    const auto start = Clock::now();
    m_jobs.printDocument(m_document, kWrite);
    const double seconds = secondsSince(start);
    emptyFolder(m_folder + "\\out");
    return seconds;
  }

 private:
  PortJobs& m_jobs;
  const std::uint16_t m_relay;
  const std::string m_folder;
  const std::vector<unsigned char> m_document;
};

std::string narrow(const wchar_t* text) {
  return {text, text + std::wcslen(text)};
}

}  // namespace

int wmain(int count, wchar_t** arguments) {
  if (count != 7) {
    std::fprintf(stderr, "usage: bench_conversion ROUNDS PRINTER PORT-NAME RAW-PORT FOLDER DOCUMENT\n");
    return 2;
  }
  corvane::initializeNetwork();
  return bench::runMeasurements([&] {
    PortJobs jobs(arguments[3], arguments[2]);
    Conversion conversion(jobs, static_cast<std::uint16_t>(_wtoi(arguments[4])), narrow(arguments[5]),
                          contentOf(narrow(arguments[6])));
    bench::takeTurns(
        "postscript", _wtoi(arguments[1]), [&] { return conversion.raw(); }, [&] { return conversion.product(); });
  });
}
