#include "converter/conversion_error.h"

#include <windows.h>

#include <cwchar>
#include <utility>

namespace mg::converter {

ConversionError::ConversionError(ExitCode code, std::wstring text)
    : m_code(code), m_text(std::move(text)), m_what(m_text.size() * 3, '\0') {
  m_what.resize(
      static_cast<size_t>(WideCharToMultiByte(CP_UTF8, 0, m_text.data(), static_cast<int>(m_text.size()), m_what.data(),
                                              static_cast<int>(m_what.size()), nullptr, nullptr)));
}

std::wstring systemErrorText(unsigned long error) {
  wchar_t text[512];
  DWORD length = FormatMessageW(FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS, nullptr, error, 0, text,
                                static_cast<DWORD>(std::size(text)), nullptr);
  while (length > 0 && (text[length - 1] == L'\n' || text[length - 1] == L'\r' || text[length - 1] == L' '))
    --length;
  return (length > 0 ? std::wstring(text, length) + L" (" : std::wstring(L"error (")) + std::to_wstring(error) + L")";
}

}  // namespace mg::converter
