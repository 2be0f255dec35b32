#include "client/job_file.h"

#include "client/disk_file.h"
#include "corvane/base/process.h"
#include "programs/text.h"

#include <fstream>
#include <gtest/gtest.h>
#include <iterator>
#include <limits>
#include <stdexcept>
#include <system_error>

#ifndef _WIN32
#include <csignal>
#include <sys/resource.h>
#include <sys/stat.h>
#endif

namespace printclient {
namespace {

namespace fs = std::filesystem;

class JobFileTest : public ::testing::Test {
 protected:
  void SetUp() override {
    m_folder = fs::temp_directory_path() / ("job_file_" + std::to_string(corvane::processId()));
    fs::remove_all(m_folder);
    fs::create_directories(m_folder);
  }
  void TearDown() override { fs::remove_all(m_folder); }

  static std::span<const unsigned char> bytes(const std::string& text) {
    return {reinterpret_cast<const unsigned char*>(text.data()), text.size()};
  }
  std::string read(const std::string& name) const {
    std::ifstream in(m_folder / programs::toPath(name), std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
  }
  std::size_t fileCount() const {
    return static_cast<std::size_t>(std::distance(fs::directory_iterator(m_folder), fs::directory_iterator()));
  }

  fs::path m_folder;
};

TEST_F(JobFileTest, HasItsFinalNameOnlyWhenKept) {
  JobFile file(m_folder, ".part");
  file.append(bytes("hello"));
  EXPECT_FALSE(fs::exists(m_folder / "a.txt"));
  EXPECT_EQ(file.keepAs("a", ".txt"), "a.txt");
  EXPECT_EQ(read("a.txt"), "hello");
  EXPECT_EQ(fileCount(), 1u);
}

TEST_F(JobFileTest, LeavesNothingWhenItIsNotKept) {
  { JobFile(m_folder, ".part").append(bytes("hello")); }
  EXPECT_EQ(fileCount(), 0u);
}

TEST_F(JobFileTest, IsReadByOthersUnderATemporaryNameThatGoesWithIt) {
  {
    JobFile file(m_folder, ".part");
    file.append(bytes("hello"));
    EXPECT_EQ(file.share(".pdf"), m_folder / ".part.pdf");
    EXPECT_EQ(read(".part.pdf"), "hello");
    EXPECT_EQ(fileCount(), 1u);
    EXPECT_FALSE(removeAbandoned(m_folder / ".part.pdf"));
  }
  EXPECT_EQ(fileCount(), 0u);
  std::ofstream(m_folder / ".part.pdf") << "old";
  JobFile file(m_folder, ".part");
  EXPECT_THROW(file.share(".pdf"), std::system_error);
  EXPECT_EQ(read(".part.pdf"), "old");
}

TEST_F(JobFileTest, NeverOverwrites) {
  std::ofstream(m_folder / "a.txt") << "old";
  std::ofstream(m_folder / "a (2).txt") << "older";
  JobFile file(m_folder, ".part");
  file.append(bytes("new"));
  EXPECT_EQ(file.keepAs("a", ".txt"), "a (3).txt");
  EXPECT_EQ(read("a.txt"), "old");
  EXPECT_EQ(read("a (2).txt"), "older");
  EXPECT_EQ(read("a (3).txt"), "new");
}

TEST_F(JobFileTest, TakesTheFirstFreeNumberOfTheFirstHundred) {
  std::ofstream(m_folder / "a.txt") << "old";
  for (int number = 2; number <= 100; ++number)
    std::ofstream(m_folder / ("a (" + std::to_string(number) + ").txt")) << "old";
  EXPECT_EQ(JobFile(m_folder, ".part").keepAs("a", ".txt"), "a (101).txt");
  fs::remove(m_folder / "a (100).txt");
  EXPECT_EQ(JobFile(m_folder, ".part").keepAs("a", ".txt"), "a (100).txt");
}

TEST_F(JobFileTest, FindsANameHoweverManyJobsOfOneNameThereAre) {
  std::ofstream(m_folder / "a.txt").flush();
  for (int number = 2; number <= 100; ++number)
    std::ofstream(m_folder / ("a (" + std::to_string(number) + ").txt")).flush();
  for (int number = 200; number <= 12800; number *= 2)
    std::ofstream(m_folder / ("a (" + std::to_string(number) + ").txt")).flush();
  for (const char* expected : {"a (12801).txt", "a (12802).txt", "a (12803).txt"}) {
    JobFile file(m_folder, ".part");
    file.append(bytes("new"));
    EXPECT_EQ(file.keepAs("a", ".txt"), expected);
    EXPECT_EQ(read(expected), "new");
  }
}

TEST_F(JobFileTest, IsGivenUpWhereNumbersHaveNoEnd) {
  std::ofstream(m_folder / "a.txt").flush();
  for (int number = 2; number <= 100; ++number)
    std::ofstream(m_folder / ("a (" + std::to_string(number) + ").txt")).flush();
  for (long long number = 200; number <= std::numeric_limits<int>::max(); number *= 2)
    std::ofstream(m_folder / ("a (" + std::to_string(number) + ").txt")).flush();
  JobFile file(m_folder, ".part");
  try {
    const std::string name = file.keepAs("a", ".txt");
    ADD_FAILURE() << name;
  } catch (const std::runtime_error& failure) {
    EXPECT_STREQ(failure.what(), "there is no free name for \"a.txt\"");
  }
}

TEST_F(JobFileTest, DoesNotLookForAMissingNumberAmongHigherOnes) {
  for (int number = 1; number <= 200; ++number)
    std::ofstream(m_folder / ("a" + (number == 1 ? "" : " (" + std::to_string(number) + ")") + ".txt")).flush();
  fs::remove(m_folder / "a (150).txt");
  EXPECT_EQ(JobFile(m_folder, ".part").keepAs("a", ".txt"), "a (201).txt");
}

#ifndef _WIN32  // Windows lets nobody touch an open file of this kind
TEST_F(JobFileTest, AReplacedTemporaryFileIsNeitherKeptNorRemoved) {
  {
    JobFile file(m_folder, ".part");
    file.append(bytes("mine"));
    std::ofstream(m_folder / "other") << "evil";
    fs::rename(m_folder / "other", m_folder / ".part");
    try {
      file.keepAs("a", ".txt");
      ADD_FAILURE() << "somebody else's data were kept as the job";
    } catch (const std::runtime_error& failure) {
      EXPECT_EQ(std::string(failure.what()), "somebody else has changed, moved or removed the unfinished file " +
                                                 programs::fromPath(m_folder / ".part"));
    }
  }
  EXPECT_EQ(read(".part"), "evil");
  EXPECT_EQ(fileCount(), 1u);
}

TEST_F(JobFileTest, ALinkInPlaceOfTheTemporaryFileIsNotKept) {
  JobFile file(m_folder, ".part");
  file.append(bytes("mine"));
  fs::rename(m_folder / ".part", m_folder / "moved");
  fs::create_symlink("moved", m_folder / ".part");
  EXPECT_THROW(file.keepAs("a", ".txt"), std::runtime_error);
  EXPECT_FALSE(fs::exists(fs::symlink_status(m_folder / "a.txt")));
}

TEST_F(JobFileTest, ATemporaryFileThatSomebodyElseWroteToIsNotKept) {
  JobFile file(m_folder, ".part");
  file.append(bytes(std::string(64 * 1024, 'x')));
  std::ofstream(m_folder / ".part", std::ios::app) << "!";
  EXPECT_THROW(file.keepAs("a", ".txt"), std::runtime_error);
  EXPECT_FALSE(fs::exists(m_folder / "a.txt"));
}

TEST_F(JobFileTest, IsForItsUserOnly) {
  JobFile file(m_folder, ".part");
  struct stat status;
  ASSERT_EQ(stat((m_folder / ".part").c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 0777, 0600u);
  file.keepAs("a", ".txt");
  ASSERT_EQ(stat((m_folder / "a.txt").c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 0777, 0600u);
}

TEST_F(JobFileTest, ALinkOrAPipeIsNoAbandonedFile) {
  std::ofstream(m_folder / "file") << "x";
  fs::create_symlink("file", m_folder / "link");
  ASSERT_EQ(mkfifo((m_folder / "pipe").c_str(), 0600), 0);
  EXPECT_FALSE(removeAbandoned(m_folder / "link"));
  EXPECT_FALSE(removeAbandoned(m_folder / "pipe"));
  EXPECT_EQ(fileCount(), 3u);
}
#endif

TEST_F(JobFileTest, IsAbandonedOnlyWhenNobodyHasItOpen) {
  {
    JobFile file(m_folder, ".part");
    EXPECT_FALSE(removeAbandoned(m_folder / ".part"));
    file.append(bytes("mine"));
    EXPECT_EQ(file.keepAs("a", ".txt"), "a.txt");
    EXPECT_EQ(read("a.txt"), "mine");
  }
  std::ofstream(m_folder / ".part") << "left behind";
  EXPECT_TRUE(removeAbandoned(m_folder / ".part"));
  EXPECT_FALSE(removeAbandoned(m_folder / ".part"));
  EXPECT_EQ(fileCount(), 1u);
}

TEST_F(JobFileTest, KeepsTheOrderOfSmallAndLargePieces) {
  JobFile file(m_folder, ".part");
  std::string all;
  for (const std::size_t size : {1, 5, 40000, 3, 32767, 32768, 70000, 1, 64 * 1024, 2}) {
    const std::string piece(size, static_cast<char>('a' + all.size() % 26));
    file.append(bytes(piece));
    all += piece;
  }
  file.keepAs("a", ".prn");
  EXPECT_EQ(read("a.prn"), all);
}

TEST_F(JobFileTest, AnEmptyJobIsAnEmptyFile) {
  JobFile file(m_folder, ".part");
  file.keepAs("a", ".prn");
  EXPECT_EQ(fs::file_size(m_folder / "a.prn"), 0u);
}

TEST_F(JobFileTest, TakesANameThatIsNotAscii) {
  JobFile file(m_folder, ".part");
  file.append(bytes("x"));
  EXPECT_EQ(file.keepAs("B\xC3\xBCro \xE2\x82\xAC", ".txt"), "B\xC3\xBCro \xE2\x82\xAC.txt");
  EXPECT_EQ(read("B\xC3\xBCro \xE2\x82\xAC.txt"), "x");
}

TEST_F(JobFileTest, FailsWithoutItsFolder) {
  EXPECT_THROW(JobFile(m_folder / "missing", ".part"), std::system_error);
}

TEST_F(JobFileTest, DoesNotTakeOverAFileOfItsTemporaryName) {
  std::ofstream(m_folder / ".part") << "other";
  EXPECT_THROW(JobFile(m_folder, ".part"), std::system_error);
  EXPECT_EQ(read(".part"), "other");
}

#ifndef _WIN32
// Files of this process may not grow past the limit while the object lives, so that a write is first taken in part and
// then fails, as on a full disk.
class FileSizeLimit {
 public:
  explicit FileSizeLimit(rlim_t bytes) {
    std::signal(SIGXFSZ, SIG_IGN);
    getrlimit(RLIMIT_FSIZE, &m_before);
    rlimit limit = m_before;
    limit.rlim_cur = bytes;
    setrlimit(RLIMIT_FSIZE, &limit);
  }
  ~FileSizeLimit() {
    setrlimit(RLIMIT_FSIZE, &m_before);
    std::signal(SIGXFSZ, SIG_DFL);
  }

 private:
  rlimit m_before = {};
};

TEST_F(JobFileTest, AWriteThatIsTakenOnlyInPartFails) {
  JobFile file(m_folder, ".part");
  const FileSizeLimit limit(50000);
  EXPECT_THROW(file.append(bytes(std::string(100000, 'x'))), std::system_error);
}

TEST_F(JobFileTest, DataThatAreStillGatheredAreNotCompleteWithoutTheDisk) {
  JobFile file(m_folder, ".part");
  const FileSizeLimit limit(100);
  file.append(bytes(std::string(1000, 'x')));
  EXPECT_THROW(file.keepAs("a", ".txt"), std::system_error);
  EXPECT_FALSE(fs::exists(m_folder / "a.txt"));
}
#endif

TEST(DiskFiles, CanBeReadBackWhileTheyAreWrittenAndLeftBehindOnPurpose) {
  const fs::path folder = fs::temp_directory_path() / ("left_" + std::to_string(corvane::processId()));
  fs::remove_all(folder);
  fs::create_directories(folder);
  const std::string data(700000, 'x');
  {
    DiskFile left(folder / "left"), gone(folder / "gone");
    for (DiskFile* const file : {&left, &gone})
      file->write({reinterpret_cast<const unsigned char*>(data.data()), data.size()});
    std::string back;
    left.readBack([&back](std::span<const unsigned char> piece) { back.append(piece.begin(), piece.end()); });
    EXPECT_EQ(back, data);
    left.leave();
  }
  EXPECT_EQ(fs::file_size(folder / "left"), data.size());
  EXPECT_FALSE(fs::exists(folder / "gone"));
  fs::remove_all(folder);
}

}  // namespace
}  // namespace printclient
