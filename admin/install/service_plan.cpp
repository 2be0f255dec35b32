#include "admin/install/service_plan.h"

#include "programs/command_words.h"

#include <algorithm>
#include <cstddef>
#include <utility>
#include <vector>

namespace admin {
namespace {

using Words = std::vector<std::wstring>;

// The arguments of the service that is there; nothing when there is none.
std::optional<Words> presentArguments(const std::wstring& service) {
  const auto facts = serviceFacts(service);
  if (!facts) return std::nullopt;
  Words words = programs::wordsOf(facts->commandLine);
  if (!words.empty()) words.erase(words.begin());
  return words;
}

bool has(const Words& words, const std::wstring& option) {
  return std::find(words.begin(), words.end(), option) != words.end();
}

void set(Words& words, const std::wstring& option, const std::wstring& value) {
  const auto at = std::find(words.begin(), words.end(), option);
  if (at != words.end() && at + 1 != words.end()) {
    *(at + 1) = value;
  } else {
    words.insert(words.end(), {option, value});
  }
}

// An option with a value, however often it stands there.
void drop(Words& words, const std::wstring& option) {
  for (auto at = words.begin(); (at = std::find(at, words.end(), option)) != words.end();)
    at = words.erase(at, at + std::min<std::ptrdiff_t>(2, words.end() - at));
}

std::wstring commandLine(const std::wstring& program, Words arguments) {
  arguments.insert(arguments.begin(), program);
  return programs::commandLineOf(arguments);
}

std::wstring addressOf(unsigned port) {
  return L"127.0.0.1:" + std::to_wstring(port);
}

Words freshServerArguments(const Places& places, const ServicePlan& plan) {
  Words words = {L"--service", L"--listen", addressOf(plan.serverPort.value_or(kDefaultServerPort))};
  if (plan.keyFolder.empty()) words.push_back(L"--no-keys");
  words.insert(words.end(), {L"--state", places.stateFolder() + L"\\sessions", L"--history",
                             places.stateFolder() + L"\\history", L"--log", places.serviceLogFolder() + L"\\aps.log"});
  return words;
}

}  // namespace

ServiceSettings serverService(const Places& places, const ServicePlan& plan) {
  ServiceSettings settings;
  settings.name = places.serverService;
  settings.displayName = L"Marrowgate Application Server";
  settings.description = L"Knows the sessions of this server and their printers, and passes their print jobs on.";
  settings.account = plan.asSystem ? L"LocalSystem" : L"NT SERVICE\\" + places.serverService;
  settings.privileges = {L"SeChangeNotifyPrivilege"};
  if (plan.asSystem) {
    settings.privileges.insert(settings.privileges.end(), {L"SeTcbPrivilege", L"SeAssignPrimaryTokenPrivilege",
                                                           L"SeIncreaseQuotaPrivilege", L"SeImpersonatePrivilege"});
  }
  const auto present = presentArguments(places.serverService);
  Words words = present ? *present : freshServerArguments(places, plan);
  if (plan.serverPort) set(words, L"--listen", addressOf(*plan.serverPort));
  if (!plan.keyFolder.empty() && !has(words, L"--keys")) {
    std::erase(words, L"--no-keys");
    set(words, L"--keys", plan.keyFolder);
  }
  if (plan.onlyThisMachine || !plan.clientAddress.empty()) drop(words, L"--listen-clients");
  if (plan.onlyThisMachine) drop(words, L"--public-address");
  if (!plan.clientAddress.empty()) set(words, L"--listen-clients", plan.clientAddress);
  if (!plan.publicAddress.empty()) set(words, L"--public-address", plan.publicAddress);
  settings.commandLine = commandLine(places.serverProgram(), words);
  return settings;
}

ServiceSettings watchService(const Places& places) {
  ServiceSettings settings;
  settings.name = places.watchService;
  settings.displayName = L"Marrowgate Session Printers";
  settings.description =
      L"Brings the printers of sessions up when their print clients come, and down when they have gone.";
  settings.account = L"LocalSystem";
  settings.privileges = {L"SeChangeNotifyPrivilege", L"SeImpersonatePrivilege", L"SeLoadDriverPrivilege"};
  const Words fresh = {L"watch", L"--service", L"--log", places.serviceLogFolder() + L"\\mgprintmon.log"};
  settings.commandLine = commandLine(places.toolProgram(), presentArguments(places.watchService).value_or(fresh));
  return settings;
}

}  // namespace admin
