#pragma once

#include <windows.h>

#include <filesystem>
#include <string>

namespace mg::converter {

// The path of a file in the folder of the test binary.
inline std::wstring besideThisProgram(const wchar_t* name) {
  wchar_t path[MAX_PATH];
  GetModuleFileNameW(nullptr, path, MAX_PATH);
  return std::filesystem::path(path).parent_path().wstring() + L"\\" + name;
}

}  // namespace mg::converter
