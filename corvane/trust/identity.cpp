#include "corvane/trust/identity.h"

#include <limits>

namespace corvane {
namespace {

constexpr std::wstring_view kMonitor = L"monitor";
constexpr std::wstring_view kSession = L"session-";

}  // namespace

std::optional<Identity> Identity::parse(std::wstring_view name) {
  if (name == kMonitor) return monitor();
  if (!name.starts_with(kSession)) return std::nullopt;
  const std::wstring_view digits = name.substr(kSession.size());
  if (digits.empty() || digits.size() > 10 || digits.front() == L'0') return std::nullopt;
  long long number = 0;
  for (const wchar_t c : digits) {
    if (c < L'0' || c > L'9') return std::nullopt;
    number = number * 10 + (c - L'0');
  }
  if (number > std::numeric_limits<int>::max()) return std::nullopt;
  return session(static_cast<int>(number));
}

std::wstring Identity::name() const {
  if (isMonitor()) return std::wstring(kMonitor);
  return std::wstring(kSession) + std::to_wstring(m_session);
}

}  // namespace corvane
