#include "admin/base/registry_value.h"
#include "admin/commands/invocation.h"
#include "admin/install/installation_record.h"
#include "admin/sessions/driver_choice.h"
#include "corvane/base/text.h"
#include "programs/text.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <fmt/format.h>
#include <nlohmann/json.hpp>

namespace admin {
namespace {

using corvane::fromUtf8;

// What is the matter with a driver that is set for printers of sessions; empty when it can be used.
std::string obstacleOfSetting(const std::wstring& name, const ServerDrivers& drivers) {
  const PrinterDriver* const found = findDriver(drivers.installed, name);
  return found == nullptr ? fmt::format("{} is not installed", programs::quoted(name)) : obstacleOf(*found);
}

Json listInstalled(const ServerDrivers& drivers, Output& output) {
  Json all = Json::array();
  for (const PrinterDriver& driver : drivers.installed) {
    const std::string obstacle = obstacleOf(driver);
    output.line(obstacle.empty() ? fmt::format("{} can be used", programs::quoted(driver.name)) : obstacle);
    all.push_back({{"name", textValue(driver.name)},
                   {"version", driver.version},
                   {"usable", obstacle.empty()},
                   {"why", obstacle}});
  }
  if (all.empty()) output.line("no printer driver is installed");
  return all;
}

Json listTable(const ServerDrivers& drivers, Output& output) {
  Json all = Json::array();
  for (const DriverMapping& line : drivers.settings.table) {
    const std::string obstacle = obstacleOfSetting(line.driver, drivers);
    output.line(fmt::format("{} at a client is {} here{}", programs::quoted(line.pattern),
                            programs::quoted(line.driver), obstacle.empty() ? "" : ": " + obstacle));
    all.push_back({{"pattern", textValue(line.pattern)},
                   {"driver", textValue(line.driver)},
                   {"usable", obstacle.empty()},
                   {"why", obstacle}});
  }
  return all;
}

ExitCode listDrivers(Output& output) {
  const ServerDrivers drivers = ServerDrivers::ofThisMachine();
  Json facts;
  facts["drivers"] = listInstalled(drivers, output);
  facts["table"] = listTable(drivers, output);
  const std::wstring& fallback = drivers.settings.fallback;
  const std::string obstacle = fallback.empty() ? std::string() : obstacleOfSetting(fallback, drivers);
  facts["fallback"] = {
      {"driver", textValue(fallback)}, {"usable", !fallback.empty() && obstacle.empty()}, {"why", obstacle}};
  if (fallback.empty()) {
    output.line("no driver is set for all others; mgprintmon install --driver NAME sets one");
  } else {
    output.line(
        fmt::format("all others are {} here{}", programs::quoted(fallback), obstacle.empty() ? "" : ": " + obstacle));
  }
  output.facts(facts);
  return ExitCode::kDone;
}

// The table is a part of the installation, which takes it away again.
void requireInstallation(const Places& places) {
  if (keyExists(places.printersKey())) return;
  throw Failure(ExitCode::kNotFound, "the print monitor is not installed here", "Run mgprintmon install first.");
}

void requirePattern(const std::wstring& pattern) {
  const bool isText = std::all_of(pattern.begin(), pattern.end(), [](wchar_t c) { return c >= L' '; });
  if (!pattern.empty() && isText && pattern.size() <= 255) return;
  throw Failure(ExitCode::kUsage, "a pattern is 1 to 255 characters, without line breaks and tabs",
                "Name a client's driver, with * for any text and ? for one character, as in \"HP*\".");
}

ExitCode map(const std::wstring& pattern, const std::wstring& driver, Output& output) {
  const Places places = Places::ofThisMachine();
  requireInstallation(places);
  requirePattern(pattern);
  const std::wstring name = requireDriver(installedDrivers(), driver).name;
  const std::wstring key = places.driverTableKey();
  InstallationRecord record(places.recordKey());
  // Both are entered before they are made, as with everything that an installation makes.
  if (record.exists() && !keyExists(key)) record.add(InstallationRecord::kKeys, key);
  if (record.exists() && !readValue(key, pattern)) record.add(InstallationRecord::kValues, key + L"\t" + pattern);
  createKey(key);
  writeValue(key, pattern, RegistryValue::ofText(name));
  output.line(fmt::format("{} at a client is {} here", programs::quoted(pattern), programs::quoted(name)));
  output.facts({{"pattern", textValue(pattern)}, {"driver", textValue(name)}, {"outcome", "mapped"}});
  return ExitCode::kDone;
}

ExitCode unmap(const std::wstring& pattern, Output& output) {
  const Places places = Places::ofThisMachine();
  const std::wstring key = places.driverTableKey();
  if (!readValue(key, pattern)) {
    throw Failure(ExitCode::kNotFound, fmt::format("the table has no line for {}", programs::quoted(pattern)),
                  "\"mgprintmon drivers\" shows those that it has.");
  }
  deleteValue(key, pattern);
  InstallationRecord(places.recordKey()).remove(InstallationRecord::kValues, key + L"\t" + pattern);
  output.line(fmt::format("{} has no driver of its own here any more", programs::quoted(pattern)));
  output.facts({{"pattern", textValue(pattern)}, {"outcome", "unmapped"}});
  return ExitCode::kDone;
}

}  // namespace

void addDriversCommand(CLI::App& app, Invocation& invocation) {
  struct Words {
    std::string pattern, driver;
  };
  auto words = std::make_shared<Words>();
  CLI::App& drivers =
      addCommand(app, invocation, "drivers",
                 "Shows the printer drivers of this server, and sets which ones stand in for those of clients. Without "
                 "a further word it lists them.",
                 {"drivers", "drivers --json"});
  drivers.require_subcommand(0, 1);
  drivers.callback([&invocation] {
    if (!invocation.run) invocation.run = listDrivers;
  });
  addCommand(drivers, invocation, "list", "Lists the drivers, which of them cannot be used and why, and what is set.",
             {"drivers list", "drivers list --json"})
      .callback([&invocation] { invocation.run = listDrivers; });
  CLI::App& mapping = addCommand(drivers, invocation, "map",
                                 "Sets the driver for printers whose clients name such a driver, unless that is "
                                 "installed here. In a pattern * is any text and ? one character.",
                                 {"drivers map \"HP*\" \"Generic PostScript\""});
  mapping.add_option("pattern", words->pattern, "the client's driver, or a pattern of names")->required();
  mapping.add_option("driver", words->driver, "a driver of this server")->required();
  mapping.callback([words, &invocation] {
    invocation.run = [words](Output& output) { return map(fromUtf8(words->pattern), fromUtf8(words->driver), output); };
  });
  CLI::App& removal = addCommand(drivers, invocation, "unmap", "Takes a line out again.", {"drivers unmap \"HP*\""});
  removal.add_option("pattern", words->pattern, "the pattern as it was given")->required();
  removal.callback([words, &invocation] {
    invocation.run = [words](Output& output) { return unmap(fromUtf8(words->pattern), output); };
  });
}

}  // namespace admin
