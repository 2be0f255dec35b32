#pragma once

#include <random>
#include <string>
#include <vector>
#include <zlib.h>

namespace tests {

// Text as a PostScript driver writes it: much of it repeats, and not all.
inline std::string postScript(std::size_t size) {
  std::mt19937 random(7);
  std::uniform_int_distribution<int> place(0, 999999);
  std::string text = "%!PS-Adobe-3.0\n";
  while (text.size() < size) {
    text += std::to_string(place(random)) + " " + std::to_string(place(random)) + " moveto (line " +
            std::to_string(place(random) % 40) + " of a letter) show\n";
  }
  return text;
}

// Of zlib at its usual level.
inline std::size_t compressedSize(const std::string& data) {
  uLongf size = ::compressBound(data.size());
  std::vector<unsigned char> into(size);
  ::compress2(into.data(), &size, reinterpret_cast<const unsigned char*>(data.data()), data.size(), 6);
  return size;
}

}  // namespace tests
