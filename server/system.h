#pragma once

#include <cstddef>
#include <string>

namespace aps {

// Makes this process have so many descriptors, as far as the system lets it, and returns how many it may have. Where
// the system does not count them, that is as many as are wanted.
std::size_t provideDescriptors(std::size_t wanted);

// The text with each letter as a capital one, letter by letter and in no language's own way, as the spooler of Windows
// compares names. Safe from any thread.
std::wstring upperCase(std::wstring text);

}  // namespace aps
