#pragma once

#include <string>

namespace aps {

// The text with each letter as a capital one, letter by letter and in no language's own way, as the spooler of Windows
// compares names. Safe from any thread.
std::wstring upperCase(std::wstring text);

}  // namespace aps
