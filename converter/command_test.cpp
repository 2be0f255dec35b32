#include "converter/command.h"

#include "converter/conversion_error.h"
#include "tests/support/temporary_folder.h"
#include "util/win_handle.h"

#include <windows.h>

#include <gtest/gtest.h>
#include <new>
#include <stdexcept>

namespace mg::converter {
namespace {

// What is written to the standard output meanwhile.
template <typename Call>
std::string said(Call call) {
  const TemporaryFolder folder;
  const std::wstring path = folder.file(L"said.txt");
  {
    const FileHandle file(
        CreateFileW(path.c_str(), GENERIC_WRITE, FILE_SHARE_READ, nullptr, CREATE_ALWAYS, 0, nullptr));
    const HANDLE before = GetStdHandle(STD_OUTPUT_HANDLE);
    SetStdHandle(STD_OUTPUT_HANDLE, file.get());
    call();
    SetStdHandle(STD_OUTPUT_HANDLE, before);
  }
  return TemporaryFolder::read(path);
}

TEST(Command, OneFileIsConvertedAndNeitherNoneNorTwo) {
  wchar_t program[] = L"ps2pdf.exe";
  wchar_t file[] = L"C:\\no such folder\\a.ps";
  wchar_t* words[] = {program, file, file, nullptr};
  for (const int count : {1, 3}) {
    EXPECT_EQ(said([&] { EXPECT_EQ(runCommand(count, words), 1); }),
              "ps2pdf: Usage: ps2pdf.exe \"<file.ps>\" writes <file.pdf> beside it; the name must end in \".ps\".\r\n")
        << count;
  }
  EXPECT_EQ(
      said([&] { EXPECT_EQ(runCommand(2, words), 3); }).find("ps2pdf: \"C:\\no such folder\\a.ps\" cannot be read: "),
      0u);
}

TEST(Command, SaysItsNameAndVersion) {
  wchar_t program[] = L"ps2pdf.exe";
  wchar_t option[] = L"--version";
  wchar_t* words[] = {program, option, nullptr};
  EXPECT_EQ(said([&] { EXPECT_EQ(runCommand(2, words), 0); }), "ps2pdf 4.0.1.0\r\n");
}

TEST(Command, WhatEndsWellSaysNothing) {
  EXPECT_EQ(said([] { EXPECT_EQ(exitCodeOf([] {}), 0); }), "");
}

TEST(Command, AFailureOfAnyKindHasItsCodeAndItsLine) {
  EXPECT_EQ(
      said([] { EXPECT_EQ(exitCodeOf([] { throw ConversionError(ExitCode::kIncomplete, L"Half of it."); }), 9); }),
      "ps2pdf: Half of it.\r\n");
  EXPECT_EQ(said([] { EXPECT_EQ(exitCodeOf([] { throw std::runtime_error("no luck"); }), 10); }),
            "ps2pdf: The conversion failed: no luck.\r\n");
  EXPECT_EQ(said([] { EXPECT_EQ(exitCodeOf([] { throw std::bad_alloc(); }), 10); }),
            "ps2pdf: The conversion failed: std::bad_alloc.\r\n");
}

}  // namespace
}  // namespace mg::converter
