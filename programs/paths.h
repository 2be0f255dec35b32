#pragma once

#include <filesystem>
#include <string>

namespace programs {

// File names are UTF-8 text everywhere in the programs; only here do they become what the platform wants.
inline std::filesystem::path toPath(const std::string& utf8) {
  return std::filesystem::path(std::u8string(utf8.begin(), utf8.end()));
}

inline std::string fromPath(const std::filesystem::path& path) {
  const std::u8string text = path.u8string();
  return std::string(text.begin(), text.end());
}

}  // namespace programs
