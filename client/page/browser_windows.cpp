#include "client/page/show_page.h"
#include "corvane/base/process.h"
#include "corvane/base/text.h"

#include <windows.h>

#include <cstdint>
#include <fmt/format.h>
#include <shellapi.h>

namespace printclient {

std::string openInBrowser(const std::filesystem::path& document) {
  constexpr std::intptr_t kGreatestError = 32;  // as the shell counts
  const HINSTANCE answer = ShellExecuteW(nullptr, L"open", document.c_str(), nullptr, nullptr, SW_SHOWNORMAL);
  if (reinterpret_cast<std::intptr_t>(answer) > kGreatestError) return "";
  const DWORD error = GetLastError();
  const std::string words = corvane::toUtf8(corvane::systemErrorWords(error));
  return words.empty() ? fmt::format("error {}", error) : words;
}

}  // namespace printclient
