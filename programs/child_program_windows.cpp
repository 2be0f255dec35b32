#include "corvane/base/text.h"
#include "programs/child_program.h"
#include "programs/command_words.h"
#include "programs/text.h"
#include "util/win_handle.h"

#include <windows.h>

#include <algorithm>
#include <array>
#include <map>
#include <system_error>

namespace programs {
namespace {

[[noreturn]] void fail(const char* what) {
  throw std::system_error(static_cast<int>(GetLastError()), std::system_category(), what);
}

std::wstring commandLine(const ChildCommand& command) {
  std::wstring line = quotedWord(corvane::fromUtf8(command.program));
  for (const std::string& argument : command.arguments)
    line += L" " + quotedWord(corvane::fromUtf8(argument));
  return line;
}

struct IgnoringCase {
  bool operator()(const std::wstring& one, const std::wstring& other) const {
    return CompareStringOrdinal(one.c_str(), -1, other.c_str(), -1, TRUE) == CSTR_LESS_THAN;
  }
};

// This process's environment with the command's own values, in the order that Windows wants.
std::wstring environmentOf(const ChildCommand& command) {
  std::map<std::wstring, std::wstring, IgnoringCase> all;
  wchar_t* const block = GetEnvironmentStringsW();
  for (const wchar_t* entry = block; entry != nullptr && *entry != 0; entry += std::wcslen(entry) + 1) {
    const std::wstring text = entry;
    const std::size_t equals = text.find(L'=', 1);  // names of hidden values begin with the sign
    if (equals != std::wstring::npos) all[text.substr(0, equals)] = text.substr(equals + 1);
  }
  if (block != nullptr) FreeEnvironmentStringsW(block);
  for (const auto& [name, value] : command.environment)
    all[corvane::fromUtf8(name)] = corvane::fromUtf8(value);
  std::wstring result;
  for (const auto& [name, value] : all)
    result.append(name).append(L"=").append(value).push_back(0);
  result.push_back(0);
  return result;
}

// The handles that the program gets as its input, output and errors, and the list that keeps every other one away.
class GivenHandles {
 public:
  explicit GivenHandles(HANDLE errors) {
    SECURITY_ATTRIBUTES inherited{sizeof inherited, nullptr, TRUE};
    m_nul.reset(CreateFileW(L"NUL", GENERIC_READ | GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE, &inherited,
                            OPEN_EXISTING, 0, nullptr));
    if (!m_nul) fail("NUL");
    m_list = {m_nul.get(), errors};
    SIZE_T size = 0;
    InitializeProcThreadAttributeList(nullptr, 1, 0, &size);
    m_room.resize(size);
    m_start.lpAttributeList = reinterpret_cast<LPPROC_THREAD_ATTRIBUTE_LIST>(m_room.data());
    if (!InitializeProcThreadAttributeList(m_start.lpAttributeList, 1, 0, &size)) fail("a list of handles");
    const std::size_t count = errors == nullptr ? 1 : 2;
    if (!UpdateProcThreadAttribute(m_start.lpAttributeList, 0, PROC_THREAD_ATTRIBUTE_HANDLE_LIST, m_list.data(),
                                   count * sizeof(HANDLE), nullptr, nullptr)) {
      fail("a list of handles");
    }
    m_start.StartupInfo.cb = sizeof m_start;
    m_start.StartupInfo.dwFlags = STARTF_USESTDHANDLES;
    m_start.StartupInfo.hStdInput = m_nul.get();
    m_start.StartupInfo.hStdOutput = m_nul.get();
    m_start.StartupInfo.hStdError = errors == nullptr ? m_nul.get() : errors;
  }
  ~GivenHandles() { DeleteProcThreadAttributeList(m_start.lpAttributeList); }
  GivenHandles(const GivenHandles&) = delete;
  GivenHandles& operator=(const GivenHandles&) = delete;

  STARTUPINFOW* start() { return &m_start.StartupInfo; }

 private:
  mg::FileHandle m_nul;
  std::array<HANDLE, 2> m_list{};
  std::vector<unsigned char> m_room;
  STARTUPINFOEXW m_start{};
};

class WindowsChild : public ChildProgram {
 public:
  explicit WindowsChild(const ChildCommand& command)
      : m_wake(CreateEventW(nullptr, TRUE, FALSE, nullptr)), m_group(CreateJobObjectW(nullptr, nullptr)) {
    if (!m_wake || !m_group) fail("an event");
    mg::ObjectHandle errors;
    if (command.keepsErrors) {
      SECURITY_ATTRIBUTES inherited{sizeof inherited, nullptr, TRUE};
      if (!CreatePipe(m_errors.receive(), errors.receive(), &inherited, 0)) fail("a pipe");
      SetHandleInformation(m_errors.get(), HANDLE_FLAG_INHERIT, 0);
    }
    GivenHandles handles(errors.get());
    std::wstring line = commandLine(command);
    std::wstring environment = environmentOf(command);
    PROCESS_INFORMATION process{};
    // Held until it belongs to its group, so that all that it starts belongs to it as well.
    if (!CreateProcessW(corvane::fromUtf8(command.program).c_str(), line.data(), nullptr, nullptr, TRUE,
                        CREATE_UNICODE_ENVIRONMENT | CREATE_NEW_PROCESS_GROUP | CREATE_NO_WINDOW | CREATE_SUSPENDED |
                            EXTENDED_STARTUPINFO_PRESENT,
                        environment.data(), nullptr, handles.start(), &process)) {
      fail(command.program.c_str());
    }
    const mg::ObjectHandle thread(process.hThread);
    m_process.reset(process.hProcess);
    m_id = process.dwProcessId;
    m_isGrouped = AssignProcessToJobObject(m_group.get(), m_process.get()) != FALSE;
    ResumeThread(thread.get());
  }

  unsigned long processId() const override { return m_id; }

  std::optional<int> wait(Deadline deadline) override {
    const HANDLE handles[] = {m_process.get(), m_wake.get()};
    for (;;) {
      const DWORD outcome = WaitForMultipleObjects(2, handles, FALSE, waitUntil(deadline));
      readErrors();
      DWORD code = 0;
      if (outcome == WAIT_OBJECT_0) {
        return GetExitCodeProcess(m_process.get(), &code) ? std::optional<int>(static_cast<int>(code)) : std::nullopt;
      }
      if (outcome != WAIT_TIMEOUT || std::chrono::steady_clock::now() >= deadline) return std::nullopt;
    }
  }

  void leave() noexcept override { SetEvent(m_wake.get()); }

  void end() noexcept override {
    if (!m_isGrouped || !TerminateJobObject(m_group.get(), kEndedCode)) TerminateProcess(m_process.get(), kEndedCode);
    WaitForSingleObject(m_process.get(), kEndMilliseconds);
  }

  std::string lastErrorLine() const override { return lastLine(m_said); }

 private:
  static constexpr UINT kEndedCode = 143;

  // A pipe cannot be waited for: while there is one it is looked at again and again.
  DWORD waitUntil(Deadline deadline) const {
    constexpr std::int64_t kLook = 50;
    const std::int64_t longest = m_errors ? kLook : std::int64_t{60 * 60 * 1000};
    if (deadline == Deadline::max()) return m_errors ? static_cast<DWORD>(kLook) : INFINITE;
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now()).count();
    return static_cast<DWORD>(std::clamp<std::int64_t>(left, 0, longest));
  }

  void readErrors() {
    std::array<char, kErrorBytes> piece;
    DWORD there = 0, got = 0;
    while (m_errors) {
      if (!PeekNamedPipe(m_errors.get(), nullptr, 0, nullptr, &there, nullptr)) {
        m_errors.reset();
      } else if (there == 0 ||
                 !ReadFile(m_errors.get(), piece.data(), std::min(there, DWORD{kErrorBytes}), &got, nullptr)) {
        return;
      } else {
        m_said.append(piece.data(), got);
        if (m_said.size() > kErrorBytes) m_said.erase(0, m_said.size() - kErrorBytes);
      }
    }
  }

  const mg::ObjectHandle m_wake;
  const mg::ObjectHandle m_group;
  mg::ObjectHandle m_process;
  mg::ObjectHandle m_errors;  // none when nobody wants them, or all are read
  std::string m_said;         // the end of them
  DWORD m_id = 0;
  bool m_isGrouped = false;
};

}  // namespace

std::unique_ptr<ChildProgram> ChildProgram::start(const ChildCommand& command) {
  return std::make_unique<WindowsChild>(command);
}

}  // namespace programs
