#include "admin/sessions/driver_choice.h"

#include "programs/text.h"

#include <algorithm>
#include <fmt/format.h>

namespace admin {
namespace {

// What is the matter with the client's own driver.
std::string aboutOwn(const std::wstring& name, const PrinterDriver* own) {
  if (own != nullptr)
    return fmt::format("cannot have the driver {}, which sends XPS ({})", programs::quoted(name), own->signOfXps());
  if (name.empty()) return "names no driver";
  return fmt::format("needs the driver {}, which is not installed", programs::quoted(name));
}

}  // namespace

ServerDrivers ServerDrivers::ofThisMachine() {
  return {installedDrivers(), DriverSettings::read(Places())};
}

DriverChoice chooseDriver(const std::wstring& clientDriver, const std::wstring& substitute,
                          const ServerDrivers& drivers) {
  const PrinterDriver* const own = findDriver(drivers.installed, clientDriver);
  if (own != nullptr && own->signOfXps().empty()) return {own->name, {}};
  std::string why = aboutOwn(clientDriver, own);
  const DriverMapping* const line = drivers.settings.lineFor(clientDriver);
  std::vector<std::wstring> others;
  if (line != nullptr) others.push_back(line->driver);
  if (!substitute.empty() && (others.empty() || others.front() != substitute)) others.push_back(substitute);
  bool isMissing = own == nullptr && !clientDriver.empty();
  for (const std::wstring& name : others) {
    const PrinterDriver* const found = findDriver(drivers.installed, name);
    if (found != nullptr && found->signOfXps().empty()) return {found->name, {}};
    if (found != nullptr) {
      why += fmt::format("; in its place {}", obstacleOf(*found));
    } else {
      why += fmt::format("{} {} in its place{}", isMissing ? ", nor is" : ";", programs::quoted(name),
                         isMissing ? "" : " is not installed");
    }
    isMissing = found == nullptr;
  }
  return {{}, why};
}

}  // namespace admin
