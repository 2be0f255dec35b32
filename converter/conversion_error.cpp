#include "converter/conversion_error.h"

#include <windows.h>

#include <cwchar>
#include <utility>

namespace mg::converter {

ConversionError::ConversionError(ExitCode code, std::wstring text)
    : code_(code), text_(std::move(text)), what_(text_.size() * 3, '\0') {
  what_.resize(
      static_cast<size_t>(WideCharToMultiByte(CP_UTF8, 0, text_.data(), static_cast<int>(text_.size()), what_.data(),
                                              static_cast<int>(what_.size()), nullptr, nullptr)));
}

std::wstring SystemErrorText(unsigned long error) {
  wchar_t text[512];
  DWORD length = FormatMessageW(FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS, nullptr, error, 0, text,
                                static_cast<DWORD>(std::size(text)), nullptr);
  while (length > 0 && (text[length - 1] == L'\n' || text[length - 1] == L'\r' || text[length - 1] == L' '))
    --length;
  return (length > 0 ? std::wstring(text, length) + L" (" : std::wstring(L"error (")) + std::to_wstring(error) + L")";
}

}  // namespace mg::converter
