#pragma once

#include "admin/base/service.h"
#include "admin/install/install_steps.h"

#include <utility>
#include <vector>

namespace admin {

// The steps that concern services, what these work with, and their key.

// A folder in an existing one that only the system, the administrators and the service of that identity use, and all
// that comes into it.
class PrivateFolderStep : public InstallStep {
 public:
  PrivateFolderStep(InstallationRecord& record, std::wstring path, std::wstring identity)
      : m_record(record), m_path(std::move(path)), m_identity(std::move(identity)) {}
  std::string name() const override;
  bool isDone() const override;
  void perform() override;
  void undo() override;

 private:
  InstallationRecord& m_record;
  const std::wstring m_path;
  const std::wstring m_identity;
  bool m_made = false;
  bool m_noted = false;
};

// A file with a fresh key, which stays when it is there.
class KeyFileStep : public InstallStep {
 public:
  KeyFileStep(InstallationRecord& record, std::wstring path) : m_record(record), m_path(std::move(path)) {}
  std::string name() const override;
  bool isDone() const override;
  void perform() override;
  void undo() override;

 private:
  InstallationRecord& m_record;
  const std::wstring m_path;
  bool m_noted = false;
};

// Those of the services that run end, with their processes, before one of the files is replaced or the command line of
// one of them; in the opposite order of theirs.
class StopServicesStep : public InstallStep {
 public:
  using Copies = std::vector<std::pair<std::wstring, std::wstring>>;  // from, to

  // The first service, which jobs go through, is not stopped when the last file, the module, is held by somebody else:
  // jobs that are printed go on.
  StopServicesStep(std::vector<ServiceSettings> services, Copies copies, bool mayHoldModule)
      : m_services(std::move(services)), m_copies(std::move(copies)), m_mayHoldModule(mayHoldModule) {}
  std::string name() const override;
  bool isDone() const override;
  void perform() override;
  void undo() override;

 private:
  std::vector<std::wstring> running() const;
  void requireReleasedModule() const;

  const std::vector<ServiceSettings> m_services;
  const Copies m_copies;
  const bool m_mayHoldModule;  // one of these services
  std::vector<std::wstring> m_stopped;
};

// A service with that command line. One of ours that is there keeps its own settings but for the command line; one of
// that name that is not ours is a Failure.
class ServiceStep : public InstallStep {
 public:
  ServiceStep(InstallationRecord& record, ServiceSettings settings)
      : m_record(record), m_settings(std::move(settings)) {}
  std::string name() const override;
  bool isDone() const override;
  void perform() override;
  void undo() override;

 private:
  InstallationRecord& m_record;
  const ServiceSettings m_settings;
  std::optional<std::wstring> m_before;  // its command line
  bool m_noted = false;
};

// A service that starts with the machine runs.
class StartServiceStep : public InstallStep {
 public:
  explicit StartServiceStep(std::wstring service) : m_service(std::move(service)) {}
  std::string name() const override;
  bool isDone() const override;
  void perform() override;
  void undo() override;

 private:
  const std::wstring m_service;
};

}  // namespace admin
