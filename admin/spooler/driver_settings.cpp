#include "admin/spooler/driver_settings.h"

#include "admin/base/registry_value.h"
#include "corvane/base/text.h"
#include "programs/name_pattern.h"

#include <windows.h>

#include <algorithm>
#include <tuple>

namespace admin {
namespace {

// As the registry compares names.
std::wstring upperCase(const std::wstring& text) {
  std::wstring upper = text;
  const auto length = static_cast<int>(text.size());
  LCMapStringEx(LOCALE_NAME_INVARIANT, LCMAP_UPPERCASE, text.c_str(), length, upper.data(), length, nullptr, nullptr,
                0);
  return upper;
}

// How well a pattern that fits a name says which one it means; the greater comes first.
std::tuple<bool, std::ptrdiff_t, std::size_t> closeness(const std::wstring& name, const std::wstring& pattern) {
  const auto letters = std::count_if(pattern.begin(), pattern.end(), [](wchar_t c) { return c != L'*' && c != L'?'; });
  return {name == pattern, letters, pattern.size()};
}

}  // namespace

DriverSettings DriverSettings::read(const Places& places) {
  DriverSettings settings;
  const auto fallback = readValue(places.printersKey(), kFallbackDriverName);
  if (fallback) settings.fallback = fallback->text().value_or(std::wstring());
  for (const std::wstring& pattern : valueNames(places.driverTableKey())) {
    const auto driver = readValue(places.driverTableKey(), pattern);
    settings.table.push_back({pattern, driver ? driver->text().value_or(std::wstring()) : std::wstring()});
  }
  return settings;
}

const DriverMapping* DriverSettings::lineFor(const std::wstring& clientDriver) const {
  const std::wstring name = upperCase(clientDriver);
  const DriverMapping* best = nullptr;
  for (const DriverMapping& line : table) {
    const std::wstring pattern = upperCase(line.pattern);
    if (!programs::fitsPattern(corvane::toUtf8(name), corvane::toUtf8(pattern))) continue;
    if (best != nullptr) {
      const auto present = closeness(name, upperCase(best->pattern));
      const auto fresh = closeness(name, pattern);
      if (fresh < present || (fresh == present && upperCase(best->pattern) <= pattern)) continue;
    }
    best = &line;
  }
  return best;
}

}  // namespace admin
