#include "converter/private_folder.h"
#include "tests/support/temporary_folder.h"

#include <windows.h>

#include <gtest/gtest.h>

namespace mg::converter {
namespace {

class SweepFolders : public testing::Test {
 protected:
  ~SweepFolders() override { sweep(); }

  std::wstring path(const std::wstring& name) const { return m_folder.file(name.c_str()); }
  // A folder as a run has it, with its own file unless told otherwise.
  std::wstring make(const std::wstring& name, bool hasFile = true) {
    CreateDirectoryW(path(name).c_str(), nullptr);
    if (hasFile) CloseHandle(open(name, CREATE_NEW));
    return path(name);
  }
  HANDLE open(const std::wstring& name, DWORD disposition) {
    return CreateFileW((path(name) + kInUseFile).c_str(), GENERIC_READ | GENERIC_WRITE, 0, nullptr, disposition,
                       FILE_ATTRIBUTE_NORMAL, nullptr);
  }
  void makeOlder(const std::wstring& name, unsigned long long minutes) {
    const HANDLE folder = CreateFileW(path(name).c_str(), FILE_WRITE_ATTRIBUTES, FILE_SHARE_READ | FILE_SHARE_WRITE,
                                      nullptr, OPEN_EXISTING, FILE_FLAG_BACKUP_SEMANTICS, nullptr);
    FILETIME now;
    GetSystemTimeAsFileTime(&now);
    ULARGE_INTEGER time = {{now.dwLowDateTime, now.dwHighDateTime}};
    time.QuadPart -= minutes * 60 * 10000000;
    const FILETIME then = {time.LowPart, time.HighPart};
    EXPECT_TRUE(SetFileTime(folder, nullptr, nullptr, &then)) << GetLastError();
    CloseHandle(folder);
  }
  static bool exists(const std::wstring& path) { return GetFileAttributesW(path.c_str()) != INVALID_FILE_ATTRIBUTES; }
  void sweep(int most = 100) { sweepFolders(m_folder.directory(), most); }

  TemporaryFolder m_folder;
};

TEST_F(SweepFolders, WhatAKilledRunHasLeftIsRemoved) {
  const std::wstring left = make(L"ps2pdf-0123456789abcdef");
  sweep();
  EXPECT_FALSE(exists(left));
}

TEST_F(SweepFolders, TheFolderOfALivingRunIsNotTouched) {
  const std::wstring living = make(L"ps2pdf-0123456789abcdef", false);
  const HANDLE inUse = open(L"ps2pdf-0123456789abcdef", CREATE_NEW);
  makeOlder(L"ps2pdf-0123456789abcdef", 100000);
  sweep();
  EXPECT_TRUE(exists(living + kInUseFile));
  CloseHandle(inUse);
}

TEST_F(SweepFolders, AFolderThatIsJustBeingMadeStaysAndOneThatNeverGotFurtherGoesAfterAnHour) {
  const std::wstring young = make(L"ps2pdf-0123456789abcdef", false);
  makeOlder(L"ps2pdf-0123456789abcdef", 59);
  const std::wstring old = make(L"ps2pdf-fedcba9876543210", false);
  makeOlder(L"ps2pdf-fedcba9876543210", 61);
  sweep();
  EXPECT_TRUE(exists(young));
  EXPECT_FALSE(exists(old));
  makeOlder(L"ps2pdf-0123456789abcdef", 61);
}

TEST_F(SweepFolders, WhatOnlyLooksLikeARunsFolderStays) {
  for (const wchar_t* name : {L"ps2pdf-", L"ps2pdf-0123456789abcde", L"ps2pdf-0123456789abcdef0",
                              L"ps2pdf-0123456789abcdeg", L"xps2pdf-0123456789abcdef"}) {
    const std::wstring other = make(name);
    sweep();
    EXPECT_TRUE(exists(other)) << name;
    DeleteFileW((other + kInUseFile).c_str());
    RemoveDirectoryW(other.c_str());
  }
}

TEST_F(SweepFolders, AFileOfThatNameStays) {
  TemporaryFolder::write(path(L"ps2pdf-0123456789abcdef"), "x");
  sweep();
  EXPECT_TRUE(exists(path(L"ps2pdf-0123456789abcdef")));
}

TEST_F(SweepFolders, OneRunRemovesNoMoreThanItIsTold) {
  const std::wstring folders[] = {make(L"ps2pdf-0000000000000000"), make(L"ps2pdf-0000000000000001"),
                                  make(L"ps2pdf-0000000000000002")};
  sweep(2);
  EXPECT_EQ(exists(folders[0]) + exists(folders[1]) + exists(folders[2]), 1);
}

}  // namespace
}  // namespace mg::converter
