#include "converter/conversion_error.h"

#include "corvane/base/process.h"

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
  const std::wstring words = corvane::systemErrorWords(error, true);
  return (words.empty() ? L"error (" : words + L" (") + std::to_wstring(error) + L")";
}

}  // namespace mg::converter
