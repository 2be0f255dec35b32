#include "server/log.h"

#include "corvane/base/process.h"

#include <algorithm>
#include <atomic>
#include <fstream>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <iterator>
#include <thread>
#include <vector>

#ifndef _WIN32
#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>
#endif

namespace aps {
namespace {

using ::testing::ContainsRegex;
namespace fs = std::filesystem;
constexpr std::chrono::minutes kLong{1};

class LogTest : public ::testing::Test {
 protected:
  void SetUp() override {
    m_file = fs::temp_directory_path() / ("aps_log_" + std::to_string(corvane::processId()) + ".log");
    removeFiles();
  }
  void TearDown() override { removeFiles(); }

  void removeFiles() const {
    fs::remove_all(m_file);
    fs::remove_all(old());
  }
  fs::path old() const {
    fs::path path = m_file;
    return path += ".1";
  }
  static std::string content(const fs::path& path) {
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
  }

  fs::path m_file;
};

// Digits as "9" and the sign of the time zone as "+".
std::string pattern(std::string text) {
  for (char& c : text) {
    if (c >= '0' && c <= '9') c = '9';
  }
  const std::size_t zone = text.find(" -9999");
  if (zone != std::string::npos) text[zone + 1] = '+';
  return text;
}

constexpr std::size_t kStamp = 29;  // characters of a time

TEST_F(LogTest, WritesOneLineWithTheTimeInFront) {
  Log(m_file).line("aps starts");
  EXPECT_EQ(pattern(content(m_file)), "9999-99-99 99:99:99.999 +9999 aps starts\n");
}

TEST_F(LogTest, WhateverALineHoldsItIsOneAndCanBeSeen) {
  Log(m_file).failure("document \"a\nb\x1b[2J\xE2\x80\xAE\xC2\x9B\"");
  EXPECT_EQ(content(m_file).substr(kStamp), " document \"a b?[2J??\"\n");
}

TEST_F(LogTest, ALineHasAnEnd) {
  Log log(m_file);
  log.failure(std::string(50000, 'x') + "\xC3\xA4");
  log.line("\xC3\xA4" + std::string(Log::kLineBytes - kStamp - 4, 'x') + "\xC3\xA4");
  ASSERT_TRUE(log.flush(kLong));
  std::ifstream in(m_file, std::ios::binary);
  std::string line;
  std::getline(in, line);
  EXPECT_EQ(line.size(), Log::kLineBytes + 3);
  std::getline(in, line);
  EXPECT_EQ(line.substr(line.size() - 5), "xx...");
  EXPECT_EQ(line.size(), Log::kLineBytes - 1 + 3);
}

TEST_F(LogTest, KeepsTheLinesOfFailuresAsTheyStandInTheFile) {
  Log log(m_file);
  log.line("aps starts");
  log.failure("job refused");
  const auto kept = log.failures().latest(10);
  ASSERT_EQ(kept.size(), 1u);
  EXPECT_EQ(kept[0].substr(kStamp), " job refused");
  ASSERT_TRUE(log.flush(kLong));
  EXPECT_NE(content(m_file).find("\n" + kept[0] + "\n"), std::string::npos);
}

TEST_F(LogTest, CountsWhatAPeerRepeatsAndKeepsRoomForTheHistoryOfJobs) {
  {
    Log log(m_file);
    log.failure("a job failed");
    for (int i = 1; i <= 50000; ++i)
      log.refusal("connections", "refused " + std::to_string(i));
    for (int i = 1; i <= 102; ++i)
      log.repeatable("session 5", "comes " + std::to_string(i));
    const auto kept = log.failures().latest(100);
    ASSERT_EQ(kept.size(), 11u);
    EXPECT_EQ(kept[0].substr(kStamp), " a job failed");
    EXPECT_EQ(kept[10].substr(kStamp), " refused 10");
  }
  const std::string text = content(m_file);
  EXPECT_EQ(std::count(text.begin(), text.end(), '\n'), 1 + 10 + 100 + 2);
  EXPECT_THAT(text, ContainsRegex(" 49990 more of these within .* s, the latest: refused 50000\n"));
  EXPECT_THAT(text, ContainsRegex(" 2 more of these within .* s, the latest: comes 102\n"));
}

// What was counted in the window of a minute is told when it ends, before whatever line comes next.
TEST_F(LogTest, AtTheEndOfAWindowWhatWasCountedIsToldOnceBeforeTheNextLine) {
  std::atomic<int> seconds{0};
  const auto begin = Repeats::Clock::now();
  Log log(m_file, Log::kLimitBytes, [&] { return begin + std::chrono::seconds(seconds); });
  for (int i = 1; i <= Repeats::kFirst + 2; ++i)
    log.refusal("connections", "refused " + std::to_string(i));
  log.line("a");
  ASSERT_TRUE(log.flush(kLong));
  seconds = 59;
  log.line("b");
  ASSERT_TRUE(log.flush(kLong));
  seconds = 60;
  log.line("c");
  log.line("d");
  ASSERT_TRUE(log.flush(kLong));
  std::vector<std::string> texts;
  std::ifstream in(m_file, std::ios::binary);
  for (std::string line; std::getline(in, line);)
    texts.push_back(line.substr(kStamp + 1));
  ASSERT_EQ(texts.size(), 10u + 5u);
  texts.erase(texts.begin(), texts.begin() + 10);
  const std::string told = "2 more of these within 60 s, the latest: refused 12";
  EXPECT_THAT(texts, ::testing::ElementsAre("a", "b", told, "c", "d"));
  const auto kept = log.failures().latest(100);
  ASSERT_EQ(kept.size(), 11u);
  EXPECT_EQ(kept[10].substr(kStamp + 1), told) << "and among the failures";
}

// The clock stands a moment before the window's end when the thread of the log looks for the last time; it has to come
// back by itself.
TEST_F(LogTest, AtTheEndOfAWindowWhatWasCountedIsToldThoughNobodyWritesALine) {
  std::atomic<bool> isLater{false};
  Log log(m_file, Log::kLimitBytes, [&] {
    return Repeats::Clock::now() +
           (isLater ? Repeats::kFirstWindow - std::chrono::milliseconds(50) : std::chrono::milliseconds(0));
  });
  for (int i = 1; i <= Repeats::kFirstOrdinary + 1; ++i)
    log.repeatable("session 5", "comes " + std::to_string(i));
  isLater = true;
  log.line("the last one");
  const auto giveUp = std::chrono::steady_clock::now() + kLong;
  while (content(m_file).find(" 1 more of these within 60 s, the latest: comes 101\n") == std::string::npos) {
    ASSERT_LT(std::chrono::steady_clock::now(), giveUp);
    std::this_thread::yield();
  }
  EXPECT_TRUE(log.failures().latest(100).empty());
}

TEST_F(LogTest, RefusalsOfManyKindsPushNoJobOutOfTheFailures) {
  Log log(m_file);
  log.failure("a job failed");
  for (int i = 0; i < 640; ++i)
    log.refusal("kind " + std::to_string(i / 10), "refused");
  const auto kept = log.failures().latest(1000);
  ASSERT_EQ(kept.size(), 1 + RecentLines::kLines);
  EXPECT_EQ(kept[0].substr(kStamp), " a job failed");
}

TEST_F(LogTest, AppendsToWhatIsThere) {
  Log(m_file).line("first");
  Log(m_file).line("second");
  const std::string text = content(m_file);
  EXPECT_NE(text.find("first\n"), std::string::npos);
  EXPECT_NE(text.find("second\n"), std::string::npos);
}

TEST_F(LogTest, KeepsOneOlderFileWhenItReachesItsLimit) {
  {
    Log log(m_file, 120);
    for (const char* text : {"one 5678901234567890", "two 5678901234567890", "three 78901234567890"})
      log.line(text);
  }
  EXPECT_EQ(content(old()).find("three"), std::string::npos);
  EXPECT_NE(content(old()).find("two"), std::string::npos);
  EXPECT_NE(content(m_file).find("three"), std::string::npos);
}

TEST_F(LogTest, SaysWhyItCannotBeOpened) {
  try {
    Log log(m_file / "below" / "a file");
    FAIL() << "opened";
  } catch (const std::runtime_error& failure) {
    EXPECT_NE(std::string(failure.what()).find("cannot be opened: No such file"), std::string::npos) << failure.what();
  }
}

TEST_F(LogTest, GoesOnInANewFileWhenItsFileWasRenamed) {
  Log log(m_file);
  log.line("before");
  ASSERT_TRUE(log.flush(kLong));
  fs::rename(m_file, old());
  log.line("meanwhile");
  ASSERT_TRUE(log.flush(kLong));
  log.reopen();
  log.line("after");
  ASSERT_TRUE(log.flush(kLong));
  EXPECT_NE(content(old()).find(" meanwhile\n"), std::string::npos);
  EXPECT_EQ(pattern(content(m_file)),
            "9999-99-99 99:99:99.999 +9999 the log was reopened\n"
            "9999-99-99 99:99:99.999 +9999 after\n");
}

#ifndef _WIN32
TEST_F(LogTest, ADiskWithoutSpaceIsAFailureToReadOfAndTheLinesAreCountedOnceThereIsSome) {
  fs::create_symlink("/dev/full", m_file);
  Log log(m_file);
  for (int i = 0; i < 3; ++i)
    log.line("lost");
  ASSERT_TRUE(log.flush(kLong));
  auto kept = log.failures().latest(10);
  ASSERT_EQ(kept.size(), 1u);
  EXPECT_EQ(kept[0].substr(kStamp),
            " the log cannot be written: No space left on device; its lines are lost until it can");
  fs::remove(m_file);
  log.reopen();
  ASSERT_TRUE(log.flush(kLong));
  EXPECT_EQ(pattern(content(m_file)),
            "9999-99-99 99:99:99.999 +9999 9 lines are missing here: No space left on device\n"
            "9999-99-99 99:99:99.999 +9999 the log was reopened\n");
  kept = log.failures().latest(10);
  ASSERT_EQ(kept.size(), 2u);
  EXPECT_EQ(kept[1].substr(kStamp), " in the log 3 lines are missing here: No space left on device");
  EXPECT_EQ(log.linesLost(), 3u);
}

TEST_F(LogTest, AFileThatCannotBeOpenedAnewIsWrittenOn) {
  Log log(m_file);
  log.line("before");
  ASSERT_TRUE(log.flush(kLong));
  fs::rename(m_file, old());
  fs::create_directory(m_file);
  log.reopen();
  log.line("after");
  ASSERT_TRUE(log.flush(kLong));
  EXPECT_NE(content(old()).find(" after\n"), std::string::npos);
  const auto kept = log.failures().latest(10);
  ASSERT_EQ(kept.size(), 1u);
  EXPECT_EQ(kept[0].substr(kStamp),
            " the log file " + m_file.string() +
                " cannot be opened: Is a directory; the file that was open before is written on");
}

// Reads lines until there are so many, those that are said to be missing included; gives how many there were.
int readLines(int pipe, int wanted) {
  int lines = 0;
  std::string rest;
  pollfd news{pipe, POLLIN, 0};
  while (lines < wanted && poll(&news, 1, 60000) == 1) {
    char buffer[65536];
    const ssize_t got = read(pipe, buffer, sizeof buffer);
    if (got <= 0) break;
    rest.append(buffer, static_cast<std::size_t>(got));
    for (std::size_t end = rest.find('\n'); end != std::string::npos; end = rest.find('\n')) {
      const bool isMissing = rest.find(" missing here: they came faster than they could be written\n") < end;
      lines += isMissing ? std::stoi(rest.substr(kStamp + 1)) : 1;
      rest.erase(0, end + 1);
    }
  }
  return lines;
}

TEST_F(LogTest, APipeThatNobodyReadsHoldsUpNobodyAndIsAFailureToReadOf) {
  ASSERT_EQ(mkfifo(m_file.c_str(), 0600), 0);
  const int reader = open(m_file.c_str(), O_RDONLY | O_NONBLOCK);
  ASSERT_GE(reader, 0);
  {
    Log log(m_file);
    const std::string longLine(1000, 'x');
    for (int i = 0; i < 5000; ++i)
      log.line(longLine);
    const auto kept = log.failures().latest(10);
    ASSERT_GE(kept.size(), 1u);
    EXPECT_EQ(kept[0].substr(kStamp),
              " the log is blocked, so its lines are lost: nobody reads it, or its disk is stuck");
    EXPECT_EQ(readLines(reader, 5000), 5000);
  }
  close(reader);
}

TEST_F(LogTest, APipeWithoutAReaderIsRefusedAtOnce) {
  ASSERT_EQ(mkfifo(m_file.c_str(), 0600), 0);
  EXPECT_THROW(Log{m_file}, std::runtime_error);
}
#endif

}  // namespace
}  // namespace aps
