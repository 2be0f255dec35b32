#pragma once

#include <cstddef>

namespace mg {

// Why data for a printer that wants PDF were not recognised as PostScript and go out as they came, with what to do
// about it: one line to stand behind "was delivered", never null, static storage. Only what stands at the very begin
// decides; the data may be of any kind and size, also none.
const wchar_t* whyUnconverted(const unsigned char* data, std::size_t size) noexcept;

}  // namespace mg
