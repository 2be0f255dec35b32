#include "admin/install/installation.h"

#include "admin/base/failure.h"
#include "admin/base/files.h"
#include "admin/install/install_steps.h"
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
                "Name the folder that holds MgPrintMon.dll and ps2pdf.exe with --from.");
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

class StepList {
 public:
  StepList(const Places& places, const InstallRequest& request, InstallationRecord& record)
      : m_places(places), m_request(request), m_record(record) {}

  InstallSteps build() {
    addKeys(m_places.recordKey());
    addKeys(m_places.portsKey());
    addKeys(m_places.frameworkKey());
    addKeys(m_places.eventSourceKey);
    for (const std::wstring& folder : {m_places.programs(), m_places.logFolder()})
      addFolders(folder);
    if (!m_request.driver.empty()) add<DriverStep>(m_request.driver, m_request.driverPackage);
    add<FileStep>(m_request.from + L"\\" + kConverterFile, m_places.converter());
    add<FileStep>(m_request.from + L"\\" + kModuleFile, m_places.module());
    addValues();
    add<MonitorStep>();
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

  void addValues() {
    add<ValueStep>(m_places.productKey(), std::wstring(L"RootPath"), RegistryValue::ofText(m_places.root), false);
    add<ValueStep>(m_places.frameworkKey(), std::wstring(L"Port"),
                   RegistryValue::ofNumber(m_request.serverPort.value_or(kDefaultServerPort)), !m_request.serverPort);
    add<ValueStep>(m_places.frameworkKey(), std::wstring(L"LogFile"),
                   RegistryValue::ofText(m_request.logFile.empty() ? m_places.logFile() : m_request.logFile),
                   m_request.logFile.empty());
    if (!m_request.keyFile.empty()) {
      add<ValueStep>(m_places.frameworkKey(), std::wstring(kKeyFileName), RegistryValue::ofText(m_request.keyFile),
                     false);
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
  InstallSteps m_steps;
  std::vector<std::wstring> m_keys;
  std::vector<std::wstring> m_folders;
};

}  // namespace

InstallResult install(const Places& places, const InstallRequest& request) {
  requireFile(request.from, kModuleFile);
  requireFile(request.from, kConverterFile);
  if (!request.force) refuseOlder(request.from + L"\\" + kModuleFile, places.module());
  InstallationRecord record(places.recordKey());
  InstallResult result;
  result.wasInstalled = record.exists();
  const InstallSteps steps = StepList(places, request, record).build();
  result.done = performAll(steps);
  result.version = fileVersion(places.module());
  return result;
}

}  // namespace admin
