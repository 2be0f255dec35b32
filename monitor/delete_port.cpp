#include "corvane/operation.h"
#include "monitor/entries.h"
#include "monitor/job_end.h"
#include "monitor/message_box.h"
#include "ports/port_list.h"
#include "session/held_port.h"

#include <array>
#include <cwchar>

namespace {

void showRemoved(HWND owner, const wchar_t* portName) {
  std::array<wchar_t, 512> text{};
  // One less than fits: a text that is cut does not come with its end.
  _snwprintf(text.data(), text.size() - 1, L"Port \"%s\" successfully removed.", portName);
  mg::showMessageBox(owner, text.data(), L"Port removed");
}

}  // namespace

BOOL WINAPI MGDeletePort(HANDLE, LPWSTR pName, HWND hWnd, LPWSTR pPortName) {
  CS_TraceEntry trace(L"MGDeletePort (pName = %s)", pName);
  Operation operation(L"Stack Trace: MgPrintMon - MGDeletePort()");
  BOOL result = FALSE;
  operation.run([&] {
    result = static_cast<BOOL>(mg::portList().DeletePort(pPortName, mg::endJobOfDeletedPort));
    if (result) {
      showRemoved(hWnd, pPortName);
      return;
    }
    mg::showMessageBox(hWnd, L"An error has occurred\n\nCouldn't remove the port.", L"Error");
    // The name recorded is the server's, on purpose: the port's name is in the record of the port list.
    operation.fail(corvane::kLevelFailure, L"failed to remove port %s", pName);
  });
  return result;
}
