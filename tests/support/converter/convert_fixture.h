#pragma once

#include "converter/conversion_error.h"
#include "converter/convert.h"

#include <windows.h>

#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <set>
#include <string>

namespace mg::converter {

inline constexpr char kTwoPages[] =
    "%!PS-Adobe-3.0\n/Helvetica findfont 20 scalefont setfont\n"
    "72 700 moveto (one) show showpage\n72 700 moveto (two) show showpage\n";

// Real runs of Ghostscript, on the host when under Wine, in a folder of the test.
class ConvertTest : public testing::Test {
 protected:
  ConvertTest() {
    wchar_t temporary[MAX_PATH];
    GetTempPathW(MAX_PATH, temporary);
    m_folder = std::wstring(temporary) + L"convert-test-" + std::to_wstring(GetCurrentProcessId());
    std::filesystem::create_directory(m_folder);
    m_limits.timeSeconds = 20;
    m_limits.memoryMegabytes = 512;
    m_limits.outputMegabytes = 8;
  }
  ~ConvertTest() override { std::filesystem::remove_all(m_folder); }

  JobPaths write(const std::wstring& name, const std::string& bytes) {
    const std::wstring path = m_folder + L"\\" + name + L".ps";
    std::ofstream(std::filesystem::path(path), std::ios::binary) << bytes;
    return {path, m_folder + L"\\" + name + L".pdf"};
  }
  // Converts and expects no PDF and no other trace; gives the error.
  ConversionError errorFor(const std::string& bytes) {
    const JobPaths paths = write(L"job", bytes);
    try {
      convert(paths, m_limits);
    } catch (const ConversionError& error) {
      EXPECT_EQ(names(), std::set<std::wstring>{L"job.ps"});
      return error;
    }
    return ConversionError(ExitCode::kDone, L"no error");
  }
  std::set<std::wstring> names() const {
    std::set<std::wstring> names;
    for (const auto& entry : std::filesystem::directory_iterator(m_folder))
      names.insert(entry.path().filename());
    return names;
  }

  std::wstring m_folder;
  Limits m_limits;
};

}  // namespace mg::converter
