#include "admin/base/failure.h"
#include "admin/base/files.h"
#include "admin/doctor/checks.h"
#include "admin/sessions/driver_choice.h"
#include "admin/sessions/session_printers.h"
#include "admin/sessions/test_session.h"
#include "admin/spooler/spooler_port.h"
#include "corvane/base/text.h"
#include "programs/text.h"
#include "util/win_handle.h"

#include <fmt/format.h>
#include <fmt/xchar.h>

namespace admin {
namespace {

constexpr DWORD kConversionMilliseconds = 120000;
constexpr unsigned kMostWords = 2000;
constexpr ULONGLONG kEnoughSpace = 100ull * 1024 * 1024;

mg::FileHandle inheritableFile(const std::wstring& path) {
  SECURITY_ATTRIBUTES inheritable = {};
  inheritable.nLength = sizeof inheritable;
  inheritable.bInheritHandle = TRUE;
  mg::FileHandle file(CreateFileW(path.c_str(), GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_DELETE, &inheritable,
                                  CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr));
  require(static_cast<bool>(file), fmt::format("{} cannot be made", programs::quoted(path)));
  return file;
}

// Runs the converter to its end and returns its exit code.
DWORD convert(const std::wstring& converter, const std::wstring& document, const std::wstring& words) {
  const mg::FileHandle output = inheritableFile(words);
  STARTUPINFOW start = {};
  start.cb = sizeof start;
  start.dwFlags = STARTF_USESTDHANDLES;
  start.hStdOutput = start.hStdError = output.get();
  PROCESS_INFORMATION process = {};
  std::wstring line = fmt::format(L"\"{}\" \"{}\"", converter, document);
  require(CreateProcessW(converter.c_str(), line.data(), nullptr, nullptr, TRUE, CREATE_NO_WINDOW, nullptr, nullptr,
                         &start, &process),
          fmt::format("{} cannot be started", programs::quoted(converter)));
  const mg::ObjectHandle running(process.hProcess);
  const mg::ObjectHandle thread(process.hThread);
  if (WaitForSingleObject(running.get(), kConversionMilliseconds) != WAIT_OBJECT_0) {
    TerminateProcess(running.get(), 1);
    throw Failure(ExitCode::kFailed, "the converter did not end within two minutes",
                  "Look for a Ghostscript that hangs, and at the load of the machine.");
  }
  DWORD code = 0;
  require(GetExitCodeProcess(running.get(), &code), "the converter's exit code cannot be read");
  return code;
}

}  // namespace

std::string checkConverter(const Places& places) {
  if (!fileExists(places.converter())) {
    throw Failure(ExitCode::kNotFound, fmt::format("{} is missing", programs::quoted(places.converter())),
                  "Run mgprintmon install: it restores what is missing.");
  }
  const ScratchFile document(L".ps");
  const ScratchFile pdf = document.sibling(L".pdf");
  const ScratchFile words = document.sibling(L".log");
  document.write(kTestPage);
  const DWORD code = convert(places.converter(), document.path(), words.path());
  if (code != 0) {
    throw Failure(ExitCode::kFailed,
                  fmt::format("a page was not converted (exit code {}): {}", code,
                              programs::oneLine(corvane::fromUtf8(fileTail(words.path(), kMostWords)))),
                  "Exit code 4 asks for Ghostscript: install it, or name it in the registry value GhostscriptPath of "
                  "SOFTWARE\\Quillfern\\Marrowgate\\Converter.");
  }
  const std::string content = fileTail(pdf.path(), 1024 * 1024);
  if (!content.starts_with("%PDF-")) {
    throw Failure(ExitCode::kFailed, "the output of the converter is not a PDF", "Check the Ghostscript that it uses.");
  }
  return fmt::format("a page became a PDF of {} bytes", content.size());
}

std::string checkTemporaryFolder() {
  const ScratchFile file(L".txt");
  file.write("written by mgprintmon doctor\n");
  if (fileTail(file.path(), 100) != "written by mgprintmon doctor\n") {
    throw Failure(ExitCode::kFailed, fmt::format("{} does not hold what was written", programs::quoted(file.path())),
                  "Check the disk, and programs that intercept access to its files.");
  }
  ULARGE_INTEGER space = {};
  require(GetDiskFreeSpaceExW(ScratchFile::folder().c_str(), &space, nullptr, nullptr),
          fmt::format("the free space of {} cannot be determined", programs::quoted(ScratchFile::folder())));
  const std::string megabytes = fmt::format("{} MB", space.QuadPart / (1024 * 1024));
  if (space.QuadPart < kEnoughSpace) {
    throw Failure(ExitCode::kFailed, fmt::format("{} has {} left", programs::quoted(ScratchFile::folder()), megabytes),
                  "Make room: a conversion needs the document several times.");
  }
  return fmt::format("{} can be written, {} left", corvane::toUtf8(ScratchFile::folder()), megabytes);
}

namespace {

constexpr unsigned kArrivalMilliseconds = 30000;

// The port and the printer of the test; the destructor removes them.
class TestPrinter {
 public:
  explicit TestPrinter(int session) : m_session(static_cast<unsigned>(session)) { addPort(sessionPort(m_session)); }
  ~TestPrinter() {
    try {
      takeDown(m_session);
    } catch (const Failure&) {
      // The failure of the test itself is more useful; a remaining port shows in the list of ports.
    }
  }
  TestPrinter(const TestPrinter&) = delete;
  TestPrinter& operator=(const TestPrinter&) = delete;

 private:
  unsigned m_session;
};

std::wstring chosenDriver(const TestPageOptions& options) {
  if (!options.driver.empty()) return options.driver;
  const ServerDrivers drivers = ServerDrivers::ofThisMachine();
  const std::wstring usual = chooseDriver(drivers.settings.fallback, {}, drivers).driver;
  if (!usual.empty()) return usual;
  for (const PrinterDriver& driver : drivers.installed) {
    if (driver.signOfXps().empty()) return driver.name;
  }
  throw Failure(ExitCode::kNotFound, "no printer driver is installed that can be used, so no printer can be made",
                "Install a printer driver of version 3 that sends PostScript.");
}

void compare(const std::string& arrived) {
  if (arrived == kTestPage) return;
  throw Failure(ExitCode::kFailed,
                fmt::format("what arrived is not what was printed: {} bytes instead of {}", arrived.size(),
                            std::string(kTestPage).size()),
                "Look for a print processor or driver that changes raw data.");
}

}  // namespace

std::string printTestPage(const protocol::ServerStatus& server, const TestPageOptions& options) {
  const std::wstring driver = chosenDriver(options);
  const int number = freeTestSession(server, monitorPorts());
  TestSession session(number, options.serverPort, options.keyFile, driver);
  const TestPrinter port(number);
  addPrinter({session.localName(), sessionPort(static_cast<unsigned>(number)), driver,
              options.processor.empty() ? L"winprint" : options.processor, L"A test of mgprintmon doctor"});
  const ScratchFile page(L".ps");
  page.write(kTestPage);
  const SpooledDocument spooled =
      printDocument({session.localName(), page.path(), L"mgprintmon test page", 1}, [](auto, auto) {});
  // When the spooler reports an error it has already given up the job.
  if (!session.arrival().wait(spooled.endError != 0 ? 0 : kArrivalMilliseconds)) {
    throw Failure(ExitCode::kFailed,
                  spooled.endError != 0
                      ? fmt::format("the spooler did not print the page: {}", errorWords(spooled.endError))
                      : fmt::format("the page did not arrive within {} s", kArrivalMilliseconds / 1000),
                  "mgprintmon status shows the last failures; look for a queue that is paused.");
  }
  compare(session.arrival().bytes());
  return fmt::format("{} bytes went through spooler, monitor and aps and came back", session.arrival().bytes().size());
}

}  // namespace admin
