#include "converter/folder_watch.h"

namespace mg::converter {

FolderWatch::FolderWatch(const std::wstring& folder)
    : m_change(FindFirstChangeNotificationW(folder.c_str(), FALSE,
                                            FILE_NOTIFY_CHANGE_FILE_NAME | FILE_NOTIFY_CHANGE_DIR_NAME)) {}

void FolderWatch::wait(DWORD milliseconds) const {
  if (!m_change) {
    Sleep(milliseconds);
  } else if (WaitForSingleObject(m_change.get(), milliseconds) == WAIT_OBJECT_0) {
    FindNextChangeNotification(m_change.get());
  }
}

}  // namespace mg::converter
