#include "server/log_file.h"

#include "corvane/base/process.h"
#include "tests/support/server/no_space_past.h"

#include <fstream>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <iterator>

#ifndef _WIN32
#include <sys/stat.h>
#include <unistd.h>
#endif

namespace aps {
namespace {

using ::testing::EndsWith;
using ::testing::HasSubstr;
using ::testing::StartsWith;
namespace fs = std::filesystem;

class LogFileTest : public ::testing::Test {
 protected:
  void SetUp() override {
    m_folder = fs::temp_directory_path() / ("aps_log_file_" + std::to_string(corvane::processId()));
    fs::remove_all(m_folder);
    fs::create_directories(m_folder);
  }
  void TearDown() override { fs::remove_all(m_folder); }

  fs::path path(const char* suffix = "") const { return m_folder / (std::string("aps.log") + suffix); }
  std::string content(const char* suffix = "") const {
    std::ifstream in(path(suffix), std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
  }
  void put(const char* suffix, const std::string& text) const { std::ofstream(path(suffix), std::ios::binary) << text; }
  std::vector<std::string> files() const {
    std::vector<std::string> names;
    for (const auto& entry : fs::directory_iterator(m_folder))
      names.push_back(entry.path().filename().string());
    std::sort(names.begin(), names.end());
    return names;
  }

  fs::path m_folder;
};

TEST_F(LogFileTest, IsRenamedWhenTheNextLineWouldPassItsLimit) {
  LogFile file(path(), 10);
  ASSERT_EQ(file.open(), "");
  EXPECT_EQ(file.write("1234\n"), "");
  EXPECT_EQ(file.write("5678\n"), "");
  EXPECT_EQ(content(), "1234\n5678\n");
  EXPECT_EQ(file.write("9\n"), "");
  EXPECT_EQ(content(), "9\n");
  EXPECT_EQ(content(".1"), "1234\n5678\n");
  EXPECT_EQ(file.write("8\n"), "");
  EXPECT_EQ(content(), "9\n8\n");
  EXPECT_EQ(file.write("abcdefgh\n"), "");
  EXPECT_EQ(content(".1"), "9\n8\n");
  EXPECT_THAT(files(), ::testing::ElementsAre("aps.log", "aps.log.1"));
}

TEST_F(LogFileTest, CountsWhatIsThereAlready) {
  put("", "12345678\n");
  LogFile file(path(), 10);
  ASSERT_EQ(file.open(), "");
  file.write("ab\n");
  EXPECT_EQ(content(".1"), "12345678\n");
  EXPECT_EQ(content(), "ab\n");
}

TEST_F(LogFileTest, ALineLongerThanTheLimitIsWrittenIntoAnEmptyFile) {
  LogFile file(path(), 10);
  ASSERT_EQ(file.open(), "");
  EXPECT_EQ(file.write("a line of more than that\n"), "");
  EXPECT_EQ(content(), "a line of more than that\n");
  EXPECT_FALSE(fs::exists(path(".1")));
}

TEST_F(LogFileTest, ThatCannotBeRenamedThrowsNothingAwayAndStaysBelowTwiceItsLimit) {
  fs::create_directories(path(".1") / "in the way");
  LogFile file(path(), 10);
  ASSERT_EQ(file.open(), "");
  for (int i = 0; i < 4; ++i)
    EXPECT_EQ(file.write("1234\n"), "");
  const std::string why = file.write("1234\n");
  EXPECT_THAT(why, StartsWith("the log is full and cannot be renamed to " + path(".1").string() + ": "));
  EXPECT_EQ(content(), "1234\n1234\n1234\n1234\n");
  EXPECT_FALSE(fs::exists(path(".new")));
  fs::remove_all(path(".1"));
  EXPECT_EQ(file.write("5\n"), "");
  EXPECT_EQ(content(".1"), "1234\n1234\n1234\n1234\n");
  EXPECT_EQ(content(), "5\n");
}

TEST_F(LogFileTest, WithoutRoomForANewFileKeepsBothThatItHas) {
  put(".1", "older\n");
  fs::create_directories(path(".new") / "in the way");
  LogFile file(path(), 10);
  ASSERT_EQ(file.open(), "");
  for (int i = 0; i < 4; ++i)
    EXPECT_EQ(file.write("1234\n"), "");
  EXPECT_THAT(file.write("1234\n"), HasSubstr("cannot be renamed"));
  EXPECT_EQ(content(".1"), "older\n");
  EXPECT_EQ(content(), "1234\n1234\n1234\n1234\n");
}

TEST_F(LogFileTest, WhatACrashLeftOfARotationIsInNobodysWay) {
  put(".new", "left");
  LogFile file(path(), 10);
  ASSERT_EQ(file.open(), "");
  file.write("12345678\n");
  EXPECT_EQ(file.write("ab\n"), "");
  EXPECT_EQ(content(), "ab\n");
  EXPECT_THAT(files(), ::testing::ElementsAre("aps.log", "aps.log.1"));
}

TEST_F(LogFileTest, AFileThatIsMadeIsNothingThatSomebodyElsePutThere) {
  put("", "of somebody else");
  AppendFile file;
  EXPECT_EQ(file.make(path()), std::errc::file_exists);
  EXPECT_FALSE(file.isOpen());
  EXPECT_FALSE(file.open(path()));
  EXPECT_TRUE(file.isOpen());
}

TEST_F(LogFileTest, IsOpenedAnewOnlyWhenSomebodyAsksForIt) {
  LogFile file(path(), 1000);
  ASSERT_EQ(file.open(), "");
  file.write("a\n");
  fs::rename(path(), path(".2"));
  file.write("b\n");
  file.reopen();
  EXPECT_FALSE(fs::exists(path()));
  file.write("c\n");
  file.write("d\n");
  EXPECT_EQ(content(".2"), "a\nb\n");
  EXPECT_EQ(content(), "c\nd\n");
  EXPECT_EQ(file.takeReopenFailure(), "");
}

#ifndef _WIN32
TEST_F(LogFileTest, AFileThatWasTakenAwayIsBegunAnewAtTheLimit) {
  put(".1", "older\n");
  LogFile file(path(), 10);
  ASSERT_EQ(file.open(), "");
  file.write("12345678\n");
  fs::remove(path());
  EXPECT_EQ(file.write("ab\n"), "");
  EXPECT_EQ(content(), "ab\n");
  EXPECT_EQ(content(".1"), "older\n");
}

mode_t modeOf(const fs::path& path) {
  struct stat facts {};
  stat(path.c_str(), &facts);
  return facts.st_mode & 07777;
}

TEST_F(LogFileTest, CanBeReadByItsAccountOnly) {
  const mode_t before = umask(0);
  LogFile file(path(), 10);
  ASSERT_EQ(file.open(), "");
  file.write("12345678\n");
  file.write("12345678\n");
  umask(before);
  EXPECT_EQ(modeOf(path()), 0600u);
  EXPECT_EQ(modeOf(path(".1")), 0600u);
}

TEST_F(LogFileTest, LosesWhatEverybodyMayDoWithItAndKeepsWhatAGroupMay) {
  for (const auto& [found, left] : {std::pair<mode_t, mode_t>{0644, 0600}, {0606, 0600}, {0640, 0640}}) {
    put("", "");
    chmod(path().c_str(), found);
    LogFile file(path(), 10);
    ASSERT_EQ(file.open(), "");
    EXPECT_EQ(modeOf(path()), left);
  }
}

TEST_F(LogFileTest, ADeviceKeepsItsModeAndIsNeverRenamed) {
  fs::create_symlink("/dev/null", path());
  const mode_t before = modeOf("/dev/null");
  LogFile file(path(), 10);
  ASSERT_EQ(file.open(), "");
  for (int i = 0; i < 10; ++i)
    EXPECT_EQ(file.write("123456789\n"), "");
  EXPECT_TRUE(fs::is_symlink(path()));
  EXPECT_FALSE(fs::exists(path(".1")));
  EXPECT_EQ(modeOf("/dev/null"), before);
}

TEST_F(LogFileTest, ALineThatAFullDiskCutEndsBeforeTheNextOne) {
  LogFile file(path(), 1000);
  ASSERT_EQ(file.open(), "");
  file.write("whole\n");
  {
    const tests::NoSpacePast limit(10);
    EXPECT_EQ(file.write("cut in the middle\n"), "File too large");
    EXPECT_EQ(file.write("lost\n"), "File too large");
    EXPECT_EQ(content(), "whole\ncut ");
  }
  EXPECT_EQ(file.write("again\n"), "");
  EXPECT_EQ(file.write("and again\n"), "");
  EXPECT_EQ(content(), "whole\ncut \nagain\nand again\n");
}

TEST_F(LogFileTest, AnotherFileBeginsWithoutTheEndOfALineThatWasCutInTheOneBefore) {
  LogFile file(path(), 1000);
  ASSERT_EQ(file.open(), "");
  {
    const tests::NoSpacePast limit(4);
    EXPECT_EQ(file.write("cut in the middle\n"), "File too large");
  }
  fs::remove(path());
  ASSERT_EQ(file.open(), "");
  EXPECT_EQ(file.write("again\n"), "");
  EXPECT_EQ(content(), "again\n");
}

TEST_F(LogFileTest, AFullDiskDoesNotMakeItRename) {
  put(".1", "older\n");
  LogFile file(path(), 100);
  ASSERT_EQ(file.open(), "");
  file.write("whole\n");
  {
    const tests::NoSpacePast limit(6);
    for (int i = 0; i < 100; ++i)
      EXPECT_NE(file.write("lost, but longer than the limit together\n"), "");
  }
  EXPECT_EQ(content(".1"), "older\n");
  EXPECT_EQ(content(), "whole\n");
  EXPECT_EQ(file.write("again\n"), "");
  EXPECT_EQ(content(), "whole\nagain\n");
}
#endif

}  // namespace
}  // namespace aps
