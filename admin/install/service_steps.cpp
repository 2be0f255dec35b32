#include "admin/install/service_steps.h"

#include "admin/base/failure.h"
#include "admin/base/files.h"
#include "admin/base/private_folder.h"
#include "corvane/base/text.h"
#include "corvane/records/exception.h"
#include "corvane/trust/key.h"
#include "programs/text.h"

#include <algorithm>
#include <fmt/format.h>

namespace admin {

std::string PrivateFolderStep::name() const {
  return fmt::format("make the folder {}, for administrators and the service alone", programs::quoted(m_path));
}

bool PrivateFolderStep::isDone() const {
  return folderExists(m_path) && strangersIn(m_path, m_identity).empty();
}

void PrivateFolderStep::perform() {
  m_made = !folderExists(m_path);
  if (!m_made) return makeFolderPrivate(m_path, m_identity);
  m_noted = note(m_record, InstallationRecord::kFolders, m_path);
  makeNoted(m_record, InstallationRecord::kFolders, m_path, m_noted, [&] { createPrivateFolder(m_path, m_identity); });
}

// Rights that were too wide do not come back.
void PrivateFolderStep::undo() {
  if (!m_made) return;
  deleteFilesIn(m_path);  // of a service that has run meanwhile
  deleteFolder(m_path);
  if (m_noted) m_record.remove(InstallationRecord::kFolders, m_path);
}

std::string KeyFileStep::name() const {
  return fmt::format("make the monitor's key {}", programs::quoted(m_path));
}

bool KeyFileStep::isDone() const {
  return fileExists(m_path);
}

void KeyFileStep::perform() {
  m_noted = note(m_record, InstallationRecord::kFiles, m_path);
  makeNoted(m_record, InstallationRecord::kFiles, m_path, m_noted, [&] {
    try {
      corvane::Key::writeNew(corvane::toUtf8(m_path));
    } catch (const CS_Exception& failure) {
      throw Failure(ExitCode::kFailed, programs::oneLine(failure.detail()),
                    "Make room on the disk, or check the rights of the folder.");
    }
  });
}

void KeyFileStep::undo() {
  deleteFile(m_path);
  if (m_noted) m_record.remove(InstallationRecord::kFiles, m_path);
}

std::vector<std::wstring> StopServicesStep::running() const {
  std::vector<std::wstring> names;
  for (auto service = m_services.rbegin(); service != m_services.rend(); ++service) {
    const auto facts = serviceFacts(service->name);
    if (facts && facts->state != SERVICE_STOPPED) names.push_back(service->name);
  }
  return names;
}

std::string StopServicesStep::name() const {
  std::string names;
  for (const ServiceSettings& service : m_services)
    names += fmt::format("{}{}", names.empty() ? "" : " and ", corvane::toUtf8(service.name));
  return fmt::format("stop the services {}", names);
}

bool StopServicesStep::isDone() const {
  const auto isThere = [](const auto& copy) { return sameContent(copy.first, copy.second); };
  const auto isAsItShallBe = [](const ServiceSettings& service) {
    const auto facts = serviceFacts(service.name);
    return facts && facts->commandLine == service.commandLine;
  };
  return running().empty() || (std::all_of(m_copies.begin(), m_copies.end(), isThere) &&
                               std::all_of(m_services.begin(), m_services.end(), isAsItShallBe));
}

void StopServicesStep::perform() {
  try {
    for (const std::wstring& service : running()) {
      if (service == m_services.front().name && !m_mayHoldModule) requireReleasedModule();
      m_stopped.push_back(service);
      stopService(service);
    }
  } catch (...) {
    undo();
    throw;
  }
}

void StopServicesStep::requireReleasedModule() const {
  const auto& [from, module] = m_copies.back();
  if (fileExists(module) && !sameContent(from, module)) requireReplaceable(module);
}

void StopServicesStep::undo() {
  for (auto service = m_stopped.rbegin(); service != m_stopped.rend(); ++service)
    startService(*service);
}

std::string ServiceStep::name() const {
  return fmt::format("set up the service {}: {}", corvane::toUtf8(m_settings.name),
                     corvane::toUtf8(m_settings.commandLine));
}

bool ServiceStep::isDone() const {
  const auto present = serviceFacts(m_settings.name);
  return present && present->commandLine == m_settings.commandLine &&
         m_record.holds(InstallationRecord::kServices, m_settings.name);
}

void ServiceStep::perform() {
  const auto present = serviceFacts(m_settings.name);
  if (present && present->commandLine == m_settings.commandLine) {
    // It is what this program would make, and was left by one that was killed.
    m_noted = note(m_record, InstallationRecord::kServices, m_settings.name);
    return;
  }
  if (present && !m_record.holds(InstallationRecord::kServices, m_settings.name)) {
    throw Failure(ExitCode::kFailed,
                  fmt::format("a service of the name {} is there that this program has not made: {}",
                              programs::quoted(m_settings.name), programs::quoted(present->commandLine)),
                  fmt::format("Remove it (sc delete {}), or leave the services out with --no-services.",
                              corvane::toUtf8(m_settings.name)));
  }
  if (present) {
    m_before = present->commandLine;
    return setServiceCommand(m_settings.name, m_settings.commandLine);
  }
  m_noted = note(m_record, InstallationRecord::kServices, m_settings.name);
  makeNoted(m_record, InstallationRecord::kServices, m_settings.name, m_noted, [&] { makeService(m_settings); });
}

void ServiceStep::undo() {
  if (m_before) return setServiceCommand(m_settings.name, *m_before);
  deleteService(m_settings.name);
  if (m_noted) m_record.remove(InstallationRecord::kServices, m_settings.name);
}

std::string StartServiceStep::name() const {
  return fmt::format("start the service {}", corvane::toUtf8(m_service));
}

// Whether it starts with the machine is the administrator's choice.
bool StartServiceStep::isDone() const {
  const auto facts = serviceFacts(m_service);
  return facts && (facts->state == SERVICE_RUNNING || !facts->startsItself);
}

void StartServiceStep::perform() {
  startService(m_service);
}

void StartServiceStep::undo() {
  stopService(m_service);
}

}  // namespace admin
