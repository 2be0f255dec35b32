#pragma once

#include "protocol/printer.h"
#include "protocol/session.h"

#include <cstddef>
#include <string>
#include <vector>

namespace aps {

using protocol::Printer;

inline constexpr std::size_t kMaxPrinterName = protocol::Registration::kLongestName;
inline constexpr std::size_t kMaxPrinterText = 1024;  // of each of the other texts
inline constexpr std::size_t kMaxLocalName = 220;     // characters that a spooler takes in a name

// The name under which a session's printer is known on this server: the client's own name first, then the session. It
// depends on nothing else, so it is the same after every reconnect. What a spooler takes in no name (backslash, comma
// and exclamation mark) becomes "-", and the client's part is cut where the whole would be longer than kMaxLocalName.
std::wstring localPrinterName(const std::wstring& clientName, int session);

// A name for comparisons: two printers of one machine may not differ in the case of their letters only. Safe from any
// thread.
std::wstring foldedName(const std::wstring& name);

// Why these printers cannot be brought along, for a person; empty when they can.
std::wstring printersRefusal(const std::vector<Printer>& printers);

}  // namespace aps
