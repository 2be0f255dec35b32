#include "corvane/records/program_monitor.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

namespace corvane {
namespace {

// The standard error output goes into a pipe of two pages that nobody reads, until the test does.
class StandardErrorSinkTest : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_EQ(pipe2(m_ends, O_CLOEXEC | O_NONBLOCK), 0);
    // Only the reading end may not wait: a sink that would wait is to be caught.
    fcntl(m_ends[1], F_SETFL, 0);
    ASSERT_GE(fcntl(m_ends[1], F_SETPIPE_SZ, 8192), 8192);
    m_before = dup(STDERR_FILENO);
    dup2(m_ends[1], STDERR_FILENO);
  }
  void TearDown() override {
    dup2(m_before, STDERR_FILENO);
    for (const int descriptor : {m_before, m_ends[0], m_ends[1]})
      close(descriptor);
  }

  std::string readAll() const {
    std::string all;
    char buffer[4096];
    for (ssize_t got = read(m_ends[0], buffer, sizeof buffer); got > 0; got = read(m_ends[0], buffer, sizeof buffer))
      all.append(buffer, static_cast<std::size_t>(got));
    return all;
  }

  int m_ends[2] = {-1, -1};
  int m_before = -1;
};

TEST_F(StandardErrorSinkTest, NeverWaitsForAReaderAndCountsWhatWasNotTaken) {
  const auto sink = makePlatformSink();
  for (const char c : {'x', 'y'})
    sink->write(std::string(4000, c));
  for (int i = 0; i < 3; ++i)
    sink->write("lost");
  EXPECT_EQ(readAll(), std::string(4000, 'x') + "\n" + std::string(4000, 'y') + "\n");
  sink->write("again");
  sink->write("and again");
  EXPECT_EQ(readAll(), "3 lines are missing here: nobody took them\nagain\nand again\n");
}

TEST_F(StandardErrorSinkTest, ALongLineIsCutAndHasItsEnd) {
  const auto sink = makePlatformSink();
  sink->write(std::string(10000, 'x'));
  EXPECT_EQ(readAll(), std::string(4095, 'x') + "\n");
}

}  // namespace
}  // namespace corvane
