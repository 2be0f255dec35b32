#include "server/launcher.h"
#include "util/win_handle.h"

#include <windows.h>

#include <array>
#include <fmt/format.h>
#include <fmt/xchar.h>
#include <stdexcept>
#include <userenv.h>
#include <wtsapi32.h>

namespace aps {
namespace {

struct EnvironmentTraits {
  using Type = void*;
  static Type invalid() noexcept { return nullptr; }
  static void close(Type block) noexcept {
    const mg::LastErrorKeeper keeper;
    DestroyEnvironmentBlock(block);
  }
};
using Environment = UniqueHandle<EnvironmentTraits>;

// The last error with what failed and what to do about it.
[[noreturn]] void refuse(const std::string& cause, const std::string& remedy) {
  const DWORD error = GetLastError();
  throw std::runtime_error(fmt::format("{}, error {}; {}", cause, error, remedy));
}

std::wstring systemFolder() {
  std::array<wchar_t, MAX_PATH> folder{};
  const UINT length = GetSystemDirectoryW(folder.data(), MAX_PATH);
  if (length == 0 || length >= MAX_PATH) refuse("the system folder is not known", "check this machine's installation");
  return folder.data();
}

class WindowsProgram : public StartedProgram {
 public:
  explicit WindowsProgram(const Launch& launch) : m_wake(CreateEventW(nullptr, TRUE, FALSE, nullptr)) {
    if (!m_wake) refuse("no event can be made", "end some connections");
    const std::string session = fmt::format("session {}", launch.session);
    mg::ObjectHandle user;
    if (!WTSQueryUserToken(static_cast<ULONG>(launch.session), user.receive())) {
      refuse(fmt::format("the system does not give the user of {}", session),
             "aps must run as the local system account, and a user must be logged on to that session");
    }
    Environment environment;
    if (!CreateEnvironmentBlock(environment.receive(), user.get(), FALSE)) {
      refuse(fmt::format("the environment of the user of {} cannot be made", session), "check the user's profile");
    }
    const std::wstring folder = systemFolder();
    // The whole path, so that no other program of that name can be meant.
    const std::wstring path = fmt::format(L"{}\\{}", folder, launch.program);
    std::wstring command = fmt::format(L"\"{}\" {}", path, commandTail(launch.arguments));
    std::wstring desktop = L"winsta0\\default";
    STARTUPINFOW start{};
    start.cb = sizeof start;
    start.lpDesktop = desktop.data();
    PROCESS_INFORMATION process{};
    if (!CreateProcessAsUserW(user.get(), path.c_str(), command.data(), nullptr, nullptr, FALSE,
                              CREATE_UNICODE_ENVIRONMENT | CREATE_NEW_PROCESS_GROUP, environment.get(), folder.c_str(),
                              &start, &process)) {
      refuse(fmt::format("the program does not start in {}", session),
             "it must be in the system folder, and aps must run as the local system account");
    }
    const mg::ObjectHandle thread(process.hThread);
    m_process.reset(process.hProcess);
    m_id = process.dwProcessId;
  }

  unsigned long processId() const override { return m_id; }

  std::optional<int> wait() override {
    const HANDLE handles[] = {m_process.get(), m_wake.get()};
    DWORD code = 0;
    if (WaitForMultipleObjects(2, handles, FALSE, INFINITE) != WAIT_OBJECT_0) return std::nullopt;
    if (!GetExitCodeProcess(m_process.get(), &code)) return std::nullopt;
    return static_cast<int>(code);
  }

  void leave() noexcept override { SetEvent(m_wake.get()); }

 private:
  const mg::ObjectHandle m_wake;
  mg::ObjectHandle m_process;
  DWORD m_id = 0;
};

}  // namespace

std::unique_ptr<StartedProgram> startProgram(const Launch& launch, const std::string&) {
  return std::make_unique<WindowsProgram>(launch);
}

}  // namespace aps
