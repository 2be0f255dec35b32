#pragma once

#include "corvane/base/process.h"
#include "corvane/base/text.h"

#include <exception>
#include <string>
#include <utility>

namespace mg::converter {

// How ps2pdf.exe ends. The numbers are a contract with its callers and are listed in converter/README.md.
enum class ExitCode : int {
  kDone = 0,
  kUsage = 1,
  kConfiguration = 2,
  kInput = 3,
  kGhostscriptMissing = 4,
  kPostScript = 5,
  kTimeLimit = 6,
  kMemoryLimit = 7,
  kOutputLimit = 8,
  kIncomplete = 9,
  kFileSystem = 10,
};

// Why there is no PDF: the exit code and one readable line that states the cause and the remedy.
class ConversionError : public std::exception {
 public:
  ConversionError(ExitCode code, std::wstring text)
      : m_code(code), m_text(std::move(text)), m_what(corvane::toUtf8(m_text)) {}

  ExitCode code() const { return m_code; }
  const std::wstring& text() const { return m_text; }
  // The same line in UTF-8.
  const char* what() const noexcept override { return m_what.c_str(); }

 private:
  ExitCode m_code;
  std::wstring m_text;
  std::string m_what;
};

// The system's words for a GetLastError number, without a full stop, as in "Access denied (5)".
inline std::wstring systemErrorText(unsigned long error) {
  const std::wstring words = corvane::systemErrorWords(error, true);
  return (words.empty() ? L"error (" : words + L" (") + std::to_wstring(error) + L")";
}

}  // namespace mg::converter
