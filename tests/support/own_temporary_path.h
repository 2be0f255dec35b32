#pragma once

#include "tests/support/temporary_folder.h"

// For as long as this lives, the process's temporary files go into a folder of their own, which takes with it what was
// left in it on purpose, as the texts for notepad are.
class OwnTemporaryPath {
 public:
  OwnTemporaryPath() { SetEnvironmentVariableW(kName, m_folder.directory().c_str()); }
  ~OwnTemporaryPath() { SetEnvironmentVariableW(kName, m_before.c_str()); }
  OwnTemporaryPath(const OwnTemporaryPath&) = delete;
  OwnTemporaryPath& operator=(const OwnTemporaryPath&) = delete;

  const TemporaryFolder& folder() const { return m_folder; }

 private:
  static constexpr wchar_t kName[] = L"TMP";  // where GetTempPathW looks first

  const std::wstring m_before = std::filesystem::temp_directory_path().wstring();
  TemporaryFolder m_folder;
};
