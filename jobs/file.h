#pragma once

#include <cstdio>
#include <memory>

namespace mg {

struct FileCloser {
  void operator()(std::FILE* file) const noexcept { std::fclose(file); }
};

// An open file of the runtime library; closed at the end of its owner's scope.
using File = std::unique_ptr<std::FILE, FileCloser>;

// Bytes of an open file, with the position left at its start; below 0 when it cannot be told or does not fit a long.
long measure(std::FILE* file);

}  // namespace mg
