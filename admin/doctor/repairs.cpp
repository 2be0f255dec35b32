#include "admin/doctor/repairs.h"

#include "admin/base/failure.h"
#include "admin/base/files.h"
#include "admin/base/private_folder.h"
#include "admin/base/registry_value.h"
#include "admin/base/service.h"
#include "admin/doctor/checks.h"
#include "admin/install/install_steps.h"
#include "admin/install/installation.h"
#include "admin/install/installation_lock.h"
#include "admin/install/installation_record.h"
#include "admin/sessions/session_printers.h"
#include "admin/spooler/monitor_module.h"
#include "admin/spooler/spooler_port.h"
#include "corvane/base/text.h"
#include "programs/command_words.h"
#include "programs/text.h"

#include <algorithm>
#include <cwchar>
#include <fmt/format.h>

namespace admin {
namespace {

using corvane::toUtf8;

Repair removal(const std::wstring& key, const std::wstring& name, const std::string& value,
               const std::string& otherwise) {
  return {fmt::format("remove the value {} ({}) of HKEY_LOCAL_MACHINE\\{}: {}", toUtf8(name), value, toUtf8(key),
                      otherwise),
          [key, name] { deleteValue(key, name); }};
}

Repair creation(const std::wstring& folder) {
  return {fmt::format("make the folder {}", programs::quoted(folder)), [folder] {
            for (const std::wstring& missing : missingFolders(folder))
              createFolder(missing);
          }};
}

// Where the service aps of this installation listens.
std::optional<DWORD> portOfService(const Places& places) {
  const std::vector<std::wstring> services = installedServices(places);
  const auto facts = serviceFacts(places.serverService);
  if (!facts || std::find(services.begin(), services.end(), places.serverService) == services.end())
    return std::nullopt;
  const std::vector<std::wstring> words = programs::wordsOf(facts->commandLine);
  const auto option = std::find(words.begin(), words.end(), L"--listen");
  if (option == words.end() || option + 1 == words.end()) return std::nullopt;
  const unsigned long port = std::wcstoul((option + 1)->substr((option + 1)->rfind(L':') + 1).c_str(), nullptr, 10);
  return port >= 1 && port <= 65535 ? std::optional<DWORD>(port) : std::nullopt;
}

// Of a number that is wrong: it is taken away, so that its default holds; the port is that of the service.
Repair repairOfNumber(const Places& places, const RegistryNumber& number, const std::string& wrong) {
  const auto port = number.name == L"Port" ? portOfService(places) : std::nullopt;
  if (!port) return removal(number.key, number.name, wrong, fmt::format("without it {} holds", number.otherwise));
  return {fmt::format("set the value Port ({}) of HKEY_LOCAL_MACHINE\\{} to {}, where the service aps listens", wrong,
                      toUtf8(number.key), *port),
          [number, port] { writeValue(number.key, number.name, RegistryValue::ofNumber(*port)); }};
}

// Of the value that names the module's log.
std::optional<Repair> repairOfLogFile(const Places& places) {
  const std::wstring key = places.frameworkKey();
  const auto value = readValue(key, L"LogFile");
  if (!value) return std::nullopt;
  const auto file = value->text();
  constexpr char kOtherwise[] = "installing writes the usual one";
  if (!file) return removal(key, L"LogFile", "not a string", kOtherwise);
  const std::size_t end = file->rfind(L'\\');
  if (end == std::wstring::npos || folderExists(*file))
    return removal(key, L"LogFile", programs::quoted(*file), kOtherwise);
  const std::wstring folder = file->substr(0, end);
  if (folderExists(folder)) return std::nullopt;
  return creation(folder);
}

// The service starts with the machine and runs.
Repair start(const std::wstring& name, bool isDisabled) {
  return {fmt::format("{}start the service {}", isDisabled ? "enable and " : "", toUtf8(name)), [name, isDisabled] {
            if (isDisabled) enableService(name);
            startService(name);
          }};
}

// Of the folders that the services keep things in: one that is missing.
std::optional<Repair> repairOfMissingFolder(const Places& places) {
  const std::wstring identity = serviceSid(places.serverService);
  for (const std::wstring& folder : serviceFolders(places)) {
    if (folderExists(folder)) continue;
    return Repair{fmt::format("make the folder {}, for administrators and the service alone", programs::quoted(folder)),
                  [folder, identity] { createPrivateFolder(folder, identity); }};
  }
  return std::nullopt;
}

// One that others may use.
std::optional<Repair> repairOfOpenFolder(const Places& places) {
  const std::wstring identity = serviceSid(places.serverService);
  for (const std::wstring& folder : serviceFolders(places)) {
    if (strangersIn(folder, identity).empty()) continue;
    return Repair{fmt::format("leave the folder {} to administrators and the service alone", programs::quoted(folder)),
                  [folder, identity] { makeFolderPrivate(folder, identity); }};
  }
  return std::nullopt;
}

void registerAgain(const Places& places) {
  const InstallationLock lock;
  // What points elsewhere is not replaced by registering.
  if (isMonitorRegistered()) unregisterMonitor();
  InstallationRecord record(places.recordKey());
  MonitorStep(record).perform();
  // The module has them in its own list; what a spooler has beside it comes back.
  for (const std::wstring& port : valueNames(places.portsKey()))
    addPort(port);
}

}  // namespace

AskRepair askAt(std::istream& in, std::ostream& out) {
  return [&in, &out](const std::string& what) {
    out << "        " << corvane::printable(std::string_view(what)) << "? [y/N] " << std::flush;
    std::string answer;
    return std::getline(in, answer) && (answer.starts_with('y') || answer.starts_with('Y'));
  };
}

std::optional<Repair> repairByInstalling(const Places& places) {
  const auto from = readValue(places.recordKey(), kFromName);
  const std::wstring folder = from ? from->text().value_or(std::wstring()) : std::wstring();
  for (const wchar_t* file : {kModuleFile, kConverterFile}) {
    if (folder.empty() || !fileExists(folder + L"\\" + file)) return std::nullopt;
  }
  return Repair{fmt::format("install again what is missing, from {}", programs::quoted(folder)), [places, folder] {
                  const InstallationLock lock;
                  InstallRequest request;
                  request.from = folder;
                  install(places, request);
                }};
}

std::optional<Repair> repairOfRegistration(const Places& places) {
  if (!fileExists(places.module())) return repairByInstalling(places);
  return Repair{"register the monitor with the spooler again", [places] { registerAgain(places); }};
}

std::optional<Repair> repairOfRegistry(const Places& places) {
  for (const RegistryNumber& number : registryNumbers(places)) {
    const std::string wrong = number.wrongValue();
    if (!wrong.empty()) return repairOfNumber(places, number, wrong);
  }
  if (auto repair = repairOfLogFile(places)) return repair;
  return repairByInstalling(places);
}

std::optional<Repair> repairOfKeyFile(const Places& places) {
  const auto file = readValue(places.frameworkKey(), kKeyFileName);
  if (!file || file->text() != places.monitorKey() || fileExists(places.monitorKey())) return std::nullopt;
  return repairByInstalling(places);
}

std::optional<Repair> repairOfServices(const Places& places) {
  // A service that starts without its folder makes one that others may use.
  if (auto repair = repairOfMissingFolder(places)) return repair;
  for (const std::wstring& name : installedServices(places)) {
    const auto facts = serviceFacts(name);
    if (!facts) return repairByInstalling(places);
    if (facts->state != SERVICE_RUNNING) return start(name, facts->isDisabled);
  }
  return repairOfOpenFolder(places);
}

std::optional<Repair> repairOfSpooler(bool printsHere) {
  const auto facts = serviceFacts(kSpoolerService);
  if (!facts) return std::nullopt;
  if (printsHere || facts->state == SERVICE_RUNNING)
    return Repair{"enable the service Spooler", [] { enableService(kSpoolerService); }};
  return start(kSpoolerService, facts->isDisabled);
}

std::optional<Repair> repairOfTemporaryFolder() {
  std::wstring folder = ScratchFile::folder();
  while (folder.size() > 3 && folder.back() == L'\\')
    folder.pop_back();
  if (folderExists(folder)) return std::nullopt;
  return creation(folder);
}

std::optional<Repair> repairOfConverter(const Places& places) {
  if (fileExists(places.converter())) return std::nullopt;
  return repairByInstalling(places);
}

Repair repairOfLeftSession(unsigned session) {
  return {fmt::format("take the port and the printers of session {} down", session), [session] { takeDown(session); }};
}

}  // namespace admin
