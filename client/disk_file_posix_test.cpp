#include "client/disk_file.h"
#include "client/job_file.h"
#include "corvane/base/process.h"

#include <cerrno>
#include <cstdio>
#include <fcntl.h>
#include <fstream>
#include <functional>
#include <gtest/gtest.h>
#include <iterator>
#include <list>
#include <stdexcept>
#include <sys/syscall.h>
#include <sys/uio.h>
#include <unistd.h>
#include <vector>

namespace {

// Comes in place of the system's call when it is set.
std::function<int(const char* from, const char* to)> g_renaming;
std::function<ssize_t(const void* bytes, std::size_t size)> g_writing;
std::function<ssize_t(int file, const iovec* parts, int count)> g_writingParts;
std::function<int()> g_syncing;

int renameForReal(const char* from, const char* to, unsigned flags) {
  return static_cast<int>(syscall(SYS_renameat2, AT_FDCWD, from, AT_FDCWD, to, flags));
}

}  // namespace

int renameat2(int, const char* from, int, const char* to, unsigned flags) noexcept {
  return g_renaming ? g_renaming(from, to) : renameForReal(from, to, flags);
}

extern "C" ssize_t write(int file, const void* bytes, std::size_t size) {
  return g_writing ? g_writing(bytes, size) : syscall(SYS_write, file, bytes, size);
}

extern "C" ssize_t writev(int file, const iovec* parts, int count) {
  return g_writingParts ? g_writingParts(file, parts, count) : syscall(SYS_writev, file, parts, count);
}

int fsync(int file) {
  return g_syncing ? g_syncing() : static_cast<int>(syscall(SYS_fsync, file));
}

namespace printclient {
namespace {

namespace fs = std::filesystem;

class DiskFileTest : public ::testing::Test {
 protected:
  void SetUp() override {
    m_folder = fs::temp_directory_path() / ("disk_file_" + std::to_string(corvane::processId()));
    fs::remove_all(m_folder);
    fs::create_directories(m_folder);
  }
  void TearDown() override {
    g_renaming = nullptr;
    g_writing = nullptr;
    g_writingParts = nullptr;
    g_syncing = nullptr;
    fs::remove_all(m_folder);
  }

  // The folder is on a file system that knows no renaming without replacing.
  static void forbidRenaming() {
    g_renaming = [](const char*, const char*) {
      errno = EINVAL;
      return -1;
    };
  }
  std::string read(const std::string& name) const {
    std::ifstream in(m_folder / name, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
  }
  std::size_t fileCount() const {
    return static_cast<std::size_t>(std::distance(fs::directory_iterator(m_folder), fs::directory_iterator()));
  }
  static void fill(DiskFile& file) {
    const unsigned char mine[] = {'m', 'i', 'n', 'e'};
    file.write(mine);
  }

  fs::path m_folder;
};

TEST_F(DiskFileTest, GetsItsNameWhereThereIsNoRenamingWithoutReplacing) {
  forbidRenaming();
  DiskFile file(m_folder / ".part");
  fill(file);
  EXPECT_TRUE(file.renameTo(m_folder / "a.txt"));
  EXPECT_EQ(read("a.txt"), "mine");
  EXPECT_EQ(fileCount(), 1u);
}

TEST_F(DiskFileTest, OverwritesNothingWhereThereIsNoRenamingWithoutReplacing) {
  forbidRenaming();
  std::ofstream(m_folder / "a.txt") << "old";
  DiskFile file(m_folder / ".part");
  fill(file);
  EXPECT_FALSE(file.renameTo(m_folder / "a.txt"));
  EXPECT_EQ(read("a.txt"), "old");
  EXPECT_TRUE(file.renameTo(m_folder / "b.txt"));
  EXPECT_EQ(read("b.txt"), "mine");
}

TEST_F(DiskFileTest, StaysWhatItIsWhereItCanBeRenamedInNoWay) {
  forbidRenaming();
  DiskFile file(m_folder / ".part");
  fill(file);
  try {
    file.renameTo(m_folder / "missing" / "a.txt");
    ADD_FAILURE() << "it was renamed";
  } catch (const std::system_error& failure) {
    EXPECT_EQ(std::string(failure.what()),
              "cannot rename to " + (m_folder / "missing" / "a.txt").string() + ": No such file or directory");
  }
  EXPECT_EQ(read(".part"), "mine");
}

TEST_F(DiskFileTest, OverwritesNothingAndCanBeGivenAnotherName) {
  std::ofstream(m_folder / "a.txt") << "old";
  DiskFile file(m_folder / ".part");
  fill(file);
  EXPECT_FALSE(file.renameTo(m_folder / "a.txt"));
  EXPECT_EQ(read("a.txt"), "old");
  EXPECT_TRUE(file.renameTo(m_folder / "b.txt"));
  EXPECT_EQ(read("b.txt"), "mine");
  EXPECT_EQ(fileCount(), 2u);
}

TEST_F(DiskFileTest, AJobWhoseNamesAreAllTakenBySomebodyQuickerIsGivenUpAfterAThousand) {
  int attempts = 0;
  g_renaming = [&](const char*, const char*) {
    ++attempts;
    errno = EEXIST;
    return -1;
  };
  JobFile file(m_folder, ".part");
  try {
    file.keepAs("a", ".txt");
    FAIL() << "it was kept";
  } catch (const std::runtime_error& failure) {
    EXPECT_STREQ(failure.what(), "there is no free name for \"a.txt\"");
  }
  EXPECT_EQ(attempts, 1000);
}

TEST_F(DiskFileTest, ThatCannotBeRenamedSaysWhyAndIsRemoved) {
  g_renaming = [](const char*, const char*) {
    errno = EACCES;
    return -1;
  };
  {
    DiskFile file(m_folder / ".part");
    try {
      file.renameTo(m_folder / "a.txt");
      ADD_FAILURE() << "it was renamed";
    } catch (const std::system_error& failure) {
      EXPECT_EQ(failure.code().value(), EACCES);
      EXPECT_EQ(std::string(failure.what()),
                "cannot rename to " + (m_folder / "a.txt").string() + ": Permission denied");
    }
  }
  EXPECT_EQ(fileCount(), 0u);
}

TEST_F(DiskFileTest, WhoIsQuickEnoughToReplaceItDuringTheRenamingIsNotReported) {
  std::ofstream(m_folder / "other") << "evil";
  g_renaming = [this](const char* from, const char* to) {
    fs::rename(m_folder / "other", from);
    return renameForReal(from, to, RENAME_NOREPLACE);
  };
  DiskFile file(m_folder / ".part");
  fill(file);
  EXPECT_THROW(file.renameTo(m_folder / "a.txt"), std::runtime_error);
}

TEST_F(DiskFileTest, WhatIsTakenInPartOrInterruptedIsWrittenOn) {
  DiskFile file(m_folder / ".part");
  std::string written;
  int calls = 0;
  g_writing = [&](const void* bytes, std::size_t) -> ssize_t {
    if (++calls % 2 == 1) {
      errno = EINTR;
      return -1;
    }
    written.push_back(*static_cast<const char*>(bytes));
    return 1;
  };
  fill(file);
  g_writing = nullptr;
  EXPECT_EQ(written, "mine");
  EXPECT_EQ(calls, 8);
}

TEST_F(DiskFileTest, TwoPartsThatAreTakenInPartAreWrittenOnInOrder) {
  DiskFile file(m_folder / ".part");
  std::vector<std::string> wanted;
  const std::size_t takes[] = {0, 2,
                               3};  // nothing, because of a signal; of the first part; more than what is left of it
  g_writingParts = [&](int handle, const iovec* parts, int count) -> ssize_t {
    EXPECT_EQ(count, 2);
    std::string all(static_cast<const char*>(parts[0].iov_base), parts[0].iov_len);
    all.append("|").append(static_cast<const char*>(parts[1].iov_base), parts[1].iov_len);
    wanted.push_back(all);
    const std::size_t take = takes[std::min<std::size_t>(wanted.size(), 3) - 1];
    if (take == 0) {
      errno = EINTR;
      return -1;
    }
    all.erase(all.find('|'), 1);
    return syscall(SYS_write, handle, all.data(), take);
  };
  const unsigned char bytes[] = {'a', 'b', 'c', 'd', 'e', 'f', 'g'};
  const DiskFile::Part parts[] = {std::span(bytes).first(3), std::span(bytes).subspan(3)};
  file.write(parts);
  EXPECT_EQ(wanted, (std::vector<std::string>{"abc|defg", "abc|defg", "c|defg"}));
  EXPECT_EQ(read(".part"), "abcdefg");
  EXPECT_TRUE(file.renameTo(m_folder / "a.txt")) << "its size was counted";
}

TEST_F(DiskFileTest, MorePartsThanTheSystemTakesAtOnceAreAllWritten) {
  DiskFile file(m_folder / ".part");
  std::string all;
  for (int i = 0; i < 3000; ++i)
    all.push_back(static_cast<char>('a' + i % 26));
  std::vector<DiskFile::Part> parts;
  for (const char& byte : all)
    parts.emplace_back(reinterpret_cast<const unsigned char*>(&byte), 1);
  file.write(parts);
  EXPECT_TRUE(read(".part") == all);
}

// What the file of a job is given, and the sizes of the writes that come of it.
class JobFileWritesTest : public DiskFileTest {
 protected:
  void SetUp() override {
    DiskFileTest::SetUp();
    g_writing = [this](const void* bytes, std::size_t size) -> ssize_t {
      m_writes.push_back(size);
      m_written.append(static_cast<const char*>(bytes), size);
      return static_cast<ssize_t>(size);
    };
    g_writingParts = [this](int, const iovec* parts, int count) -> ssize_t {
      std::size_t size = 0;
      for (int i = 0; i < count; ++i) {
        m_written.append(static_cast<const char*>(parts[i].iov_base), parts[i].iov_len);
        size += parts[i].iov_len;
      }
      m_writes.push_back(size);
      return static_cast<ssize_t>(size);
    };
  }
  std::span<const unsigned char> piece(std::size_t size) {
    std::string& text = m_pieces.emplace_back(size, static_cast<char>('a' + m_pieces.size() % 26));
    m_given += text;
    return {reinterpret_cast<const unsigned char*>(text.data()), size};
  }
  // The pieces are used for something else.
  void overwritePieces() {
    for (std::string& text : m_pieces)
      text.assign(text.size(), '#');
  }

  static constexpr std::size_t kBlock = JobFile::kBlockBytes;
  using Writes = std::vector<std::size_t>;
  Writes m_writes;
  std::string m_written;
  std::string m_given;
  std::list<std::string> m_pieces;
};

TEST_F(JobFileWritesTest, AreWholeBlocksOfWhatWasReferredToAndTheRestGoesBehind) {
  JobFile file(m_folder, ".part");
  for (int i = 0; i < 4; ++i) {
    file.refer(piece(kBlock - 69));
    file.refer(piece(69));
    file.refer(piece(100));
  }
  EXPECT_EQ(m_writes, Writes{}) << "nothing is written before it must be";
  file.letGo();
  EXPECT_EQ(m_writes, Writes{4 * kBlock});
  overwritePieces();
  file.append(piece(kBlock - 401));
  EXPECT_EQ(m_writes, Writes{4 * kBlock}) << "a byte is missing";
  file.append(piece(1));
  EXPECT_EQ(m_writes, (Writes{4 * kBlock, kBlock}));
  file.append(piece(7));
  file.settle();
  EXPECT_EQ(m_writes, (Writes{4 * kBlock, kBlock, 7}));
  EXPECT_TRUE(m_written == m_given);
}

TEST_F(JobFileWritesTest, OfManyPiecesGoTogetherUpTo64) {
  JobFile file(m_folder, ".part");
  for (std::size_t i = 0; i < JobFile::kMostReferred; ++i)
    file.refer(piece(kBlock / 16));
  EXPECT_EQ(m_writes, Writes{});
  file.refer(piece(kBlock / 16));
  EXPECT_EQ(m_writes, Writes{4 * kBlock});
  file.settle();
  EXPECT_EQ(m_writes, (Writes{4 * kBlock, kBlock / 16}));
  EXPECT_TRUE(m_written == m_given);
}

TEST_F(JobFileWritesTest, ThatFailTakeNothingOfThePiecesWithThem) {
  JobFile file(m_folder, ".part");
  g_writing = [](const void*, std::size_t) -> ssize_t { return 0; };
  file.refer(piece(kBlock));
  EXPECT_THROW(file.letGo(), std::system_error);
  overwritePieces();
  file.letGo();  // would write it again
  EXPECT_EQ(m_written, "");
}

TEST_F(DiskFileTest, OfTwoPartsEitherMayBeEmpty) {
  DiskFile file(m_folder / ".part");
  int calls = 0;
  g_writingParts = [&calls](int, const iovec*, int) -> ssize_t { return ++calls; };
  const unsigned char bytes[] = {'a', 'b'};
  using Parts = std::vector<DiskFile::Part>;
  file.write(Parts{{}, std::span(bytes).first(1)});
  file.write(Parts{std::span(bytes).subspan(1), {}});
  file.write(Parts{{}, {}});
  file.write(Parts{});
  EXPECT_EQ(read(".part"), "ab");
  EXPECT_EQ(calls, 0);
}

TEST_F(DiskFileTest, ADiskThatTakesNothingIsFull) {
  DiskFile file(m_folder / ".part");
  g_writing = [](const void*, std::size_t) -> ssize_t { return 0; };
  try {
    fill(file);
    ADD_FAILURE() << "it was written";
  } catch (const std::system_error& failure) {
    EXPECT_EQ(failure.code().value(), ENOSPC);
  }
}

TEST_F(DiskFileTest, DataThatDoNotReachTheDiskAreAFailure) {
  DiskFile file(m_folder / ".part");
  int calls = 0;
  g_syncing = [&calls] {
    ++calls;
    errno = EIO;
    return -1;
  };
  EXPECT_THROW(file.sync(), std::system_error);
  EXPECT_EQ(calls, 1);
}

TEST_F(DiskFileTest, ItsNewNameReachesTheDisk) {
  DiskFile file(m_folder / ".part");
  fill(file);
  int calls = 0;
  g_syncing = [&calls] {
    ++calls;
    return 0;
  };
  EXPECT_TRUE(file.renameTo(m_folder / "a.txt"));
  EXPECT_EQ(calls, 1);
}

TEST_F(DiskFileTest, IsNotTakenForAbandonedWhileItsNameIsTaken) {
  const fs::path path = m_folder / ".part";
  DiskFile first(path);
  EXPECT_THROW(DiskFile second(path), std::system_error);
  EXPECT_FALSE(removeAbandoned(path));
  EXPECT_TRUE(fs::exists(path));
}

}  // namespace
}  // namespace printclient
