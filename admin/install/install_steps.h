#pragma once

#include "admin/base/registry_value.h"
#include "admin/install/installation_record.h"

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace admin {

// One step of an installation. Steps run in order; when one fails, those already performed are undone in reverse order,
// which leaves the machine as before.
class InstallStep {
 public:
  virtual ~InstallStep() = default;
  // What it does, as in "copy MgPrintMon.dll to C:\Windows\system32".
  virtual std::string name() const = 0;
  // The machine is already as this step would leave it.
  virtual bool isDone() const = 0;
  // Throws a Failure; then it has left nothing behind.
  virtual void perform() = 0;
  // After perform() only. Throws a Failure when the earlier state cannot be restored.
  virtual void undo() = 0;
  // The installation is complete: removes what only undo() would have needed, also that of an earlier one that was
  // killed. Of every step, whether it was performed or done already.
  virtual void commit() {}
};

using InstallSteps = std::vector<std::unique_ptr<InstallStep>>;

// Performs the steps that are not done and returns their names, empty when there was nothing to do. All or nothing: a
// failure names the step and its error, after the others have been undone; what could not be undone is named as well.
std::vector<std::string> performAll(const InstallSteps& steps);

// Enters it unless it is there; true when it was added and must be removed again when the step is undone.
bool note(InstallationRecord& record, const wchar_t* kind, const std::wstring& entry);
// Makes what was entered; when that fails, the entry is removed, too.
void makeNoted(InstallationRecord& record, const wchar_t* kind, const std::wstring& entry, bool noted,
               const std::function<void()>& make);

// The kinds of steps; those of services are in service_steps.h. Each enters into the record what it is about to make;
// the record outlives them.

// A registry key. With writesRecord it is the record's own key, and the entries of earlier steps are written into it.
class KeyStep : public InstallStep {
 public:
  KeyStep(InstallationRecord& record, std::wstring key, bool writesRecord = false)
      : m_record(record), m_key(std::move(key)), m_writesRecord(writesRecord) {}
  std::string name() const override;
  bool isDone() const override;
  void perform() override;
  void undo() override;

 private:
  InstallationRecord& m_record;
  const std::wstring m_key;
  const bool m_writesRecord;
};

// A registry value. With keepsPresent, which is for values that an administrator may set, an existing value of the
// right type stays.
class ValueStep : public InstallStep {
 public:
  ValueStep(InstallationRecord& record, std::wstring key, std::wstring name, RegistryValue value, bool keepsPresent)
      : m_record(record),
        m_key(std::move(key)),
        m_name(std::move(name)),
        m_value(std::move(value)),
        m_keepsPresent(keepsPresent) {}
  std::string name() const override;
  bool isDone() const override;
  void perform() override;
  void undo() override;

 private:
  InstallationRecord& m_record;
  const std::wstring m_key;
  const std::wstring m_name;
  const RegistryValue m_value;
  const bool m_keepsPresent;
  std::optional<RegistryValue> m_before;
  bool m_noted = false;
};

// A folder in an existing one.
class FolderStep : public InstallStep {
 public:
  FolderStep(InstallationRecord& record, std::wstring path) : m_record(record), m_path(std::move(path)) {}
  std::string name() const override;
  bool isDone() const override;
  void perform() override;
  void undo() override;

 private:
  InstallationRecord& m_record;
  const std::wstring m_path;
  bool m_noted = false;
};

// A file, written under another name beside its target and then renamed. An existing file with other content is kept
// under a third name until everything is done.
class FileStep : public InstallStep {
 public:
  FileStep(InstallationRecord& record, std::wstring from, std::wstring to)
      : m_record(record), m_from(std::move(from)), m_to(std::move(to)) {}
  std::string name() const override;
  bool isDone() const override;
  void perform() override;
  void undo() override;
  void commit() override;

 private:
  void putInPlace();

  InstallationRecord& m_record;
  const std::wstring m_from;
  const std::wstring m_to;
  bool m_noted = false;
  bool m_replaced = false;
};

// A printer driver that is fit for printers of sessions: one that is installed, or is added from its package.
class DriverStep : public InstallStep {
 public:
  DriverStep(InstallationRecord& record, std::wstring driver, std::wstring package)
      : m_record(record), m_driver(std::move(driver)), m_package(std::move(package)) {}
  std::string name() const override;
  bool isDone() const override;
  void perform() override;
  void undo() override;

 private:
  void addFromPackage();

  InstallationRecord& m_record;
  const std::wstring m_driver;
  const std::wstring m_package;
  bool m_noted = false;
};

// The monitor's registration with the spooler.
class MonitorStep : public InstallStep {
 public:
  explicit MonitorStep(InstallationRecord& record) : m_record(record) {}
  std::string name() const override;
  bool isDone() const override;
  void perform() override;
  void undo() override;

 private:
  InstallationRecord& m_record;
  bool m_noted = false;
};

}  // namespace admin
