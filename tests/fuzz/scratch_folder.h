#pragma once

#include <cstdlib>
#include <filesystem>
#include <string>
#include <system_error>

namespace fuzz {

// A folder of this process's own, which is removed when the object dies. It stays behind when an input breaks
// something.
class ScratchFolder {
 public:
  ScratchFolder() {
    std::string pattern = (std::filesystem::temp_directory_path() / "mg_fuzz_XXXXXX").string();
    if (::mkdtemp(pattern.data()) == nullptr) std::abort();
    m_path = pattern;
  }
  ~ScratchFolder() {
    std::error_code ignored;
    std::filesystem::remove_all(m_path, ignored);
  }
  ScratchFolder(const ScratchFolder&) = delete;
  ScratchFolder& operator=(const ScratchFolder&) = delete;

  const std::filesystem::path& path() const { return m_path; }

 private:
  std::filesystem::path m_path;
};

}  // namespace fuzz
