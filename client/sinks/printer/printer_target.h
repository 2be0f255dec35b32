#pragma once

#include <string>

namespace printclient {

// Which of the person's printers is meant: a queue of this machine by its name, or the address of an IPP printer. At
// most one of them says something. A plain value.
struct PrinterTarget {
  std::string queue;
  std::string uri;
};

// Whether printers are reached by their addresses as well.
#ifdef _WIN32
inline constexpr bool kPrintsToAddresses = false;
#else
inline constexpr bool kPrintsToAddresses = true;
#endif

}  // namespace printclient
