#include "corvane/records/shared_log_file.h"

#include "corvane/base/process.h"
#include "tests/support/import_seam.h"

#include <aclapi.h>
#include <filesystem>
#include <fstream>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <iterator>
#include <sddl.h>

MG_IMPORT_SEAM(L"kernel32.dll", WriteFile, FALSE)

namespace corvane {
namespace {

namespace fs = std::filesystem;
using ::testing::HasSubstr;
using ::testing::Not;

class SharedLogFileTest : public ::testing::Test {
 protected:
  void SetUp() override {
    m_folder = fs::temp_directory_path() / ("shared_log_" + std::to_string(corvane::processId()));
    fs::remove_all(m_folder);
    fs::create_directories(m_folder);
  }
  void TearDown() override { fs::remove_all(m_folder); }

  fs::path path() const { return m_folder / "module.log"; }
  fs::path old() const { return m_folder / "module.log.1"; }
  static std::string content(const fs::path& file) {
    std::ifstream in(file, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
  }
  static void append(SharedLogFile& file, const std::string& line) {
    const std::string whole = line + "\r\n";
    file.append(whole.data(), whole.size());
  }

  fs::path m_folder;
};

TEST_F(SharedLogFileTest, IsRenamedWhenItHasReachedItsLimit) {
  SharedLogFile file(path().wstring(), 10);
  append(file, "12345678");
  append(file, "ab");
  EXPECT_EQ(content(old()), "12345678\r\n");
  EXPECT_EQ(content(path()), "ab\r\n");
}

TEST_F(SharedLogFileTest, WhatOneProcessHasRenamedAnotherDoesNotThrowAway) {
  SharedLogFile one(path().wstring(), 10), other(path().wstring(), 10);
  append(one, "1");
  append(other, "2345678");
  append(one, "renames");
  append(other, "ab");
  EXPECT_EQ(content(old()), "1\r\n2345678\r\n");
  EXPECT_EQ(content(path()), "renames\r\n" + std::string("ab\r\n"));
}

TEST_F(SharedLogFileTest, ThatCannotBeRenamedStaysBelowTwiceItsLimitAndSaysWhatIsMissing) {
  fs::create_directories(old() / "in the way");
  SharedLogFile file(path().wstring(), 10);
  for (int i = 0; i < 8; ++i)
    append(file, "123");
  EXPECT_EQ(content(path()), "123\r\n123\r\n123\r\n123\r\n");
  fs::remove_all(old());
  append(file, "again");
  EXPECT_EQ(content(old()), "123\r\n123\r\n123\r\n123\r\n");
  EXPECT_THAT(content(path()), HasSubstr("4 lines are missing here: error "));
  EXPECT_THAT(content(path()), HasSubstr("\r\nagain\r\n"));
}

TEST_F(SharedLogFileTest, ADiskWithoutSpaceCostsLinesThatAreCountedAndACutOneEnds) {
  SharedLogFile file(path().wstring(), 1000);
  append(file, "whole");
  {
    const ImportSeams seams;
    WriteFileSeam.replacement = [](HANDLE handle, LPCVOID data, DWORD, LPDWORD written, LPOVERLAPPED) -> BOOL {
      return WriteFileSeam.real(handle, data, 3, written, nullptr);
    };
    append(file, "lost by half");
    WriteFileSeam.replacement = [](HANDLE, LPCVOID, DWORD, LPDWORD, LPOVERLAPPED) -> BOOL {
      SetLastError(ERROR_DISK_FULL);
      return FALSE;
    };
    append(file, "lost");
  }
  append(file, "again");
  append(file, "and again");
  EXPECT_EQ(content(path()), "whole\r\nlos\r\n2 lines are missing here: error 112\r\nagain\r\nand again\r\n");
}

TEST_F(SharedLogFileTest, OneLineThatIsMissingIsOne) {
  SharedLogFile file(path().wstring(), 1000);
  {
    const ImportSeams seams;
    WriteFileSeam.fail(1, FALSE, ERROR_HANDLE_DISK_FULL);
    append(file, "lost");
  }
  append(file, "again");
  EXPECT_EQ(content(path()), "1 line is missing here: error 39\r\nagain\r\n");
}

TEST_F(SharedLogFileTest, CanBeReadByTheSystemTheAdministratorsAndItsMakerOnly) {
  SharedLogFile file(path().wstring(), 1000);
  append(file, "a title");
  PACL list = nullptr;
  PSECURITY_DESCRIPTOR descriptor = nullptr;
  ASSERT_EQ(GetNamedSecurityInfoW(path().c_str(), SE_FILE_OBJECT, DACL_SECURITY_INFORMATION, nullptr, nullptr, &list,
                                  nullptr, &descriptor),
            static_cast<DWORD>(ERROR_SUCCESS));
  LPWSTR text = nullptr;
  ASSERT_TRUE(ConvertSecurityDescriptorToStringSecurityDescriptorW(descriptor, SDDL_REVISION_1,
                                                                   DACL_SECURITY_INFORMATION, &text, nullptr));
  const std::wstring shown(text);
  LocalFree(text);
  LocalFree(descriptor);
  EXPECT_THAT(shown, HasSubstr(L";;;SY)"));
  EXPECT_THAT(shown, Not(HasSubstr(L";;;WD)")));
  EXPECT_THAT(shown, Not(HasSubstr(L";;;BU)")));
}

TEST_F(SharedLogFileTest, WithoutAPathAndAtADeviceNothingIsWritten) {
  SharedLogFile none(L"", 10);
  append(none, "nowhere");
  SharedLogFile device(L"NUL", 10);
  const ImportSeams seams;
  int writes = 0;
  WriteFileSeam.watch = [&](HANDLE, LPCVOID, DWORD, LPDWORD, LPOVERLAPPED) { ++writes; };
  append(device, "nowhere");
  EXPECT_EQ(writes, 0);
}

}  // namespace
}  // namespace corvane
