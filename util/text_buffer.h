#pragma once

#include "util/status.h"
#include "util/utl_exception.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <new>

// A buffer of size characters for UTL_String and its kin, contents undefined. Throws UTL_Exception with
// mg::status::kNoMemory when there is no memory, or when no memory could ever hold that many.
template <typename Char>
std::unique_ptr<Char[]> makeTextBuffer(std::size_t size) {
  // Even the nothrow form of new throws when the size in bytes is beyond what it can express.
  if (size > static_cast<std::size_t>(PTRDIFF_MAX) / 2 / sizeof(Char)) throw UTL_Exception(mg::status::kNoMemory);
  std::unique_ptr<Char[]> buffer(new (std::nothrow) Char[size]);
  if (buffer == nullptr) throw UTL_Exception(mg::status::kNoMemory);
  return buffer;
}
