#include "programs/windows_service.h"

#include "corvane/base/text.h"
#include "util/win_handle.h"

#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <fmt/format.h>
#include <io.h>
#include <utility>

namespace programs {
namespace {

constexpr wchar_t kEventSource[] = L"MgPrintMon";
constexpr DWORD kServiceEvent = 0xC0000002;  // in monitor/events.mc

WindowsService* g_service = nullptr;

}  // namespace

std::optional<int> WindowsService::run(const std::function<int()>& program) {
  // Never deleted: the thread that has told the manager of the end may still be on its way out of it.
  auto* const service = new WindowsService(program);
  g_service = service;
  wchar_t noName[] = L"";  // which is ignored in a process of one service
  const SERVICE_TABLE_ENTRYW table[] = {{noName, &WindowsService::serve}, {nullptr, nullptr}};
  const BOOL isDone = StartServiceCtrlDispatcherW(table);
  g_service = nullptr;
  if (!isDone) return std::nullopt;
  return service->m_code;
}

WindowsService* WindowsService::current() {
  return g_service;
}

void WINAPI WindowsService::serve(DWORD count, LPWSTR* arguments) {
  g_service->serveNamed(count > 0 ? arguments[0] : L"");
}

void WindowsService::serveNamed(const std::wstring& name) {
  m_name = name;
  m_handle = RegisterServiceCtrlHandlerExW(name.c_str(), &WindowsService::control, this);
  if (m_handle == nullptr) return;
  {
    const std::lock_guard guard(m_lock);
    tellLocked(SERVICE_START_PENDING, kStartHint);
  }
  {
    const CapturedErrors errors([this](const std::string& line) { complain(line); });
    m_code = m_program();
  }
  std::unique_lock guard(m_lock);
  m_hasEnded = true;
  m_ended.notify_all();
  guard.unlock();
  if (m_stopper.joinable()) m_stopper.join();
  guard.lock();
  tellLocked(SERVICE_STOPPED, 0, m_code);
}

DWORD WINAPI WindowsService::control(DWORD control, DWORD, void*, void* context) {
  auto& service = *static_cast<WindowsService*>(context);
  switch (control) {
    case SERVICE_CONTROL_STOP:
    case SERVICE_CONTROL_SHUTDOWN:
    case SERVICE_CONTROL_PRESHUTDOWN: {
      const std::lock_guard guard(service.m_lock);
      service.stopLocked();
      return NO_ERROR;
    }
    case SERVICE_CONTROL_INTERROGATE:
      return NO_ERROR;
    default:
      return ERROR_CALL_NOT_IMPLEMENTED;
  }
}

// The service manager knows the state from the last time; a call that fails leaves it with that.
void WindowsService::tellLocked(DWORD state, DWORD hint, int code) {
  const bool isPending = state == SERVICE_START_PENDING || state == SERVICE_STOP_PENDING;
  m_state = state;
  m_checkPoint = isPending ? m_checkPoint + 1 : 0;
  SERVICE_STATUS status{};
  status.dwServiceType = SERVICE_WIN32_OWN_PROCESS;
  status.dwCurrentState = state;
  if (state == SERVICE_RUNNING)
    status.dwControlsAccepted = SERVICE_ACCEPT_STOP | SERVICE_ACCEPT_SHUTDOWN | SERVICE_ACCEPT_PRESHUTDOWN;
  if (code != 0) {
    status.dwWin32ExitCode = ERROR_SERVICE_SPECIFIC_ERROR;
    status.dwServiceSpecificExitCode = static_cast<DWORD>(code);
  }
  status.dwCheckPoint = m_checkPoint;
  status.dwWaitHint = hint;
  SetServiceStatus(m_handle, &status);
}

void WindowsService::ready() {
  const std::lock_guard guard(m_lock);
  if (m_state == SERVICE_START_PENDING) tellLocked(SERVICE_RUNNING, 0);
}

void WindowsService::onStop(std::function<void()> handler) {
  const std::lock_guard guard(m_lock);
  m_onStop = std::move(handler);
}

// The control must be answered at once, and the program takes its time.
void WindowsService::stopLocked() {
  if (m_stopper.joinable() || m_hasEnded) return;
  tellLocked(SERVICE_STOP_PENDING, kStopHint);
  m_stopper = std::thread([this] { stop(); });
}

void WindowsService::stop() {
  std::unique_lock guard(m_lock);
  const std::function<void()> handler = std::move(m_onStop);
  guard.unlock();
  if (handler) handler();
  guard.lock();
  const auto until = std::chrono::steady_clock::now() + kStopLimit;
  while (!m_ended.wait_for(guard, kProgress, [this] { return m_hasEnded; })) {
    if (std::chrono::steady_clock::now() >= until) {
      guard.unlock();
      complain(fmt::format("did not end within {} seconds after it was told to, and is ended", kStopLimit.count()));
      guard.lock();
      tellLocked(SERVICE_STOPPED, 0);  // as asked for: no failure that would have it started again
      TerminateProcess(GetCurrentProcess(), 1);
    }
    tellLocked(SERVICE_STOP_PENDING, kStopHint);
  }
}

void WindowsService::complain(const std::string& line) {
  {
    const std::lock_guard guard(m_lock);
    if (++m_entries > kMaxEntries) return;
  }
  const HANDLE log = RegisterEventSourceW(nullptr, kEventSource);
  if (log == nullptr) return;
  const std::wstring text = m_name + L": " + corvane::fromUtf8(line);
  const wchar_t* texts[] = {text.c_str()};
  ReportEventW(log, EVENTLOG_ERROR_TYPE, 0, kServiceEvent, nullptr, 1, 0, texts, nullptr);
  DeregisterEventSource(log);
}

// A service begins without descriptors for its outputs, and what is opened first does not get their numbers.
CapturedErrors::CapturedErrors(std::function<void(const std::string&)> take) : m_take(std::move(take)) {
  std::fflush(stdout);
  std::fflush(stderr);
  int pipe[2];
  if (_pipe(pipe, 64 * 1024, _O_BINARY | _O_NOINHERIT) != 0) return;
  m_end = pipe[0];
  const int nowhere = _open("NUL", _O_WRONLY | _O_BINARY | _O_NOINHERIT);
  FILE* const outputs[] = {stdout, stderr};
  const int targets[] = {nowhere, pipe[1]};
  for (int i = 0; i < 2; ++i) {
    m_before[i] = _fileno(outputs[i]) >= 0 ? _dup(i + 1) : -1;
    if (_fileno(outputs[i]) < 0) std::freopen("NUL", "wb", outputs[i]);
    _dup2(targets[i], i + 1);
    if (_fileno(outputs[i]) != i + 1) _dup2(targets[i], _fileno(outputs[i]));
    std::setvbuf(outputs[i], nullptr, _IONBF, 0);
  }
  _close(nowhere);
  _close(pipe[1]);
  m_reader = std::thread([this] { read(); });
}

CapturedErrors::~CapturedErrors() {
  if (m_end == -1) return;
  std::fflush(stdout);
  std::fflush(stderr);
  FILE* const outputs[] = {stdout, stderr};
  const int nowhere = _open("NUL", _O_WRONLY | _O_BINARY | _O_NOINHERIT);
  for (int i = 0; i < 2; ++i) {
    const int before = m_before[i] >= 0 ? m_before[i] : nowhere;
    _dup2(before, i + 1);
    if (_fileno(outputs[i]) != i + 1) _dup2(before, _fileno(outputs[i]));
    if (m_before[i] >= 0) _close(m_before[i]);
  }
  _close(nowhere);
  m_reader.join();  // nobody has the other end of the pipe any more
  _close(m_end);
}

void CapturedErrors::read() {
  std::string line;
  char bytes[4096];
  for (int got; (got = _read(m_end, bytes, sizeof bytes)) > 0;) {
    for (int i = 0; i < got; ++i) {
      if (bytes[i] != '\n' && bytes[i] != '\r') {
        line.push_back(bytes[i]);
      } else if (!line.empty()) {
        m_take(std::exchange(line, {}));
      }
    }
  }
  if (!line.empty()) m_take(line);
}

}  // namespace programs
