#include "admin/base/failure.h"
#include "admin/base/files.h"
#include "admin/base/private_folder.h"
#include "admin/base/registry_value.h"
#include "admin/base/service.h"
#include "admin/doctor/checks.h"
#include "corvane/base/text.h"
#include "programs/text.h"

#include <algorithm>
#include <fmt/format.h>

namespace admin {
namespace {

void requireRunning(const std::wstring& name, const std::optional<ServiceFacts>& facts) {
  if (!facts) {
    throw Failure(ExitCode::kFailed, fmt::format("the service {} is missing", corvane::toUtf8(name)),
                  "Run mgprintmon install: it restores what is missing.");
  }
  if (facts->state == SERVICE_RUNNING) return;
  if (facts->isDisabled) {
    throw Failure(ExitCode::kFailed, fmt::format("the service {} {}", corvane::toUtf8(name), stateText(*facts)),
                  fmt::format("Let it start: sc config {0} start= auto, and net start {0}.", corvane::toUtf8(name)));
  }
  throw Failure(
      ExitCode::kFailed, fmt::format("the service {} {}", corvane::toUtf8(name), stateText(*facts)),
      fmt::format("Start it: net start {}. When it ends again, the event log (Application, source MgPrintMon) and "
                  "its log say why.",
                  corvane::toUtf8(name)));
}

void requirePrivate(const Places& places) {
  for (const std::wstring& folder : serviceFolders(places)) {
    if (!folderExists(folder)) {
      throw Failure(ExitCode::kFailed, fmt::format("the folder {} is missing", programs::quoted(folder)),
                    "Run mgprintmon install: it restores what is missing.");
    }
    const std::string strangers = strangersIn(folder, serviceSid(places.serverService));
    if (strangers.empty()) continue;
    throw Failure(ExitCode::kFailed,
                  fmt::format("the folder {} is open to others: {}", programs::quoted(folder), strangers),
                  "Run mgprintmon install: it sets the access list. Who had access may have the keys: make new ones.");
  }
}

}  // namespace

std::vector<std::wstring> installedServices(const Places& places) {
  const auto made = readValue(places.recordKey(), L"Services");
  const std::vector<std::wstring> names = made ? made->texts() : std::vector<std::wstring>();
  std::vector<std::wstring> ours;
  for (const std::wstring& name : {places.serverService, places.watchService}) {
    if (std::find(names.begin(), names.end(), name) != names.end()) ours.push_back(name);
  }
  return ours;
}

std::vector<std::wstring> serviceFolders(const Places& places) {
  return {places.dataFolder, places.keyFolder(), places.stateFolder(), places.serviceLogFolder()};
}

std::string checkServices(const Places& places) {
  std::string states;
  for (const std::wstring& name : installedServices(places)) {
    const auto facts = serviceFacts(name);
    requireRunning(name, facts);
    states += fmt::format("{}{} {}", states.empty() ? "" : ", ", corvane::toUtf8(name), stateText(*facts));
  }
  if (states.empty()) return "there are none: aps and mgprintmon watch run by hand";
  requirePrivate(places);
  return states;
}

}  // namespace admin
