#pragma once

#include <cstddef>
#include <string>
#include <vector>

namespace admin {

// The last lines of the module's log that tell of a failure, oldest first; empty when the file is not there or cannot
// be read.
std::vector<std::string> failuresInLog(const std::wstring& path, std::size_t most);

// The same for a text: records that say "failure", "exception" or "connection".
std::vector<std::string> failuresInText(const std::string& text, std::size_t most);

}  // namespace admin
