#include "jobs/job_settings.h"
#include "jobs/temporary_files.h"
#include "session/client_print_job.h"
#include "session/port_monitor_server.h"
#include "tests/support/import_seam.h"
#include "tests/support/jobs/environment_seam.h"
#include "tests/support/local_log.h"
#include "tests/support/temporary_folder.h"
#include "util/win_handle.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

MG_IMPORT_SEAM(L"kernel32.dll", CreateFileW, INVALID_HANDLE_VALUE)
MG_IMPORT_SEAM(L"kernel32.dll", FindNextFileW, FALSE)
MG_IMPORT_SEAM(L"kernel32.dll", GetFileInformationByHandle, FALSE)
MG_IMPORT_SEAM(L"kernel32.dll", GetTickCount64, 0)
MG_IMPORT_SEAM(L"kernel32.dll", OpenEventW, nullptr)

namespace mg {
namespace {

using testing::IsEmpty;

constexpr wchar_t kBase[] = L"Laser-2 (session 5) - Job #17-90210";

class LeftoverFilesTest : public testing::Test {
 protected:
  LeftoverFilesTest() {
    environment_seam::replaceTempPath([this](DWORD, LPWSTR out) -> DWORD {
      wcscpy(out, m_folder.directory().c_str());
      return static_cast<DWORD>(m_folder.directory().size());
    });
    environment_seam::replaceTickCount([] { return DWORD{90210}; });
  }

  // A file that was last written so many minutes ago.
  std::wstring leave(const std::wstring& name, long long minutes = kDayMinutes + 1) {
    const std::wstring path = m_folder.file(name);
    TemporaryFolder::write(path, "%!PS-");
    const FileHandle file(
        CreateFileW(path.c_str(), FILE_WRITE_ATTRIBUTES, FILE_SHARE_READ, nullptr, OPEN_EXISTING, 0, nullptr));
    FILETIME now;
    GetSystemTimeAsFileTime(&now);
    ULARGE_INTEGER time{{now.dwLowDateTime, now.dwHighDateTime}};
    time.QuadPart -= static_cast<ULONGLONG>(minutes) * 60 * 10000000;
    const FILETIME written{time.LowPart, time.HighPart};
    EXPECT_TRUE(SetFileTime(file.get(), nullptr, nullptr, &written));
    return path;
  }
  bool isRemoved(const std::wstring& path) const {
    removeLeftoverFiles();
    return !TemporaryFolder::exists(path);
  }

  static constexpr long long kDayMinutes = 24 * 60;

  ImportSeams m_seams;
  LocalLog m_log;
  TemporaryFolder m_folder;
};

TEST_F(LeftoverFilesTest, TheThreeFilesOfAJobAreRemovedAndSaid) {
  for (const wchar_t* end : {L".ps", L".pdf", L".log"})
    leave(kBase + std::wstring(end));
  leave(std::wstring(100, L'n') + L"~0123456789abcdef--5.ps");
  SetLastError(4711);
  removeLeftoverFiles();
  EXPECT_EQ(GetLastError(), 4711u);
  EXPECT_TRUE(m_folder.isEmpty());
  EXPECT_THAT(m_log.lines(), testing::ElementsAre(testing::HasSubstr("job: removed 4 temporary files in ")));
}

TEST_F(LeftoverFilesTest, NothingLeftIsNothingSaid) {
  removeLeftoverFiles();
  EXPECT_THAT(m_log.lines(), IsEmpty());
}

TEST_F(LeftoverFilesTest, WhatIsNoFileOfAJobStays) {
  for (const std::wstring& name : {std::wstring(L"letter.ps"), std::wstring(L"Laser - Job #17-90210.txt"),
                                   std::wstring(L"Laser - Job #17-9.ps.bak"),
                                   std::wstring(L"Laser - Job #017-90210.ps"), std::wstring(L"a~b-1.pdf")}) {
    EXPECT_FALSE(isRemoved(leave(name)));
  }
}

TEST_F(LeftoverFilesTest, OnlyWhatIsOlderThanADayIsRemoved) {
  const std::wstring young = leave(L"Laser - Job #1-1.ps", kDayMinutes - 1);
  const std::wstring future = leave(L"Laser - Job #2-1.ps", -kDayMinutes * 2);
  const std::wstring old = leave(L"Laser - Job #3-1.ps", kDayMinutes + 1);
  EXPECT_TRUE(isRemoved(old));
  EXPECT_TRUE(TemporaryFolder::exists(young));
  EXPECT_TRUE(TemporaryFolder::exists(future));
}

TEST_F(LeftoverFilesTest, AFileThatSomebodyHasOpenStaysHoweverItIsShared) {
  const std::wstring path = leave(std::wstring(kBase) + L".ps");
  {
    const FileHandle reader(CreateFileW(path.c_str(), GENERIC_READ,
                                        FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr, OPEN_EXISTING,
                                        0, nullptr));
    EXPECT_FALSE(isRemoved(path));
  }
  EXPECT_TRUE(TemporaryFolder::exists(path)) << "it was to be removed when everybody had closed it";
  EXPECT_TRUE(isRemoved(path));
}

// However long ago its last data came: between two writes its file is closed.
TEST_F(LeftoverFilesTest, TheFilesOfAJobThatIsAliveStayUntilItIsDestroyed) {
  const std::wstring ps = leave(std::wstring(kBase) + L".ps");
  const std::wstring log = leave(std::wstring(kBase) + L".log");
  const std::wstring other = leave(L"Laser-2 (session 5) - Job #18-90210.ps");
  {
    ClientPrintJob job;
    job.jobName = L"Laser-2 (session 5) - Job #17";
    ClientPrinter printer;
    printer.printerValue = 3;
    SetLastError(4711);
    ConfigurePrintJobSettings(&job, printer);
    EXPECT_EQ(GetLastError(), 4711u);
    ASSERT_EQ(job.postScriptPath.wide(), ps);
    EXPECT_TRUE(isRemoved(other));
    EXPECT_TRUE(TemporaryFolder::exists(ps));
    EXPECT_TRUE(TemporaryFolder::exists(log));
  }
  EXPECT_TRUE(isRemoved(ps));
  EXPECT_FALSE(TemporaryFolder::exists(log));
}

TEST_F(LeftoverFilesTest, AMarkThatMayNotBeSeenCountsAsOne) {
  const std::wstring path = leave(std::wstring(kBase) + L".ps");
  OpenEventWSeam.fail(1, nullptr, ERROR_ACCESS_DENIED);
  EXPECT_FALSE(isRemoved(path));
  EXPECT_TRUE(isRemoved(path));
}

TEST_F(LeftoverFilesTest, AFileWithASecondNameStays) {
  const std::wstring path = leave(std::wstring(kBase) + L".ps");
  const std::wstring second = m_folder.file(L"precious.txt");
  ASSERT_TRUE(CreateHardLinkW(second.c_str(), path.c_str(), nullptr));
  EXPECT_FALSE(isRemoved(path));
  ASSERT_TRUE(DeleteFileW(second.c_str()));
  EXPECT_TRUE(isRemoved(path));
}

// Wine shows what a link leads to and not the link, so it is Windows' answer that stands here.
TEST_F(LeftoverFilesTest, ALinkAFolderAndWhatMayNotBeWrittenStay) {
  const std::wstring path = leave(std::wstring(kBase) + L".ps");
  DWORD flags = 0;
  CreateFileWSeam.watch = [&](LPCWSTR, DWORD, DWORD, LPSECURITY_ATTRIBUTES, DWORD, DWORD asked, HANDLE) {
    flags = asked;
  };
  for (const DWORD attribute : {FILE_ATTRIBUTE_REPARSE_POINT, FILE_ATTRIBUTE_DIRECTORY, FILE_ATTRIBUTE_READONLY}) {
    GetFileInformationByHandleSeam.replacement = [=](HANDLE file, LPBY_HANDLE_FILE_INFORMATION is) -> WINBOOL {
      const WINBOOL told = GetFileInformationByHandleSeam.real(file, is);
      is->dwFileAttributes |= attribute;
      return told;
    };
    EXPECT_FALSE(isRemoved(path)) << attribute;
    EXPECT_NE(flags & FILE_FLAG_OPEN_REPARSE_POINT, 0u) << "the link would be followed";
  }
}

TEST_F(LeftoverFilesTest, AFileOfWhichNothingCanBeToldStays) {
  const std::wstring path = leave(std::wstring(kBase) + L".ps");
  GetFileInformationByHandleSeam.fail(1, FALSE, ERROR_NOT_SUPPORTED);
  EXPECT_FALSE(isRemoved(path));
}

TEST_F(LeftoverFilesTest, WithoutAFolderForTemporaryFilesNothingIsLookedFor) {
  environment_seam::replaceTempPath([](DWORD, LPWSTR) { return DWORD{0}; });
  leave(std::wstring(kBase) + L".ps");
  wchar_t before[MAX_PATH];
  GetCurrentDirectoryW(MAX_PATH, before);
  SetCurrentDirectoryW(m_folder.directory().c_str());
  removeLeftoverFiles();
  SetCurrentDirectoryW(before);
  EXPECT_FALSE(m_folder.isEmpty());
}

TEST_F(LeftoverFilesTest, ItEndsWithItsTime) {
  leave(L"Laser - Job #1-1.ps");
  leave(L"Laser - Job #2-1.ps");
  leave(L"Laser - Job #3-1.ps");
  ULONGLONG now = 0;
  GetTickCount64Seam.replacement = [&] { return now; };
  FindNextFileWSeam.watch = [&](HANDLE, LPWIN32_FIND_DATAW) { now += kMostMilliseconds / 2 + 1; };
  removeLeftoverFiles();
  EXPECT_THAT(m_log.lines(), testing::ElementsAre(testing::HasSubstr("removed 2 temporary files")));
  EXPECT_FALSE(m_folder.isEmpty());
}

TEST_F(LeftoverFilesTest, ItEndsWithItsNumberOfNames) {
  leave(L"Laser - Job #1-1.ps");
  int asked = 0;
  // A folder without end, of names that are none of jobs.
  FindNextFileWSeam.replacement = [&](HANDLE, LPWIN32_FIND_DATAW found) -> WINBOOL {
    ++asked;
    wcscpy(found->cFileName, L"a - Job #1-1.txt");
    return asked <= 2 * kMostLookedAt;
  };
  GetTickCount64Seam.replacement = [] { return 0ull; };
  removeLeftoverFiles();
  EXPECT_EQ(asked, kMostLookedAt);
}

}  // namespace
}  // namespace mg
