#include "server/log.h"

#include <fstream>
#include <gtest/gtest.h>
#include <iterator>

namespace aps {
namespace {

namespace fs = std::filesystem;

class LogTest : public ::testing::Test {
 protected:
  void SetUp() override {
    m_file = fs::temp_directory_path() /
             (std::string("aps_log_") + ::testing::UnitTest::GetInstance()->current_test_info()->name() + ".log");
    removeFiles();
  }
  void TearDown() override { removeFiles(); }

  void removeFiles() const {
    fs::remove(m_file);
    fs::remove(old());
  }
  fs::path old() const {
    fs::path path = m_file;
    return path += ".1";
  }
  static std::string read(const fs::path& path) {
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
  }

  fs::path m_file;
};

TEST_F(LogTest, WritesOneLineWithTheTimeInFront) {
  Log(m_file).line("aps starts");
  std::string text = read(m_file);
  for (char& c : text) {
    if (c >= '0' && c <= '9') c = '9';
  }
  EXPECT_EQ(text, "9999-99-99 99:99:99.999 aps starts\n");
}

TEST_F(LogTest, KeepsTheLinesOfFailuresAsTheyStandInTheFile) {
  Log log(m_file);
  log.line("aps starts");
  log.failure("job refused");
  const auto kept = log.failures().latest(10);
  ASSERT_EQ(kept.size(), 1u);
  EXPECT_EQ(kept[0].substr(23), " job refused");
  EXPECT_NE(read(m_file).find("\n" + kept[0] + "\n"), std::string::npos);
}

TEST_F(LogTest, AppendsToWhatIsThere) {
  Log(m_file).line("first");
  Log(m_file).line("second");
  const std::string text = read(m_file);
  EXPECT_NE(text.find("first\n"), std::string::npos);
  EXPECT_NE(text.find("second\n"), std::string::npos);
}

TEST_F(LogTest, KeepsOneOlderFileWhenItReachesItsLimit) {
  Log log(m_file, 100);
  for (const char* text : {"one 5678901234567890", "two 5678901234567890", "three 78901234567890"})
    log.line(text);
  EXPECT_EQ(read(old()).find("three"), std::string::npos);
  EXPECT_NE(read(old()).find("two"), std::string::npos);
  EXPECT_NE(read(m_file).find("three"), std::string::npos);
}

TEST_F(LogTest, SaysWhyItCannotBeOpened) {
  try {
    Log log(m_file / "below" / "a file");
    FAIL() << "opened";
  } catch (const std::runtime_error& failure) {
    EXPECT_NE(std::string(failure.what()).find("cannot be opened: No such file"), std::string::npos) << failure.what();
  }
}

}  // namespace
}  // namespace aps
