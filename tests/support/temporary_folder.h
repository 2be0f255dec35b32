#pragma once

#include <windows.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

// A folder of its own for one test, empty at the start and gone at the end.
class TemporaryFolder {
 public:
  TemporaryFolder()
      : m_path(std::filesystem::temp_directory_path() / (L"mg_test_" + std::to_wstring(GetCurrentProcessId()))) {
    std::filesystem::remove_all(m_path);
    std::filesystem::create_directories(m_path);
  }
  ~TemporaryFolder() {
    std::error_code ignored;
    std::filesystem::remove_all(m_path, ignored);
  }
  TemporaryFolder(const TemporaryFolder&) = delete;
  TemporaryFolder& operator=(const TemporaryFolder&) = delete;

  std::wstring file(const std::wstring& name) const { return (m_path / name).wstring(); }
  // With a backslash at the end, as Windows gives the directory for temporary files.
  std::wstring directory() const { return m_path.wstring() + L"\\"; }
  bool isEmpty() const { return std::filesystem::is_empty(m_path); }

  static void write(const std::wstring& path, const std::string& bytes) {
    std::ofstream(std::filesystem::path(path), std::ios::binary) << bytes;
  }
  static std::string read(const std::wstring& path) {
    std::ifstream file(std::filesystem::path(path), std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
  }
  static bool exists(const std::wstring& path) { return std::filesystem::exists(path); }

 private:
  std::filesystem::path m_path;
};
