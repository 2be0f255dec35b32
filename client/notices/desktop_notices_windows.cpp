#include "client/notices/desktop_notices.h"
#include "corvane/base/process.h"
#include "corvane/base/text.h"

#include <windows.h>

#include <algorithm>
#include <fmt/format.h>
#include <shellapi.h>
#include <string>

namespace printclient {
namespace {

constexpr UINT kIcon = 1;

// As much of the text as there is room for, and no half of a character.
template <std::size_t kSize>
void put(wchar_t (&room)[kSize], const std::string& text) {
  const std::wstring wide = corvane::fromUtf8(text);
  std::size_t count = std::min(wide.size(), kSize - 1);
  if (count < wide.size() && count > 0 && (wide[count - 1] & 0xFC00) == 0xD800) --count;
  std::copy_n(wide.begin(), count, room);
  room[count] = L'\0';
}

class ShellDesktop : public Desktop {
 public:
  ~ShellDesktop() override {
    if (m_window == nullptr) return;
    NOTIFYICONDATAW icon = iconData();
    Shell_NotifyIconW(NIM_DELETE, &icon);
    DestroyWindow(m_window);
  }

  std::string show(const DesktopNotice& notice) override {
    if (m_window == nullptr && !addIcon()) return "there is no notification area";
    NOTIFYICONDATAW icon = iconData();
    icon.uFlags = NIF_INFO;
    put(icon.szInfoTitle, notice.title);
    put(icon.szInfo, notice.text);
    icon.dwInfoFlags = notice.isUrgent ? NIIF_ERROR : NIIF_WARNING;
    if (Shell_NotifyIconW(NIM_MODIFY, &icon)) return "";
    return "the notification area takes no notices";
  }

 private:
  NOTIFYICONDATAW iconData() const {
    NOTIFYICONDATAW icon = {};
    icon.cbSize = sizeof(icon);
    icon.hWnd = m_window;
    icon.uID = kIcon;
    return icon;
  }

  // The icon belongs to a window that nobody sees; nothing that it is told is of interest.
  bool addIcon() {
    m_window = CreateWindowExW(0, L"STATIC", L"printclient", 0, 0, 0, 0, 0, HWND_MESSAGE, nullptr, nullptr, nullptr);
    if (m_window == nullptr) return false;
    NOTIFYICONDATAW icon = iconData();
    icon.uFlags = NIF_ICON | NIF_TIP;
    icon.hIcon = LoadIconW(nullptr, MAKEINTRESOURCEW(32512));  // IDI_APPLICATION
    put(icon.szTip, "Print jobs");
    if (Shell_NotifyIconW(NIM_ADD, &icon)) return true;
    DestroyWindow(m_window);
    m_window = nullptr;
    return false;
  }

  HWND m_window = nullptr;
};

}  // namespace

std::unique_ptr<Desktop> openDesktop() {
  return std::make_unique<ShellDesktop>();
}

}  // namespace printclient
