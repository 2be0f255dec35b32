#include "tests/support/spooler/system_failure.h"

#include "corvane/base/process.h"

namespace mg::support {
namespace {

std::string words(DWORD error) {
  const std::wstring known = corvane::systemErrorWords(error);
  return (known.empty() ? std::string("unknown error") : utf8(known)) + " (" + std::to_string(error) + ")";
}

}  // namespace

std::string utf8(const std::wstring& text) {
  std::string bytes(text.size() * 3, '\0');
  const int size = WideCharToMultiByte(CP_UTF8, 0, text.data(), static_cast<int>(text.size()), bytes.data(),
                                       static_cast<int>(bytes.size()), nullptr, nullptr);
  bytes.resize(static_cast<size_t>(size));
  return bytes;
}

std::wstring wide(const std::string& text) {
  std::wstring wide(text.size(), L'\0');
  const int size = MultiByteToWideChar(CP_UTF8, 0, text.data(), static_cast<int>(text.size()), wide.data(),
                                       static_cast<int>(wide.size()));
  wide.resize(static_cast<size_t>(size));
  return wide;
}

SystemFailure::SystemFailure(const std::string& what, DWORD error)
    : std::runtime_error(what + ": " + words(error)), m_error(error) {}

void require(bool done, const std::string& what) {
  if (!done) throw SystemFailure(what, GetLastError());
}

}  // namespace mg::support
