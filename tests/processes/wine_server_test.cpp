#include "tests/processes/wine_server.h"

#include "tests/processes/process_table.h"
#include "tests/processes/wine_host.h"

#include <filesystem>
#include <fstream>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <stdexcept>
#include <stdlib.h>

namespace tests {
namespace {

namespace fs = std::filesystem;

// A prefix that holds nothing but its server.
class WineServerTest : public ::testing::Test {
 protected:
  WineServerTest() {
    std::string pattern = (fs::temp_directory_path() / "mg_prefix_XXXXXX").string();
    if (mkdtemp(pattern.data()) == nullptr) throw std::runtime_error("no folder " + pattern);
    m_prefix = pattern;
  }
  ~WineServerTest() override { fs::remove_all(m_prefix); }
  // Where the Windows programs are wanted, a test without Wine is a failure.
  void SetUp() override { MG_SKIP_WITHOUT_WINDOWS_PROGRAMS(); }

  // What a run leaves that was killed: its server, and nobody who holds the prefix.
  std::unique_ptr<ChildProcess> leave() const {
    setenv("WINEPREFIX", m_prefix.c_str(), 1);
    auto server = std::make_unique<ChildProcess>(std::vector<std::string>{"/usr/lib/wine/wineserver64", "-f", "-p"});
    EXPECT_TRUE(comesTrue([this] { return fs::exists(m_prefix / "wineserver"); }, 20));
    return server;
  }

  fs::path m_prefix;
};

TEST_F(WineServerTest, AServerThatAKilledRunHasLeftIsEndedAndSaid) {
  const auto left = leave();
  ::testing::internal::CaptureStderr();
  const WineServer server(m_prefix);
  EXPECT_EQ(::testing::internal::GetCapturedStderr(),
            "an earlier run was killed and left Wine's server in " + m_prefix.string() + "; it has been ended\n");
  ASSERT_TRUE(waitUntilEnded(left->id(), 20));
  left->wait();
  EXPECT_NE(server.id(), left->id());
  EXPECT_EQ(kill(server.id(), 0), 0);
}

TEST_F(WineServerTest, WithoutOneNothingIsSaid) {
  ::testing::internal::CaptureStderr();
  { const WineServer server(m_prefix); }
  { const WineServer server(m_prefix); }
  EXPECT_EQ(::testing::internal::GetCapturedStderr(), "");
}

TEST_F(WineServerTest, ThePrefixOfARunThatStillLivesIsLeftAlone) {
  const WineServer server(m_prefix);
  EXPECT_THROW(WineServer{m_prefix}, std::runtime_error);
  EXPECT_EQ(kill(server.id(), 0), 0);
}

}  // namespace
}  // namespace tests
