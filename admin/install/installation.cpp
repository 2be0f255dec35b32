#include "admin/install/installation.h"

#include "admin/base/failure.h"
#include "admin/base/files.h"
#include "admin/install/install_steps.h"
#include "admin/install/service_plan.h"
#include "admin/install/service_steps.h"
#include "corvane/base/text.h"

#include <algorithm>
#include <fmt/format.h>

namespace admin {
namespace {

// TypesSupported of the event log: errors, warnings and information.
constexpr DWORD kEventTypes = 7;

void requireFile(const std::wstring& folder, const wchar_t* name) {
  if (fileExists(folder + L"\\" + name)) return;
  throw Failure(ExitCode::kNotFound,
                fmt::format("\"{}\\{}\" is missing", corvane::toUtf8(folder), corvane::toUtf8(name)),
                "Name the folder that holds MgPrintMon.dll and the programs with --from.");
}

void refuseOlder(const std::wstring& fresh, const std::wstring& present) {
  const auto ours = fileVersion(fresh);
  const auto theirs = fileVersion(present);
  if (!ours || !theirs || *theirs <= *ours) return;
  throw Failure(ExitCode::kFailed,
                fmt::format("version {} of MgPrintMon.dll is installed, which is newer than {} in \"{}\"",
                            theirs->text(), ours->text(), corvane::toUtf8(fresh)),
                "Install the newer one, or go back to the older one with --force.");
}

// The key and those above it that are not there, the outermost first.
std::vector<std::wstring> missingKeys(std::wstring key) {
  std::vector<std::wstring> missing;
  while (!keyExists(key)) {
    missing.push_back(key);
    const std::size_t end = key.rfind(L'\\');
    if (end == std::wstring::npos) break;
    key.resize(end);
  }
  std::reverse(missing.begin(), missing.end());
  return missing;
}

// What an installation is to have, where the request leaves it open.
struct Choice {
  bool services = false;
  bool makesKey = false;
  std::wstring keyFile;  // of the monitor; empty: none

  Choice(const Places& places, const InstallRequest& request, const InstallationRecord& record) {
    const bool isNew = !record.exists();
    services = request.services.value_or(isNew || !record.entries(InstallationRecord::kServices).empty());
    keyFile = request.keyFile;
    if (const auto present = readValue(places.frameworkKey(), kKeyFileName); keyFile.empty() && present)
      keyFile = present->text().value_or(std::wstring());
    makesKey = keyFile.empty() && request.keys.value_or(isNew);
    if (makesKey) keyFile = places.monitorKey();
  }
  std::wstring keyFolder() const { return keyFile.substr(0, keyFile.find_last_of(L'\\')); }
};

class StepList {
 public:
  StepList(const Places& places, const InstallRequest& request, InstallationRecord& record, const Choice& choice)
      : m_places(places), m_request(request), m_record(record), m_choice(choice) {}

  InstallSteps build() {
    addKeys(m_places.recordKey());
    addKeys(m_places.portsKey());
    addKeys(m_places.frameworkKey());
    addKeys(m_places.eventSourceKey);
    for (const std::wstring& folder : {m_places.programs(), m_places.logFolder()})
      addFolders(folder);
    addData();
    if (!m_request.driver.empty()) add<DriverStep>(m_request.driver, m_request.driverPackage);
    addFiles();
    addValues();
    add<MonitorStep>();
    if (m_choice.services) addServices();
    return std::move(m_steps);
  }

 private:
  template <class Step, class... Arguments>
  void add(Arguments... arguments) {
    m_steps.push_back(std::make_unique<Step>(m_record, std::move(arguments)...));
  }

  void addKeys(const std::wstring& key) {
    // A key may be missing on the way to several.
    for (const std::wstring& missing : missingKeys(key)) {
      if (std::find(m_keys.begin(), m_keys.end(), missing) != m_keys.end()) continue;
      m_keys.push_back(missing);
      add<KeyStep>(missing, missing == m_places.recordKey());
    }
  }

  void addFolders(const std::wstring& folder) {
    for (const std::wstring& missing : missingFolders(folder)) {
      if (std::find(m_folders.begin(), m_folders.end(), missing) != m_folders.end()) continue;
      m_folders.push_back(missing);
      add<FolderStep>(missing);
    }
  }

  // The module is the last file: it is the one that somebody else may hold.
  void addFiles() {
    StopServicesStep::Copies copies = {{m_request.from + L"\\" + kConverterFile, m_places.converter()}};
    if (m_choice.services) {
      copies.emplace_back(m_request.from + L"\\" + kServerFile, m_places.serverProgram());
      copies.emplace_back(m_request.from + L"\\" + kToolFile, m_places.toolProgram());
    }
    const StopServicesStep::Copies module = {{m_request.from + L"\\" + kModuleFile, m_places.module()}};
    copies.push_back(module.front());
    const auto spooler = m_request.restartsSpooler ? runningSpooler() : std::nullopt;
    if (spooler) m_steps.push_back(std::make_unique<StopServicesStep>(std::vector{*spooler}, module, true));
    if (m_choice.services) m_steps.push_back(std::make_unique<StopServicesStep>(planServices(), copies, false));
    for (const auto& [from, to] : copies)
      add<FileStep>(from, to);
    if (spooler) m_steps.push_back(std::make_unique<StartServiceStep>(spooler->name));
  }

  // As it is; nothing when it does not run.
  static std::optional<ServiceSettings> runningSpooler() {
    ServiceSettings settings;
    settings.name = L"Spooler";
    const auto facts = serviceFacts(settings.name);
    if (!facts || facts->state != SERVICE_RUNNING) return std::nullopt;
    settings.commandLine = facts->commandLine;
    return settings;
  }

  void addData() {
    if (!m_choice.services && !m_choice.makesKey) return;
    const std::wstring identity = serviceSid(m_places.serverService);
    for (const std::wstring& folder :
         {m_places.dataFolder, m_places.keyFolder(), m_places.stateFolder(), m_places.serviceLogFolder()})
      add<PrivateFolderStep>(folder, identity);
    if (m_choice.keyFile == m_places.monitorKey()) add<KeyFileStep>(m_choice.keyFile);
  }

  // The one that uses the other comes last.
  std::vector<ServiceSettings> planServices() const {
    ServicePlan plan;
    plan.serverPort = m_request.serverPort;
    if (!plan.serverPort && !serviceFacts(m_places.serverService)) {
      const auto port = readValue(m_places.frameworkKey(), L"Port");
      if (port && port->number()) plan.serverPort = port->number();
    }
    if (!m_choice.keyFile.empty()) plan.keyFolder = m_choice.keyFolder();
    plan.asSystem = m_request.serverAsSystem;
    plan.clientAddress = m_request.clientAddress;
    plan.publicAddress = m_request.publicAddress;
    plan.onlyThisMachine = m_request.onlyThisMachine;
    return {serverService(m_places, plan), watchService(m_places)};
  }

  void addServices() {
    for (const ServiceSettings& settings : planServices())
      add<ServiceStep>(settings);
    for (const std::wstring& service : {m_places.serverService, m_places.watchService})
      m_steps.push_back(std::make_unique<StartServiceStep>(service));
  }

  void addValues() {
    add<ValueStep>(m_places.recordKey(), std::wstring(kFromName), RegistryValue::ofText(m_request.from), false);
    add<ValueStep>(m_places.productKey(), std::wstring(L"RootPath"), RegistryValue::ofText(m_places.root), false);
    add<ValueStep>(m_places.frameworkKey(), std::wstring(L"Port"),
                   RegistryValue::ofNumber(m_request.serverPort.value_or(kDefaultServerPort)), !m_request.serverPort);
    add<ValueStep>(m_places.frameworkKey(), std::wstring(L"LogFile"),
                   RegistryValue::ofText(m_request.logFile.empty() ? m_places.logFile() : m_request.logFile),
                   m_request.logFile.empty());
    if (!m_choice.keyFile.empty()) {
      add<ValueStep>(m_places.frameworkKey(), std::wstring(kKeyFileName), RegistryValue::ofText(m_choice.keyFile),
                     m_request.keyFile.empty());
    }
    if (!m_request.driver.empty()) {
      add<ValueStep>(m_places.printersKey(), std::wstring(kFallbackDriverName), RegistryValue::ofText(m_request.driver),
                     false);
    }
    add<ValueStep>(m_places.eventSourceKey, std::wstring(L"EventMessageFile"), RegistryValue::ofText(m_places.module()),
                   false);
    add<ValueStep>(m_places.eventSourceKey, std::wstring(L"TypesSupported"), RegistryValue::ofNumber(kEventTypes),
                   false);
  }

  const Places& m_places;
  const InstallRequest& m_request;
  InstallationRecord& m_record;
  const Choice& m_choice;
  InstallSteps m_steps;
  std::vector<std::wstring> m_keys;
  std::vector<std::wstring> m_folders;
};

void requireServerFor(const InstallRequest& request, const Choice& choice) {
  if (request.clientAddress.empty() && request.publicAddress.empty()) return;
  if (!choice.services) {
    throw Failure(ExitCode::kUsage, "aps is no service of this installation, so install cannot set its addresses",
                  "Add --services, or start aps with --listen-clients and --public-address.");
  }
  if (!choice.keyFile.empty()) return;
  throw Failure(ExitCode::kUsage, "print clients on other machines are served only where peers must have keys",
                "Add --keys, or leave --listen-clients out.");
}

}  // namespace

InstallResult install(const Places& places, const InstallRequest& request) {
  requireFile(request.from, kModuleFile);
  requireFile(request.from, kConverterFile);
  if (!request.force) refuseOlder(request.from + L"\\" + kModuleFile, places.module());
  InstallationRecord record(places.recordKey());
  if (!record.exists()) removeKeysWithoutRecord(places);
  const Choice choice(places, request, record);
  requireServerFor(request, choice);
  for (const wchar_t* program : {kServerFile, kToolFile}) {
    if (choice.services) requireFile(request.from, program);
  }
  InstallResult result;
  result.wasInstalled = record.exists();
  result.hasServices = choice.services;
  result.hasKey = !choice.keyFile.empty();
  const InstallSteps steps = StepList(places, request, record, choice).build();
  result.done = performAll(steps);
  result.version = fileVersion(places.module());
  return result;
}

}  // namespace admin
