#pragma once

#include <array>
#include <compare>
#include <cstdint>
#include <optional>
#include <string>

namespace admin {

// The version in a file's resource, ordered by its numbers from the left.
struct FileVersion {
  std::array<std::uint16_t, 4> numbers = {};

  auto operator<=>(const FileVersion&) const = default;
  // "4.0.1.0"
  std::string text() const;
};

// Nothing when the file is not there or has no version.
std::optional<FileVersion> fileVersion(const std::wstring& path);

}  // namespace admin
