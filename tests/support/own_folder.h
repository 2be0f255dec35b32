#pragma once

#include "corvane/base/process.h"

#include <filesystem>
#include <string>

// A folder that is one test's alone, empty at the start and gone at the end; on each platform.
class OwnFolder {
 public:
  explicit OwnFolder(const std::string& name)
      : m_path(std::filesystem::temp_directory_path() / ("mg_" + name + "_" + std::to_string(corvane::processId()))) {
    std::filesystem::remove_all(m_path);
    std::filesystem::create_directories(m_path);
  }
  ~OwnFolder() {
    std::error_code ignored;
    std::filesystem::remove_all(m_path, ignored);
  }
  OwnFolder(const OwnFolder&) = delete;
  OwnFolder& operator=(const OwnFolder&) = delete;

  const std::filesystem::path& path() const { return m_path; }

 private:
  const std::filesystem::path m_path;
};
