#pragma once

#include "admin/base/places.h"

#include <string>
#include <vector>

namespace admin {

// A line of the table: clients' drivers, named by a pattern with "*" (any text) and "?" (one character), and the
// driver of this server that stands in for them.
struct DriverMapping {
  std::wstring pattern;
  std::wstring driver;  // empty when the registry value is no string

  bool operator==(const DriverMapping&) const = default;
};

// What an administrator has set about the drivers of session printers. A plain value.
struct DriverSettings {
  std::wstring fallback;  // for printers that the table has no line for; empty: none
  std::vector<DriverMapping> table;

  // What the registry has. Throws a SystemFailure.
  static DriverSettings read(const Places& places);

  // The line for a driver that a client names; null when there is none. Case does not count. Where several patterns
  // fit, the name itself comes first, then the pattern with more characters that are no wildcards, then the longer
  // one, and then the one whose name comes first.
  const DriverMapping* lineFor(const std::wstring& clientDriver) const;
};

}  // namespace admin
