#pragma once

#include <windows.h>

namespace mg {

// Shows a message box with an OK button and waits until it is closed. Where nobody could close it - in session 0, where
// services run, and on a window station that is not visible - it would block the spooler's thread for ever: there the
// text goes to the module's log instead. Any thread may call.
void showMessageBox(HWND owner, const wchar_t* text, const wchar_t* title) noexcept;

}  // namespace mg
