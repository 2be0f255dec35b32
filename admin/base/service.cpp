#include "admin/base/service.h"

#include "admin/base/failure.h"
#include "programs/text.h"
#include "util/win_handle.h"

#include <algorithm>
#include <array>
#include <bcrypt.h>
#include <cwctype>
#include <fmt/format.h>
#include <fmt/xchar.h>

namespace admin {
namespace {

struct ServiceTraits {
  using Type = SC_HANDLE;
  static Type invalid() noexcept { return nullptr; }
  static void close(Type handle) noexcept {
    const mg::LastErrorKeeper keeper;
    CloseServiceHandle(handle);
  }
};
using ServiceHandle = UniqueHandle<ServiceTraits>;

// A service has 30 seconds to end (programs/windows_service.h), and says that it is alive while it starts.
constexpr DWORD kPatience = 60000;
constexpr DWORD kLookEvery = 50;

ServiceHandle openManager(DWORD access) {
  ServiceHandle manager(OpenSCManagerW(nullptr, nullptr, access));
  require(static_cast<bool>(manager), "the service manager cannot be reached");
  return manager;
}

std::string tried(const std::wstring& name, const char* what) {
  return fmt::format("the service {} cannot be {}", programs::quoted(name), what);
}

// Empty when there is none of that name.
ServiceHandle openService(const std::wstring& name, DWORD access) {
  const ServiceHandle manager = openManager(SC_MANAGER_CONNECT);
  ServiceHandle service(OpenServiceW(manager.get(), name.c_str(), access));
  if (!service && GetLastError() != ERROR_SERVICE_DOES_NOT_EXIST) require(false, tried(name, "opened"));
  return service;
}

SERVICE_STATUS_PROCESS statusOf(const ServiceHandle& service, const std::wstring& name) {
  SERVICE_STATUS_PROCESS status{};
  DWORD needed = 0;
  require(QueryServiceStatusEx(service.get(), SC_STATUS_PROCESS_INFO, reinterpret_cast<BYTE*>(&status), sizeof status,
                               &needed),
          tried(name, "queried"));
  return status;
}

void fillConfiguration(const ServiceHandle& service, const std::wstring& name, ServiceFacts& facts) {
  std::vector<BYTE> buffer(8192);  // the most that it can be
  DWORD needed = 0;
  auto* const configuration = reinterpret_cast<QUERY_SERVICE_CONFIGW*>(buffer.data());
  require(QueryServiceConfigW(service.get(), configuration, static_cast<DWORD>(buffer.size()), &needed),
          tried(name, "queried"));
  facts.commandLine = configuration->lpBinaryPathName;
  facts.account = configuration->lpServiceStartName == nullptr ? L"" : configuration->lpServiceStartName;
  facts.startsItself = configuration->dwStartType == SERVICE_AUTO_START;
  facts.isDisabled = configuration->dwStartType == SERVICE_DISABLED;
}

// A setting that this system does not know is left out; Windows knows them all.
void configure(const ServiceHandle& service, const std::wstring& name, DWORD level, void* setting) {
  if (ChangeServiceConfig2W(service.get(), level, setting) || GetLastError() == ERROR_INVALID_LEVEL) return;
  require(false, tried(name, "configured"));
}

// Again after 5 seconds, twice, and from then on after a minute; a day without a failure forgets them. Also when it
// ends by itself with a code, such as for a port that somebody else had.
void configureRecovery(const ServiceHandle& service, const std::wstring& name) {
  SC_ACTION actions[] = {{SC_ACTION_RESTART, 5000}, {SC_ACTION_RESTART, 5000}, {SC_ACTION_RESTART, 60000}};
  SERVICE_FAILURE_ACTIONSW recovery{};
  recovery.dwResetPeriod = 24 * 60 * 60;
  recovery.cActions = static_cast<DWORD>(std::size(actions));
  recovery.lpsaActions = actions;
  configure(service, name, SERVICE_CONFIG_FAILURE_ACTIONS, &recovery);
  SERVICE_FAILURE_ACTIONS_FLAG alsoByItself{TRUE};
  configure(service, name, SERVICE_CONFIG_FAILURE_ACTIONS_FLAG, &alsoByItself);
}

void configureRights(const ServiceHandle& service, const ServiceSettings& settings) {
  SERVICE_SID_INFO identifier{SERVICE_SID_TYPE_UNRESTRICTED};
  configure(service, settings.name, SERVICE_CONFIG_SERVICE_SID_INFO, &identifier);
  std::wstring names;
  for (const std::wstring& privilege : settings.privileges)
    names += privilege + L'\0';
  names += L'\0';
  SERVICE_REQUIRED_PRIVILEGES_INFOW privileges{names.data()};
  configure(service, settings.name, SERVICE_CONFIG_REQUIRED_PRIVILEGES_INFO, &privileges);
}

// Waits until it is in that state or has stopped.
SERVICE_STATUS_PROCESS waitFor(DWORD state, const ServiceHandle& service, const std::wstring& name) {
  const ULONGLONG begun = GetTickCount64();
  while (true) {
    const SERVICE_STATUS_PROCESS status = statusOf(service, name);
    if (status.dwCurrentState == state || status.dwCurrentState == SERVICE_STOPPED) return status;
    if (GetTickCount64() - begun > kPatience) {
      throw Failure(ExitCode::kFailed,
                    fmt::format("the service {} did not {} within {} seconds", programs::quoted(name),
                                state == SERVICE_RUNNING ? "start" : "stop", kPatience / 1000),
                    fmt::format("End its process ({}), and do this again.", status.dwProcessId));
    }
    Sleep(kLookEvery);
  }
}

}  // namespace

std::optional<ServiceFacts> serviceFacts(const std::wstring& name) {
  const ServiceHandle service = openService(name, SERVICE_QUERY_STATUS | SERVICE_QUERY_CONFIG);
  if (!service) return std::nullopt;
  ServiceFacts facts;
  fillConfiguration(service, name, facts);
  const SERVICE_STATUS_PROCESS status = statusOf(service, name);
  facts.state = status.dwCurrentState;
  facts.process = status.dwProcessId;
  // Of one that runs it is what an earlier run has left.
  if (facts.state == SERVICE_STOPPED) {
    facts.error = status.dwWin32ExitCode == ERROR_SERVICE_NEVER_STARTED ? 0 : status.dwWin32ExitCode;
    facts.code = status.dwServiceSpecificExitCode;
  }
  return facts;
}

void makeService(const ServiceSettings& settings) {
  const ServiceHandle manager = openManager(SC_MANAGER_CREATE_SERVICE);
  const ServiceHandle service(CreateServiceW(manager.get(), settings.name.c_str(), settings.displayName.c_str(),
                                             SERVICE_ALL_ACCESS, SERVICE_WIN32_OWN_PROCESS, SERVICE_AUTO_START,
                                             SERVICE_ERROR_NORMAL, settings.commandLine.c_str(), nullptr, nullptr,
                                             nullptr, settings.account.c_str(), nullptr));
  require(static_cast<bool>(service), tried(settings.name, "made"));
  try {
    std::wstring text = settings.description;
    SERVICE_DESCRIPTIONW description{text.data()};
    configure(service, settings.name, SERVICE_CONFIG_DESCRIPTION, &description);
    configureRecovery(service, settings.name);
    configureRights(service, settings);
  } catch (...) {
    DeleteService(service.get());
    throw;
  }
}

void setServiceCommand(const std::wstring& name, const std::wstring& commandLine) {
  const ServiceHandle service = openService(name, SERVICE_CHANGE_CONFIG);
  require(service && ChangeServiceConfigW(service.get(), SERVICE_NO_CHANGE, SERVICE_NO_CHANGE, SERVICE_NO_CHANGE,
                                          commandLine.c_str(), nullptr, nullptr, nullptr, nullptr, nullptr, nullptr),
          tried(name, "changed"));
}

void enableService(const std::wstring& name) {
  const ServiceHandle service = openService(name, SERVICE_CHANGE_CONFIG);
  require(service && ChangeServiceConfigW(service.get(), SERVICE_NO_CHANGE, SERVICE_AUTO_START, SERVICE_NO_CHANGE,
                                          nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr),
          tried(name, "enabled"));
}

void startService(const std::wstring& name) {
  const ServiceHandle service = openService(name, SERVICE_START | SERVICE_QUERY_STATUS);
  const bool isStarted = service && StartServiceW(service.get(), 0, nullptr);
  if (!isStarted && GetLastError() != ERROR_SERVICE_ALREADY_RUNNING) require(false, tried(name, "started"));
  const SERVICE_STATUS_PROCESS status = waitFor(SERVICE_RUNNING, service, name);
  if (status.dwCurrentState == SERVICE_RUNNING) return;
  throw Failure(ExitCode::kFailed,
                fmt::format("the service {} ended at once: {}", programs::quoted(name),
                            status.dwWin32ExitCode == ERROR_SERVICE_SPECIFIC_ERROR
                                ? fmt::format("its exit code is {}", status.dwServiceSpecificExitCode)
                                : errorWords(status.dwWin32ExitCode)),
                "The event log (Application, source MgPrintMon) and its log say why.");
}

void stopService(const std::wstring& name) {
  const ServiceHandle service = openService(name, SERVICE_STOP | SERVICE_QUERY_STATUS);
  if (!service) return;
  const DWORD id = statusOf(service, name).dwProcessId;
  SetLastError(NO_ERROR);
  const mg::ObjectHandle process(id == 0 ? nullptr : OpenProcess(SYNCHRONIZE, FALSE, id));
  // The service manager may not have noticed yet.
  if (process ? WaitForSingleObject(process.get(), 0) == WAIT_OBJECT_0 : GetLastError() == ERROR_INVALID_PARAMETER)
    return;
  SERVICE_STATUS ignored{};
  if (!ControlService(service.get(), SERVICE_CONTROL_STOP, &ignored)) {
    const DWORD error = GetLastError();
    if (error == ERROR_SERVICE_NOT_ACTIVE) return;
    // It stops or starts already.
    if (error != ERROR_SERVICE_CANNOT_ACCEPT_CTRL) throw SystemFailure(tried(name, "stopped"), error);
  }
  waitFor(SERVICE_STOPPED, service, name);
  // Its files are its own until its process is gone.
  if (process) WaitForSingleObject(process.get(), kPatience);
}

void deleteService(const std::wstring& name) {
  const ServiceHandle service = openService(name, DELETE);
  if (!service || DeleteService(service.get()) || GetLastError() == ERROR_SERVICE_MARKED_FOR_DELETE) return;
  require(false, tried(name, "removed"));
}

std::string stateText(const ServiceFacts& facts) {
  switch (facts.state) {
    case SERVICE_RUNNING:
      return fmt::format("runs, process {}", facts.process);
    case SERVICE_START_PENDING:
      return "starts";
    case SERVICE_STOP_PENDING:
      return "stops";
    default:
      break;
  }
  if (facts.isDisabled) return "is stopped and disabled";
  if (facts.error == 0) return "is stopped";
  if (facts.error == ERROR_SERVICE_SPECIFIC_ERROR) return fmt::format("has stopped with the exit code {}", facts.code);
  return fmt::format("has stopped: {}", errorWords(facts.error));
}

// The five numbers are the SHA-1 of the name in capitals, as Windows documents it for "sc showsid".
std::wstring serviceSid(const std::wstring& name) {
  std::wstring capitals = name;
  for (wchar_t& c : capitals)
    c = static_cast<wchar_t>(std::towupper(static_cast<wint_t>(c)));
  std::array<std::uint32_t, 5> hash{};
  BCRYPT_ALG_HANDLE algorithm = nullptr;
  NTSTATUS status = BCryptOpenAlgorithmProvider(&algorithm, BCRYPT_SHA1_ALGORITHM, nullptr, 0);
  if (status == 0) {
    status = BCryptHash(algorithm, nullptr, 0, reinterpret_cast<BYTE*>(capitals.data()),
                        static_cast<ULONG>(capitals.size() * sizeof(wchar_t)), reinterpret_cast<BYTE*>(hash.data()),
                        static_cast<ULONG>(sizeof hash));
    BCryptCloseAlgorithmProvider(algorithm, 0);
  }
  if (status != 0) {
    throw Failure(ExitCode::kFailed, "the identifier of a service cannot be computed: SHA-1 is not to be had",
                  "Check the cryptography of this machine.");
  }
  return fmt::format(L"S-1-5-80-{}", fmt::join(hash, L"-"));
}

}  // namespace admin
