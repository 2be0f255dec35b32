#include "client/disk_file.h"
#include "tests/support/import_seam.h"

#include <functional>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <system_error>
#include <utility>
#include <vector>

MG_IMPORT_SEAM(L"kernel32.dll", WriteFile, FALSE)
MG_IMPORT_SEAM(L"kernel32.dll", FlushFileBuffers, FALSE)

namespace printclient {
namespace {

namespace fs = std::filesystem;
using ::testing::ElementsAre;

class DiskFileTest : public ::testing::Test {
 protected:
  DiskFileTest() {
    fs::remove_all(m_folder);
    fs::create_directories(m_folder);
  }
  ~DiskFileTest() override { fs::remove_all(m_folder); }

  static int errorOf(const std::function<void()>& operation) {
    try {
      operation();
      return 0;
    } catch (const std::system_error& failure) {
      return failure.code().value();
    }
  }

  const fs::path m_folder = fs::temp_directory_path() / "disk_file_windows_test";
  ImportSeams m_seams;
};

TEST_F(DiskFileTest, WhatIsTakenInPartIsWrittenOn) {
  DiskFile file(m_folder / "part");
  std::vector<std::pair<std::size_t, DWORD>> writes;  // how far into the bytes, and how many
  std::vector<unsigned char> bytes(1024 * 1024 + 5, 'x');
  WriteFileSeam.replacement = [&](HANDLE, LPCVOID from, DWORD count, LPDWORD taken, LPOVERLAPPED) -> WINBOOL {
    writes.emplace_back(static_cast<const unsigned char*>(from) - bytes.data(), count);
    *taken = writes.size() == 1 ? 3 : count;
    return TRUE;
  };
  file.write(bytes);
  EXPECT_THAT(writes,
              ElementsAre(std::pair(0u, 1024u * 1024), std::pair(3u, 1024u * 1024), std::pair(1024u * 1024 + 3, 2u)));
}

TEST_F(DiskFileTest, ADiskThatTakesNothingIsFull) {
  DiskFile file(m_folder / "full");
  int writes = 0;
  WriteFileSeam.replacement = [&](HANDLE, LPCVOID, DWORD count, LPDWORD taken, LPOVERLAPPED) -> WINBOOL {
    *taken = ++writes < 5 ? 0 : count;  // so that this ends whatever is done about it
    return TRUE;
  };
  const unsigned char bytes[] = {1, 2, 3};
  EXPECT_EQ(errorOf([&] { file.write(bytes); }), ERROR_DISK_FULL);
  EXPECT_EQ(writes, 1);
}

TEST_F(DiskFileTest, AWriteOrAFlushThatFailsSaysWhy) {
  DiskFile file(m_folder / "failing");
  const unsigned char bytes[] = {1, 2, 3};
  WriteFileSeam.fail(1, FALSE, ERROR_CRC);
  EXPECT_EQ(errorOf([&] { file.write(bytes); }), ERROR_CRC);
  FlushFileBuffersSeam.fail(1, FALSE, ERROR_IO_DEVICE);
  EXPECT_EQ(errorOf([&] { file.sync(); }), ERROR_IO_DEVICE);
}

TEST_F(DiskFileTest, ItsNewNameReachesTheDisk) {
  DiskFile file(m_folder / "before");
  int flushes = 0;
  FlushFileBuffersSeam.watch = [&](HANDLE) { ++flushes; };
  EXPECT_TRUE(file.renameTo(m_folder / "after"));
  EXPECT_EQ(flushes, 1);
  EXPECT_TRUE(fs::exists(m_folder / "after"));
}

TEST_F(DiskFileTest, AFolderIsNoAbandonedFile) {
  EXPECT_FALSE(removeAbandoned(m_folder));
  EXPECT_TRUE(fs::exists(m_folder));
  EXPECT_FALSE(removeAbandoned(m_folder / "nothing"));
}

}  // namespace
}  // namespace printclient
