#include "util/utl_string.h"

#include <windows.h>

#include <climits>
#include <cstring>
#include <cwchar>

namespace {

using LoadStringWide = int(WINAPI*)(HINSTANCE, UINT, LPWSTR, int);

// A size of 0 would make Windows store a pointer into the buffer instead of text.
int checkedSize(std::size_t size) {
  if (size == 0 || size > INT_MAX) throw UTL_Exception(mg::status::kFailure);
  return static_cast<int>(size);
}

// Calls fill(buffer, size) for the size and again for the text. Each time it answers with the characters that it
// wrote, or with the size that it needs, terminator included, or with 0 for a failure.
template <typename Char, typename Fill>
std::unique_ptr<Char[]> filled(Fill fill) {
  DWORD size = fill(nullptr, 0);
  if (size == 0) throw UTL_Exception(mg::status::kFailure);
  // Room to spare: the narrow form of ExpandEnvironmentStrings needs one more than it reports.
  size += 1;
  auto buffer = makeTextBuffer<Char>(size);
  const DWORD written = fill(buffer.get(), size);
  // The text may have grown in between.
  if (written == 0 || written > size) throw UTL_Exception(mg::status::kFailure);
  return buffer;
}

}  // namespace

void UTL_String::loadResourceNarrow(const char* module, unsigned identifier, std::size_t size) {
  const int room = checkedSize(size);
  const HMODULE handle = GetModuleHandleA(module);
  if (handle == nullptr) throw UTL_Exception(mg::status::kFailure);
  auto buffer = makeTextBuffer<char>(size);
  const int written = LoadStringA(handle, identifier, buffer.get(), room);
  if (written <= 0) throw UTL_Exception(mg::status::kFailure);
  adopt(std::move(buffer), static_cast<std::size_t>(written));
}

void UTL_String::loadResourceWide(const wchar_t* module, unsigned identifier, std::size_t size) {
  const int room = checkedSize(size);
  const HMODULE handle = GetModuleHandleW(module);
  if (handle == nullptr) throw UTL_Exception(mg::status::kFailure);
  const auto own = reinterpret_cast<LoadStringWide>(reinterpret_cast<void*>(GetProcAddress(handle, "MGLoadStringW")));
  auto buffer = makeTextBuffer<wchar_t>(size);
  const int written = (own != nullptr ? own : LoadStringW)(handle, identifier, buffer.get(), room);
  if (written <= 0 || written >= room) throw UTL_Exception(mg::status::kFailure);
  adopt(std::move(buffer), static_cast<std::size_t>(written));
}

void UTL_String::expandEnvironment() {
  if (isEmpty()) return;
  if (primaryForm() == Form::kNarrow) {
    auto text =
        filled<char>([&](char* buffer, DWORD size) { return ExpandEnvironmentStringsA(narrow(), buffer, size); });
    const std::size_t length = std::strlen(text.get());
    adopt(std::move(text), length);
  } else {
    auto text =
        filled<wchar_t>([&](wchar_t* buffer, DWORD size) { return ExpandEnvironmentStringsW(wide(), buffer, size); });
    const std::size_t length = std::wcslen(text.get());
    adopt(std::move(text), length);
  }
}

void UTL_String::shortenPath() {
  if (isEmpty()) return;
  if (primaryForm() == Form::kNarrow) {
    auto text = filled<char>([&](char* buffer, DWORD size) { return GetShortPathNameA(narrow(), buffer, size); });
    const std::size_t length = std::strlen(text.get());
    adopt(std::move(text), length);
  } else {
    auto text = filled<wchar_t>([&](wchar_t* buffer, DWORD size) { return GetShortPathNameW(wide(), buffer, size); });
    const std::size_t length = std::wcslen(text.get());
    adopt(std::move(text), length);
  }
}

void UTL_String::readWindowNarrow(HWND__* window) {
  const int length = GetWindowTextLengthA(window);
  auto buffer = makeTextBuffer<char>(static_cast<std::size_t>(length) + 1);
  const int written = GetWindowTextA(window, buffer.get(), length + 1);
  adopt(std::move(buffer), static_cast<std::size_t>(written));
}

void UTL_String::readWindowWide(HWND__* window) {
  const int length = GetWindowTextLengthW(window);
  auto buffer = makeTextBuffer<wchar_t>(static_cast<std::size_t>(length) + 1);
  const int written = GetWindowTextW(window, buffer.get(), length + 1);
  adopt(std::move(buffer), static_cast<std::size_t>(written));
}
