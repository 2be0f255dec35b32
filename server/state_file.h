#pragma once

#include <cstddef>
#include <filesystem>
#include <optional>
#include <string>

namespace aps {

// A small file that is there for this program alone: always whole, because it is replaced in one step, and on Linux
// readable by its owner only. Every operation throws std::runtime_error with the cause, for a person. Used by one
// thread.
class StateFile {
 public:
  // A longer file is not read.
  static constexpr std::size_t kMaxBytes = 32 * 1024 * 1024;

  explicit StateFile(std::filesystem::path path) : m_path(std::move(path)) {}

  // Nothing when there is no file. What is not a regular file, a link included, a file of another owner, and one that
  // others may write are refused.
  std::optional<std::string> read() const;
  // Returns when the content is on the disk. After a failure the file is as it was. What is not a regular file stays.
  void replace(const std::string& content) const;
  // Gives the file the name "<name>.damaged", in place of an older one of that name. What is not a regular file stays.
  void setAside() const;

 private:
  const std::filesystem::path m_path;
};

}  // namespace aps
