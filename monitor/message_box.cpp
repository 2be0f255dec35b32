#include "monitor/message_box.h"

#include "corvane/records/program_monitor.h"

#include <cwchar>
#include <iterator>

namespace mg {
namespace {

// What Windows does not tell is taken for the ordinary case.
bool somebodyCanSeeIt() {
  DWORD session = 0;
  if (ProcessIdToSessionId(GetCurrentProcessId(), &session) && session == 0) return false;
  USEROBJECTFLAGS flags{};
  return !GetUserObjectInformationW(GetProcessWindowStation(), UOI_FLAGS, &flags, sizeof flags, nullptr) ||
         (flags.dwFlags & WSF_VISIBLE) != 0;
}

}  // namespace

void showMessageBox(HWND owner, const wchar_t* text, const wchar_t* title) noexcept {
  if (somebodyCanSeeIt()) {
    MessageBoxW(owner, text, title, MB_OK);
    return;
  }
  wchar_t line[768];
  std::swprintf(line, std::size(line), L"%ls: %ls (not shown, because this process has no desktop that anybody sees)",
                title, text);
  corvane::LocalMonitor::instance().writeLine(L"message box:", line);
}

}  // namespace mg
