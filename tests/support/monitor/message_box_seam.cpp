#include "tests/support/monitor/message_box_seam.h"

#include "tests/support/import_seam.h"

#include <utility>

MG_IMPORT_SEAM(L"user32.dll", MessageBoxW, 0)

std::vector<std::wstring>& watchMessageBoxes() {
  static std::vector<std::wstring> boxes;
  boxes.clear();
  MessageBoxWSeam.replacement = [](HWND owner, LPCWSTR text, LPCWSTR title, UINT type) -> int {
    boxes.push_back(std::to_wstring(reinterpret_cast<std::uintptr_t>(owner)) + L"|" + text + L"|" + title + L"|" +
                    std::to_wstring(type));
    return IDOK;
  };
  return boxes;
}

void whenBoxIsShown(std::function<void()> action) {
  MessageBoxWSeam.watch = [action = std::move(action)](HWND, LPCWSTR, LPCWSTR, UINT) { action(); };
}
