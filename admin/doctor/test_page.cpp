#include "admin/doctor/test_page.h"

#include "admin/base/failure.h"
#include "admin/base/files.h"
#include "admin/sessions/session_printers.h"
#include "admin/sessions/test_session.h"
#include "admin/spooler/raw_document.h"
#include "admin/spooler/spooler_port.h"
#include "corvane/base/text.h"

namespace admin {
namespace {

constexpr unsigned kArrivalMilliseconds = 30000;

// The port and printer of the test; gone with the object.
class TestPrinter {
 public:
  explicit TestPrinter(int session) : m_session(static_cast<unsigned>(session)) { addPort(sessionPort(m_session)); }
  ~TestPrinter() {
    try {
      takeDown(m_session);
    } catch (const Failure&) {
      // The failure of the test says more; what is left shows in the list of ports.
    }
  }
  TestPrinter(const TestPrinter&) = delete;
  TestPrinter& operator=(const TestPrinter&) = delete;

 private:
  unsigned m_session;
};

std::wstring chosenDriver(const TestPageOptions& options) {
  if (!options.driver.empty()) return options.driver;
  const std::vector<std::wstring> installed = installedDrivers();
  if (!installed.empty()) return installed.front();
  throw Failure(ExitCode::kNotFound, "no printer driver is installed, so no printer can be made",
                "Install a printer driver.");
}

void compare(const std::string& arrived) {
  if (arrived == kTestPage) return;
  throw Failure(ExitCode::kFailed,
                "what arrived is not what was printed: " + std::to_string(arrived.size()) + " bytes instead of " +
                    std::to_string(std::string(kTestPage).size()),
                "Look for a print processor or driver that changes raw data.");
}

}  // namespace

std::string printTestPage(const ServerFacts& server, const TestPageOptions& options) {
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
  // The spooler that gave the job up has done so before it said so.
  if (!session.arrival().wait(spooled.endError != 0 ? 0 : kArrivalMilliseconds)) {
    throw Failure(ExitCode::kFailed,
                  spooled.endError != 0
                      ? "the spooler did not print the page: " + errorWords(spooled.endError)
                      : "the page did not arrive within " + std::to_string(kArrivalMilliseconds / 1000) + " s",
                  "mgprintmon status shows the last failures; look for a queue that is paused.");
  }
  compare(session.arrival().bytes());
  return std::to_string(session.arrival().bytes().size()) +
         " bytes went through spooler, monitor and aps and came back";
}

}  // namespace admin
