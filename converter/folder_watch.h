#pragma once

#include "util/unique_handle.h"
#include "util/win_handle.h"

#include <windows.h>

#include <string>

namespace mg::converter {

// Waits for files to appear in or vanish from one folder. Where the file system reports no changes, the condition is
// checked four times a second.
class FolderWatch {
 public:
  explicit FolderWatch(const std::wstring& folder)
      : m_change(FindFirstChangeNotificationW(folder.c_str(), FALSE,
                                              FILE_NOTIFY_CHANGE_FILE_NAME | FILE_NOTIFY_CHANGE_DIR_NAME)) {}

  // Calls `isSo` until it returns true; false when it has not by `deadline` (GetTickCount64).
  template <typename Condition>
  bool waitUntil(ULONGLONG deadline, Condition&& isSo) const {
    while (!isSo()) {
      const ULONGLONG now = GetTickCount64();
      if (now >= deadline) return false;
      wait(static_cast<DWORD>(deadline - now < kSlice ? deadline - now : kSlice));
    }
    return true;
  }

 private:
  static constexpr ULONGLONG kSlice = 250;

  struct ChangeHandleTraits {
    using Type = HANDLE;
    static Type invalid() noexcept { return INVALID_HANDLE_VALUE; }
    static void close(Type handle) noexcept {
      const LastErrorKeeper keeper;
      FindCloseChangeNotification(handle);
    }
  };

  void wait(DWORD milliseconds) const {
    if (!m_change) {
      Sleep(milliseconds);
    } else if (WaitForSingleObject(m_change.get(), milliseconds) == WAIT_OBJECT_0) {
      FindNextChangeNotification(m_change.get());
    }
  }

  UniqueHandle<ChangeHandleTraits> m_change;
};

}  // namespace mg::converter
