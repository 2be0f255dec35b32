#include "admin/base/failure.h"
#include "admin/doctor/checks.h"
#include "admin/sessions/session_printers.h"
#include "admin/sessions/test_session.h"
#include "programs/text.h"

#include <algorithm>
#include <fmt/format.h>

namespace admin {
namespace {

class Complaints {
 public:
  void add(const std::string& text) { m_text += fmt::format("{}{}", m_text.empty() ? "" : "; ", text); }
  const std::string& text() const { return m_text; }

 private:
  std::string m_text;
};

// A driver that is set for printers of sessions, with words for what it is set as.
void examineSetting(const std::string& what, const std::wstring& name, const ServerDrivers& drivers,
                    Complaints& complaints) {
  const PrinterDriver* const found = findDriver(drivers.installed, name);
  const std::string obstacle =
      found == nullptr ? fmt::format("{} is not installed", programs::quoted(name)) : obstacleOf(*found);
  if (!obstacle.empty()) complaints.add(fmt::format("{} {}", what, obstacle));
}

void examineSettings(const ServerDrivers& drivers, Complaints& complaints) {
  if (!drivers.settings.fallback.empty())
    examineSetting("FallbackDriver", drivers.settings.fallback, drivers, complaints);
  for (const DriverMapping& line : drivers.settings.table)
    examineSetting(fmt::format("the driver for {},", programs::quoted(line.pattern)), line.driver, drivers, complaints);
}

void examineSession(const protocol::ListedSession& session, const std::vector<SpoolerPrinter>& present,
                    const ServerDrivers& drivers, Complaints& complaints) {
  for (const SpoolerPrinter& here : present) {
    const bool isOurs = std::any_of(session.printers.begin(), session.printers.end(),
                                    [&here](const auto& printer) { return printer.localName == here.name; });
    const PrinterDriver* const driver = isOurs ? findDriver(drivers.installed, here.driver) : nullptr;
    const std::string sign = driver == nullptr ? std::string() : driver->signOfXps();
    if (sign.empty()) continue;
    complaints.add(fmt::format("printer {} has the driver {} here, which sends XPS ({})", programs::quoted(here.name),
                               programs::quoted(here.driver), sign));
  }
  if (!session.isConnected) return;
  for (const RefusedPrinter& refused : planPrinters(session, {}, drivers).refused)
    complaints.add(refused.why);
}

}  // namespace

std::string checkServerDrivers(const std::vector<protocol::ListedSession>& sessions,
                               const std::vector<SpoolerPrinter>& present, const ServerDrivers& drivers) {
  Complaints complaints;
  examineSettings(drivers, complaints);
  for (const protocol::ListedSession& session : sessions) {
    if (!isTestSession(session.number)) examineSession(session, present, drivers, complaints);
  }
  if (!complaints.text().empty()) {
    throw Failure(ExitCode::kFailed, complaints.text(),
                  "Name drivers that are installed and send PostScript, with mgprintmon install --driver NAME and "
                  "mgprintmon drivers map PATTERN NAME; \"mgprintmon drivers\" shows which can be used.");
  }
  const auto usable = std::count_if(drivers.installed.begin(), drivers.installed.end(),
                                    [](const PrinterDriver& driver) { return driver.signOfXps().empty(); });
  const std::string fallback = drivers.settings.fallback.empty()
                                   ? "no FallbackDriver is set: printers whose own driver cannot be used are refused"
                                   : fmt::format("FallbackDriver is {}", programs::quoted(drivers.settings.fallback));
  return fmt::format("{} of {} can be used; {}", usable, drivers.installed.size(), fallback);
}

}  // namespace admin
