#pragma once

#include <cstddef>

namespace aps {

// Makes this process have so many descriptors, as far as the system lets it, and returns how many it may have. Where
// the system does not count them, that is as many as are wanted.
std::size_t provideDescriptors(std::size_t wanted);

}  // namespace aps
