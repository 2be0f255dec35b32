#include "server/jobs/job_log_file.h"

#include "corvane/base/process.h"
#include "tests/support/server/no_space_past.h"

#include <fstream>
#include <gtest/gtest.h>
#include <iterator>

#ifndef _WIN32
#include <sys/stat.h>
#endif

namespace aps {
namespace {

namespace fs = std::filesystem;

class JobLogFileTest : public ::testing::Test {
 protected:
  JobLogFileTest() {
    m_folder = fs::temp_directory_path() / ("aps_job_log_file_" + std::to_string(corvane::processId()));
    fs::remove_all(m_folder);
    fs::create_directories(m_folder);
  }
  ~JobLogFileTest() override { fs::remove_all(m_folder); }

  fs::path path(const char* suffix = "") const { return m_folder / (std::string("jobs.json") + suffix); }
  std::string content(const char* suffix = "") const {
    std::ifstream in(path(suffix), std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
  }

  fs::path m_folder;
};

TEST_F(JobLogFileTest, GrowsByLinesAndGoesOnBehindThoseOfAnEarlierProcess) {
  EXPECT_EQ(JobLogFile(path(), 1000).write("1\n2\n"), "");
  JobLogFile file(path(), 1000);
  EXPECT_EQ(file.write(""), "");
  EXPECT_EQ(file.write("3\n"), "");
  EXPECT_EQ(content(), "1\n2\n3\n");
}

TEST_F(JobLogFileTest, IsThereBeforeItsFirstLine) {
  EXPECT_EQ(JobLogFile(path(), 1000).write(""), "");
  EXPECT_TRUE(fs::exists(path()));
}

TEST_F(JobLogFileTest, ALineThatAKilledProcessHasCutIsEnded) {
  std::ofstream(path(), std::ios::binary) << "1\n{\"cu";
  EXPECT_EQ(JobLogFile(path(), 1000).write("2\n"), "");
  EXPECT_EQ(content(), "1\n{\"cu\n2\n");
}

TEST_F(JobLogFileTest, IsRenamedPastItsLimit) {
  JobLogFile file(path(), 10);
  EXPECT_EQ(file.write("1234\n"), "");
  EXPECT_EQ(file.write("5678\n"), "");
  EXPECT_EQ(file.write("9\n"), "");
  EXPECT_EQ(content(".1"), "1234\n5678\n");
  EXPECT_EQ(content(), "9\n");
}

#ifndef _WIN32  // whose files cannot be renamed while they are open, whose disks are not full here, and without FIFOs
TEST_F(JobLogFileTest, BeginsAnewWhenItWasRenamedAndNotBefore) {
  JobLogFile file(path(), 1000);
  EXPECT_EQ(file.write("1\n"), "");
  fs::rename(path(), path(".old"));
  EXPECT_EQ(file.write("2\n"), "");
  EXPECT_FALSE(fs::exists(path()));
  file.reopen();
  EXPECT_EQ(file.write("3\n"), "");
  EXPECT_EQ(content(".old"), "1\n2\n");
  EXPECT_EQ(content(), "3\n");
}

TEST_F(JobLogFileTest, TheRestOfALineThatAFullDiskCutComesFirst) {
  JobLogFile file(path(), 1000);
  EXPECT_EQ(file.write("whole\n"), "");
  {
    const tests::NoSpacePast limit(10);
    EXPECT_EQ(file.write("cut in the middle\nnext\n"), "File too large");
    EXPECT_EQ(file.write("cut in the middle\nnext\n"), "File too large");
    EXPECT_EQ(content(), "whole\ncut ");
  }
  EXPECT_EQ(file.write("cut in the middle\nnext\n"), "");
  EXPECT_EQ(file.write("last\n"), "");
  EXPECT_EQ(content(), "whole\ncut in the middle\nnext\nlast\n");
}

TEST_F(JobLogFileTest, AnotherFileBeginsWithALineThatIsWhole) {
  JobLogFile file(path(), 1000);
  {
    const tests::NoSpacePast limit(3);
    EXPECT_EQ(file.write("cut in the middle\n"), "File too large");
  }
  fs::rename(path(), path(".old"));
  file.reopen();
  EXPECT_EQ(file.write("cut in the middle\n"), "");
  EXPECT_EQ(content(), "cut in the middle\n");
}

TEST_F(JobLogFileTest, AFolderThatIsMissingIsSaidUntilItIsThere) {
  JobLogFile file(m_folder / "later" / "jobs.json", 1000);
  EXPECT_EQ(file.write("1\n"), "No such file or directory");
  fs::create_directory(m_folder / "later");
  EXPECT_EQ(file.write("1\n"), "");
  EXPECT_EQ(fs::file_size(m_folder / "later" / "jobs.json"), 2u);
}

TEST_F(JobLogFileTest, APipeIsRefused) {
  ASSERT_EQ(mkfifo(path().c_str(), 0600), 0);
  EXPECT_NE(JobLogFile(path(), 1000).write("1\n"), "");
  EXPECT_EQ(JobLogFile("/dev/null", 1000).write("1\n"), "it is no file on a disk");
}

TEST_F(JobLogFileTest, NobodyElseCanReadIt) {
  EXPECT_EQ(JobLogFile(path(), 1000).write("1\n"), "");
  EXPECT_EQ(fs::status(path()).permissions(), fs::perms::owner_read | fs::perms::owner_write);
}
#endif

}  // namespace
}  // namespace aps
