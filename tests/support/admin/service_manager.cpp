#include "tests/support/admin/service_manager.h"

#include "corvane/base/text.h"
#include "programs/command_words.h"
#include "tests/support/import_seam.h"

#include <filesystem>

MG_IMPORT_SEAM(L"advapi32.dll", ChangeServiceConfig2W, FALSE)
MG_IMPORT_SEAM(L"advapi32.dll", ChangeServiceConfigW, FALSE)
MG_IMPORT_SEAM(L"advapi32.dll", CloseServiceHandle, FALSE)
MG_IMPORT_SEAM(L"advapi32.dll", ControlService, FALSE)
MG_IMPORT_SEAM(L"advapi32.dll", CreateServiceW, nullptr)
MG_IMPORT_SEAM(L"advapi32.dll", DeleteService, FALSE)
MG_IMPORT_SEAM(L"advapi32.dll", OpenSCManagerW, nullptr)
MG_IMPORT_SEAM(L"advapi32.dll", OpenServiceW, nullptr)
MG_IMPORT_SEAM(L"advapi32.dll", QueryServiceConfigW, FALSE)
MG_IMPORT_SEAM(L"advapi32.dll", QueryServiceStatusEx, FALSE)
MG_IMPORT_SEAM(L"advapi32.dll", StartServiceW, FALSE)

namespace admin {
namespace {

WINBOOL failWith(DWORD error) {
  SetLastError(error);
  return FALSE;
}

}  // namespace

OwnServiceManager::OwnServiceManager() {
  replaceOpening();
  replaceQueries();
  replaceChanges();
}

SC_HANDLE OwnServiceManager::handleOf(const std::wstring& name) {
  const auto handle = reinterpret_cast<SC_HANDLE>(
      m_handles.empty() ? std::uintptr_t{0x5001} : reinterpret_cast<std::uintptr_t>(m_handles.rbegin()->first) + 1);
  m_handles[handle] = name;
  return handle;
}

OwnServiceManager::Service* OwnServiceManager::find(SC_HANDLE handle) {
  const auto name = m_handles.find(handle);
  const auto service = name == m_handles.end() ? services.end() : services.find(name->second);
  if (service != services.end()) return &service->second;
  SetLastError(ERROR_INVALID_HANDLE);
  return nullptr;
}

void OwnServiceManager::replaceOpening() {
  OpenSCManagerWSeam.replacement = [this](LPCWSTR, LPCWSTR, DWORD) { return handleOf(L""); };
  OpenServiceWSeam.replacement = [this](SC_HANDLE, LPCWSTR name, DWORD) -> SC_HANDLE {
    if (services.count(name) == 1) return handleOf(name);
    SetLastError(ERROR_SERVICE_DOES_NOT_EXIST);
    return nullptr;
  };
  CloseServiceHandleSeam.replacement = [this](SC_HANDLE handle) -> WINBOOL {
    return m_handles.erase(handle) == 1 ? TRUE : failWith(ERROR_INVALID_HANDLE);
  };
  // What is closed is closed, whatever the answer.
  CloseServiceHandleSeam.whenChosen = [this](SC_HANDLE handle) { m_handles.erase(handle); };
}

void OwnServiceManager::replaceQueries() {
  QueryServiceConfigWSeam.replacement = [this](SC_HANDLE handle, LPQUERY_SERVICE_CONFIGW configuration, DWORD,
                                               LPDWORD) -> WINBOOL {
    Service* const service = find(handle);
    if (service == nullptr) return FALSE;
    *configuration = {};
    configuration->dwStartType = service->startType;
    configuration->lpBinaryPathName = service->commandLine.data();
    configuration->lpServiceStartName = service->account.data();
    return TRUE;
  };
  QueryServiceStatusExSeam.replacement = [this](SC_HANDLE handle, SC_STATUS_TYPE, LPBYTE buffer, DWORD,
                                                LPDWORD) -> WINBOOL {
    Service* const service = find(handle);
    if (service == nullptr) return FALSE;
    auto& status = *reinterpret_cast<SERVICE_STATUS_PROCESS*>(buffer);
    status = {};
    status.dwCurrentState = service->state;
    return TRUE;
  };
}

void OwnServiceManager::replaceChanges() {
  CreateServiceWSeam.replacement = [this](SC_HANDLE, LPCWSTR name, LPCWSTR, DWORD, DWORD, DWORD start, DWORD,
                                          LPCWSTR command, LPCWSTR, LPDWORD, LPCWSTR, LPCWSTR account,
                                          LPCWSTR) -> SC_HANDLE {
    if (!services.emplace(name, Service{command, account, start, SERVICE_STOPPED}).second) {
      SetLastError(ERROR_SERVICE_EXISTS);
      return nullptr;
    }
    return handleOf(name);
  };
  ChangeServiceConfig2WSeam.replacement = [](SC_HANDLE, DWORD, LPVOID) -> WINBOOL { return TRUE; };
  ChangeServiceConfigWSeam.replacement = [this](SC_HANDLE handle, DWORD, DWORD start, DWORD, LPCWSTR command, LPCWSTR,
                                                LPDWORD, LPCWSTR, LPCWSTR, LPCWSTR, LPCWSTR) -> WINBOOL {
    Service* const service = find(handle);
    if (service == nullptr) return FALSE;
    if (start != SERVICE_NO_CHANGE) service->startType = start;
    if (command != nullptr) service->commandLine = command;
    return TRUE;
  };
  StartServiceWSeam.replacement = [this](SC_HANDLE handle, DWORD, LPCWSTR*) -> WINBOOL {
    Service* const service = find(handle);
    if (service == nullptr) return FALSE;
    if (service->state == SERVICE_RUNNING) return failWith(ERROR_SERVICE_ALREADY_RUNNING);
    if (!std::filesystem::exists(programs::wordsOf(service->commandLine).at(0))) return failWith(ERROR_FILE_NOT_FOUND);
    service->state = SERVICE_RUNNING;
    return TRUE;
  };
  ControlServiceSeam.replacement = [this](SC_HANDLE handle, DWORD control, LPSERVICE_STATUS) -> WINBOOL {
    Service* const service = find(handle);
    if (service == nullptr) return FALSE;
    if (control != SERVICE_CONTROL_STOP) return failWith(ERROR_INVALID_SERVICE_CONTROL);
    if (service->state == SERVICE_STOPPED) return failWith(ERROR_SERVICE_NOT_ACTIVE);
    service->state = SERVICE_STOPPED;
    return TRUE;
  };
  DeleteServiceSeam.replacement = [this](SC_HANDLE handle) -> WINBOOL {
    const auto name = m_handles.find(handle);
    return name != m_handles.end() && services.erase(name->second) == 1 ? TRUE : failWith(ERROR_INVALID_HANDLE);
  };
}

std::set<std::string> OwnServiceManager::listing() const {
  std::set<std::string> lines;
  for (const auto& [name, service] : services) {
    lines.insert("service " + corvane::toUtf8(name) + (service.state == SERVICE_RUNNING ? " runs " : " is stopped ") +
                 corvane::toUtf8(service.account) + " " + corvane::toUtf8(service.commandLine));
  }
  return lines;
}

void takeServiceSettings(std::function<WINBOOL(DWORD level, void* setting)> take) {
  ChangeServiceConfig2WSeam.replacement = [take = std::move(take)](SC_HANDLE, DWORD level, LPVOID setting) {
    return take(level, setting);
  };
}

void refuseServiceSetting(int nth) {
  ChangeServiceConfig2WSeam.fail(nth, FALSE, ERROR_ACCESS_DENIED);
}

void refuseServiceManager() {
  OpenSCManagerWSeam.fail(1, nullptr, ERROR_ACCESS_DENIED);
}

void refuseNewService() {
  CreateServiceWSeam.fail(1, nullptr, ERROR_ACCESS_DENIED);
}

}  // namespace admin
