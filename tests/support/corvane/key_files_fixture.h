#pragma once

#include "corvane/base/process.h"
#include "corvane/trust/key.h"

#include <atomic>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

namespace keys {

// A folder with key files for one test, gone when the object dies.
class KeyFiles {
 public:
  KeyFiles() {
    static std::atomic<int> count{0};
    m_folder = std::filesystem::temp_directory_path() /
               ("mg_keys_" + std::to_string(corvane::processId()) + "_" + std::to_string(++count));
    std::filesystem::create_directories(m_folder);
    std::filesystem::permissions(m_folder, std::filesystem::perms::owner_all);
  }
  ~KeyFiles() {
    std::error_code ignored;
    std::filesystem::remove_all(m_folder, ignored);
  }
  KeyFiles(const KeyFiles&) = delete;
  KeyFiles& operator=(const KeyFiles&) = delete;

  // A private file with that content; returns its path.
  std::string write(const std::string& name, const std::string& content) const {
    const std::filesystem::path path = m_folder / name;
    std::ofstream(path, std::ios::binary) << content;
    using std::filesystem::perms;
    std::filesystem::permissions(path, perms::owner_read | perms::owner_write);
    return path.string();
  }
  // The key that consists of that digit.
  std::string add(const std::string& identity, char digit) const {
    return write(identity + ".key", std::string(64, digit) + "\n");
  }
  std::string path(const std::string& name) const { return (m_folder / name).string(); }
  std::string content(const std::string& name) const {
    std::ifstream file(m_folder / name, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
  }
  corvane::KeyFolder folder() const { return corvane::KeyFolder(m_folder.string()); }

 private:
  std::filesystem::path m_folder;
};

}  // namespace keys
