#pragma once

#include <cstddef>

// Pages for the guarded heap: each range is followed by a page that cannot be accessed, and no address is ever given
// out twice. All operations may be called from any thread; none throws.
namespace guarded_pages {

struct Range {
  unsigned char* base;
  unsigned char* end;
};

// Accessible pages of at least that many bytes; null without memory.
Range take(std::size_t bytes) noexcept;
// Makes a range accessible again that was given back; false without memory.
bool takeAgain(Range range) noexcept;
// From now on every access to the range faults.
void giveBack(Range range) noexcept;

}  // namespace guarded_pages
