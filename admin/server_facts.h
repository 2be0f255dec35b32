#pragma once

#include "programs/session_registration.h"

#include <array>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace admin {

// What the application server says about itself; see programs/administration.h. Times are UTC, as texts; a person gets
// them as programs/local_time.h says.

struct ClientPrinterFacts {
  std::wstring localName;  // on this server; the same whenever the client comes back
  std::array<std::optional<std::wstring>, programs::kPrinterTexts> texts;
  bool isDefault = false;
  int format = 0;  // 1 raw data, 2 PostScript, 3 PDF
  int secondValue = 0;

  std::wstring clientName() const { return texts[0].value_or(std::wstring()); }
  std::wstring driver() const { return texts[programs::kDriverText].value_or(std::wstring()); }
};

struct SessionFacts {
  int number = 0;
  bool isConnected = false;
  std::wstring since;
  std::vector<ClientPrinterFacts> printers;
};

struct ServerFacts {
  std::wstring version;
  int process = 0;
  std::wstring since;
  std::vector<SessionFacts> sessions;

  // Null when there is none of that number.
  const SessionFacts* session(int number) const;
};

struct Notice {
  int number = 0;
  std::wstring time, kind, line;
  std::map<std::wstring, std::wstring> values;

  // Empty when it has none of that name.
  std::wstring value(const std::wstring& name) const;
};

struct Notices {
  int latest = 0;
  std::vector<Notice> notices;
};

}  // namespace admin
