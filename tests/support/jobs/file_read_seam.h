#pragma once

#include <cstdio>
#include <functional>

// The runtime's fread as this folder's tests see it. Set until the test's ImportSeams ends.
namespace file_read_seam {

using Read = std::function<std::size_t(void* to, std::size_t size, std::size_t count, std::FILE* file)>;

void replace(Read read);
// The runtime's own.
std::size_t real(void* to, std::size_t size, std::size_t count, std::FILE* file);

}  // namespace file_read_seam
