#pragma once

#include <string>

namespace printclient {

// The name of the account that this process runs as, as UTF-8; its number, or "unknown" on Windows, where it has no
// name.
std::string accountName();

}  // namespace printclient
