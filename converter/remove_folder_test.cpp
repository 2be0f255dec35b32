#include "converter/folder_watch.h"
#include "converter/host_shell.h"
#include "converter/private_folder.h"
#include "tests/support/temporary_folder.h"

#include <windows.h>

#include <gtest/gtest.h>

namespace mg::converter {
namespace {

class RemoveFolder : public testing::Test {
 protected:
  RemoveFolder() { CreateDirectoryW(m_path.c_str(), nullptr); }

  bool exists() const { return GetFileAttributesW(m_path.c_str()) != INVALID_FILE_ATTRIBUTES; }
  void write(const std::wstring& name) {
    const HANDLE file = CreateFileW((L"\\\\?\\" + m_path + L"\\" + name).c_str(), GENERIC_WRITE, 0, nullptr, CREATE_NEW,
                                    FILE_ATTRIBUTE_NORMAL, nullptr);
    ASSERT_NE(file, INVALID_HANDLE_VALUE) << GetLastError();
    CloseHandle(file);
  }
  // Runs commands of the host in the folder.
  void onHost(const std::string& commands) {
    const FolderWatch watch(m_folder.directory());
    const std::wstring done = m_folder.file(L"done");
    startShell("cd " + shellWord(hostPath(m_path)) + "; " + commands + "; : >" + shellWord(hostPath(done)));
    ASSERT_TRUE(watch.waitUntil(GetTickCount64() + 20000,
                                [&] { return GetFileAttributesW(done.c_str()) != INVALID_FILE_ATTRIBUTES; }));
    DeleteFileW(done.c_str());
  }

  TemporaryFolder m_folder;
  std::wstring m_path = m_folder.file(L"of-a-run");
};

TEST_F(RemoveFolder, AFolderWithFilesAndFoldersIsGone) {
  write(L"out.pdf");
  CreateDirectoryW((m_path + L"\\tmp").c_str(), nullptr);
  write(L"tmp\\scratch");
  EXPECT_TRUE(removeFolder(m_path));
  EXPECT_FALSE(exists());
}

TEST_F(RemoveFolder, AFolderThatIsNotThereIsGone) {
  RemoveDirectoryW(m_path.c_str());
  EXPECT_TRUE(removeFolder(m_path));
}

TEST_F(RemoveFolder, NamesThatWindowsTakesForDevicesOrCutsAreRemovedWithItsOwnCalls) {
  for (const wchar_t* name : {L"aux", L"con", L"nul", L"lpt1.txt", L"x.", L"trailing "})
    write(name);
  EXPECT_TRUE(removeFolderWithWindows(m_path));
  EXPECT_FALSE(exists());
}

TEST_F(RemoveFolder, AFileThatCannotBeWrittenToIsRemoved) {
  write(L"read-only");
  SetFileAttributesW((m_path + L"\\read-only").c_str(), FILE_ATTRIBUTE_READONLY);
  EXPECT_TRUE(removeFolderWithWindows(m_path));
}

TEST_F(RemoveFolder, AFolderThatSomebodyHoldsOpenStaysAndTheCallEnds) {
  const HANDLE held =
      CreateFileW((m_path + L"\\held").c_str(), GENERIC_WRITE, 0, nullptr, CREATE_NEW, FILE_ATTRIBUTE_NORMAL, nullptr);
  EXPECT_FALSE(removeFolderWithWindows(m_path));
  CloseHandle(held);
  EXPECT_TRUE(removeFolderWithWindows(m_path));
}

TEST_F(RemoveFolder, NamesThatOnlyTheHostCanSpellEndTheCallsOfWindowsAndTheHostRemovesThem) {
  if (!runsUnderWine()) GTEST_SKIP() << "there is no host below";
  onHost(R"(touch "a
b" "q?" "star*" "back\slash" "a:b" -- "-rf"; mkdir locked; touch locked/inside; chmod 0 locked)");
  EXPECT_FALSE(removeFolderWithWindows(m_path));
  EXPECT_TRUE(exists());
  EXPECT_TRUE(removeFolder(m_path));
  EXPECT_FALSE(exists());
}

TEST_F(RemoveFolder, ALinkIsRemovedAndNotWhatItPointsTo) {
  if (!runsUnderWine()) GTEST_SKIP() << "making links needs a right";
  const std::wstring kept = m_folder.file(L"kept");
  onHost("mkdir ../kept; touch ../kept/file; ln -s ../kept link");
  EXPECT_TRUE(removeFolder(m_path));
  EXPECT_NE(GetFileAttributesW((kept + L"\\file").c_str()), INVALID_FILE_ATTRIBUTES);
  removeFolder(kept);
}

}  // namespace
}  // namespace mg::converter
