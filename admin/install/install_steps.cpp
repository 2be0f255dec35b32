#include "admin/install/install_steps.h"

#include "admin/base/failure.h"
#include "admin/base/files.h"
#include "admin/base/places.h"
#include "admin/spooler/monitor_module.h"
#include "admin/spooler/printer_driver.h"
#include "corvane/base/text.h"

#include <fmt/format.h>

namespace admin {
namespace {

// The steps that could not be undone, as sentences; empty when the machine is as before.
std::string undoAll(const std::vector<InstallStep*>& performed) {
  std::string left;
  for (auto step = performed.rbegin(); step != performed.rend(); ++step) {
    try {
      (*step)->undo();
    } catch (const std::exception& failure) {
      left += fmt::format(" Could not be undone: {}: {}.", (*step)->name(), failure.what());
    }
  }
  return left;
}

}  // namespace

std::vector<std::string> performAll(const InstallSteps& steps) {
  std::vector<std::string> names;
  std::vector<InstallStep*> performed;
  const InstallStep* current = nullptr;
  try {
    for (const auto& step : steps) {
      current = step.get();
      if (step->isDone()) continue;
      step->perform();
      performed.push_back(step.get());
      names.push_back(step->name());
    }
  } catch (const Failure& failure) {
    const std::string left = undoAll(performed);
    const std::string undone = left.empty() ? ". Nothing was changed." : fmt::format(".{}", left);
    throw Failure(failure.code(), fmt::format("could not {}: {}{}", current->name(), failure.what(), undone),
                  failure.remedy());
  } catch (...) {
    undoAll(performed);
    throw;
  }
  for (const auto& step : steps)
    step->commit();
  return names;
}

bool note(InstallationRecord& record, const wchar_t* kind, const std::wstring& entry) {
  if (record.holds(kind, entry)) return false;
  record.add(kind, entry);
  return true;
}

void makeNoted(InstallationRecord& record, const wchar_t* kind, const std::wstring& entry, bool noted,
               const std::function<void()>& make) {
  try {
    make();
  } catch (...) {
    if (noted) record.remove(kind, entry);
    throw;
  }
}

std::string KeyStep::name() const {
  return fmt::format("make the registry key \"{}\"", corvane::toUtf8(m_key));
}

bool KeyStep::isDone() const {
  return keyExists(m_key);
}

void KeyStep::perform() {
  const bool noted = note(m_record, InstallationRecord::kKeys, m_key);
  makeNoted(m_record, InstallationRecord::kKeys, m_key, noted, [&] {
    createKey(m_key);
    if (!m_writesRecord) return;
    try {
      m_record.write();
    } catch (...) {
      deleteKey(m_key);
      throw;
    }
  });
}

void KeyStep::undo() {
  deleteKey(m_key);
  m_record.remove(InstallationRecord::kKeys, m_key);
}

std::string ValueStep::name() const {
  return fmt::format("write the registry value \"{}\" of \"{}\"", corvane::toUtf8(m_name), corvane::toUtf8(m_key));
}

bool ValueStep::isDone() const {
  const auto present = readValue(m_key, m_name);
  return present && (m_keepsPresent ? present->type == m_value.type : *present == m_value);
}

void ValueStep::perform() {
  m_before = readValue(m_key, m_name);
  const std::wstring entry = m_key + L"\t" + m_name;
  // A value that already existed does not become ours.
  m_noted = !m_before && note(m_record, InstallationRecord::kValues, entry);
  makeNoted(m_record, InstallationRecord::kValues, entry, m_noted, [&] { writeValue(m_key, m_name, m_value); });
}

void ValueStep::undo() {
  if (m_before) {
    writeValue(m_key, m_name, *m_before);
  } else {
    deleteValue(m_key, m_name);
  }
  if (m_noted) m_record.remove(InstallationRecord::kValues, m_key + L"\t" + m_name);
}

std::string FolderStep::name() const {
  return fmt::format("make the folder \"{}\"", corvane::toUtf8(m_path));
}

bool FolderStep::isDone() const {
  return folderExists(m_path);
}

void FolderStep::perform() {
  m_noted = note(m_record, InstallationRecord::kFolders, m_path);
  makeNoted(m_record, InstallationRecord::kFolders, m_path, m_noted, [&] { createFolder(m_path); });
}

void FolderStep::undo() {
  deleteFolder(m_path);
  if (m_noted) m_record.remove(InstallationRecord::kFolders, m_path);
}

std::string FileStep::name() const {
  return fmt::format("copy \"{}\" to \"{}\"", corvane::toUtf8(m_from), corvane::toUtf8(m_to));
}

bool FileStep::isDone() const {
  return sameContent(m_from, m_to);
}

void FileStep::perform() {
  m_noted = note(m_record, InstallationRecord::kFiles, m_to);
  makeNoted(m_record, InstallationRecord::kFiles, m_to, m_noted, [&] { putInPlace(); });
}

void FileStep::putInPlace() {
  const std::wstring fresh = m_to + L".new";
  const std::wstring old = m_to + L".old";
  m_replaced = fileExists(m_to);
  if (m_replaced) requireReplaceable(m_to);
  copyFile(m_from, fresh);
  try {
    if (m_replaced) moveFile(m_to, old, true);
    try {
      moveFile(fresh, m_to, false);
    } catch (...) {
      if (m_replaced) moveFile(old, m_to, false);
      throw;
    }
  } catch (...) {
    DeleteFileW(fresh.c_str());
    throw;
  }
}

void FileStep::undo() {
  if (m_replaced) {
    moveFile(m_to + L".old", m_to, true);
  } else {
    deleteFile(m_to);
  }
  if (m_noted) m_record.remove(InstallationRecord::kFiles, m_to);
}

void FileStep::commit() {
  // The installation is complete without this; an old file that is still open is removed by the next installation.
  for (const wchar_t* suffix : {L".old", L".new"})
    DeleteFileW((m_to + suffix).c_str());
}

std::string DriverStep::name() const {
  return fmt::format("take the printer driver \"{}\" for printers of sessions", corvane::toUtf8(m_driver));
}

bool DriverStep::isDone() const {
  const std::vector<PrinterDriver> installed = installedDrivers();
  const PrinterDriver* const present = findDriver(installed, m_driver);
  return present != nullptr && present->signOfXps().empty();
}

void DriverStep::perform() {
  const std::vector<PrinterDriver> installed = installedDrivers();
  if (m_package.empty() || findDriver(installed, m_driver) != nullptr) {
    requireDriver(installed, m_driver);  // throws: it was not done
    return;
  }
  m_noted = note(m_record, InstallationRecord::kDrivers, m_driver);
  makeNoted(m_record, InstallationRecord::kDrivers, m_driver, m_noted, [&] { addFromPackage(); });
}

void DriverStep::addFromPackage() {
  addDriverFromPackage(m_package, m_driver);
  try {
    requireDriver(installedDrivers(), m_driver);
  } catch (...) {
    deleteDriver(m_driver);
    throw;
  }
}

void DriverStep::undo() {
  if (!deleteDriver(m_driver)) throw SystemFailure("the printer driver is in use", ERROR_PRINTER_DRIVER_IN_USE);
  if (m_noted) m_record.remove(InstallationRecord::kDrivers, m_driver);
}

std::string MonitorStep::name() const {
  return fmt::format("register the print monitor \"{}\" with the spooler", corvane::toUtf8(kMonitorName));
}

bool MonitorStep::isDone() const {
  return isMonitorRegistered();
}

void MonitorStep::perform() {
  m_noted = note(m_record, InstallationRecord::kMonitors, kMonitorName);
  makeNoted(m_record, InstallationRecord::kMonitors, kMonitorName, m_noted, [] { registerMonitor(); });
}

void MonitorStep::undo() {
  unregisterMonitor();
  if (m_noted) m_record.remove(InstallationRecord::kMonitors, kMonitorName);
}

}  // namespace admin
