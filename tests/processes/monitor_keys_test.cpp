#include "tests/processes/keys.h"
#include "tests/processes/scene.h"
#include "tests/processes/wine_host.h"

#include <fstream>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace tests {
namespace {

using ::testing::HasSubstr;
using ::testing::Not;

class MonitorKeys : public ::testing::Test {
 protected:
  void SetUp() override {
    MG_SKIP_WITHOUT_WINDOWS_PROGRAMS();
    m_keys.make("monitor");
    m_scene = std::make_unique<Scene>(m_keys.serverOptions());
    m_wine = std::make_unique<WineHost>(*m_scene);
  }

  bool print() { return m_wine->print("Laser-2 (session 5)", "Report", {"--pattern", "70000"}); }

  const Keys m_keys;
  std::unique_ptr<Scene> m_scene;
  std::unique_ptr<WineHost> m_wine;
};

TEST_F(MonitorKeys, WithItsKeyTheMonitorPrints) {
  auto command = m_scene->clientCommand(5, {"Laser-2"});
  command.insert(command.end(), {"--key", m_keys.make("session-5")});
  ChildProcess client(command);
  client.waitForLine("ready: ");
  m_wine->useServer(m_scene->port(), m_keys.path("monitor"));
  EXPECT_TRUE(print()) << m_wine->diagnosis();
  EXPECT_TRUE(m_scene->content(5, "Report.prn") == WineHost::pattern(70000));
}

TEST_F(MonitorKeys, WithoutItsKeyAJobIsRefusedAndBothLogsSayWhy) {
  EXPECT_FALSE(print());
  EXPECT_THAT(m_wine->diagnosis(), HasSubstr("StartDocPort failed"));
  EXPECT_THAT(m_wine->diagnosis(),
              HasSubstr("the server serves only peers that prove who they are, and this one names no key"));
  EXPECT_THAT(m_wine->diagnosis(), HasSubstr("Failed to connect to localhost."));
  EXPECT_THAT(m_scene->server().waitForLine(" refused: "), HasSubstr("says that it is \"nobody\": it has no key"));
}

TEST_F(MonitorKeys, WithAnUnusableKeyAJobIsRefusedAndTheServerNotEvenDialled) {
  std::ofstream(m_keys.path("odd")) << "odd";
  m_wine->useServer(m_scene->port(), m_keys.path("odd"));
  EXPECT_FALSE(print());
  EXPECT_THAT(m_wine->diagnosis(), HasSubstr("StartDocPort failed"));
  EXPECT_THAT(m_wine->diagnosis(), HasSubstr("a key file holds 64 hexadecimal digits and nothing else, not so Z:\\"));
  m_wine->useServer(m_scene->port(), m_keys.path("none"));
  EXPECT_FALSE(print());
  EXPECT_THAT(m_wine->diagnosis(), HasSubstr("the key file cannot be opened ("));
  EXPECT_THAT(m_scene->server().output(), Not(HasSubstr("connection from")));
}

TEST_F(MonitorKeys, WithAnotherKeyAJobWaitsForTheRightServer) {
  auto command = m_scene->clientCommand(5, {"Laser-2"});
  command.insert(command.end(), {"--key", m_keys.make("session-5")});
  ChildProcess client(command);
  client.waitForLine("ready: ");
  m_wine->useServer(m_scene->port(), m_keys.make("other"));
  const auto host = m_wine->start("port_host.exe", {"--port", "CPP5", "--printer", "Laser-2 (session 5)", "--document",
                                                    "Report", "--pattern", "70000"});
  m_scene->server().waitForLine("says that it is \"monitor\": it proved nothing, as with another key");
  std::filesystem::rename(m_keys.path("monitor"), m_keys.path("other"));
  std::filesystem::copy_file(m_keys.path("other"), m_keys.path("monitor"));
  EXPECT_EQ(host->wait(), 0) << host->output();
  EXPECT_THAT(m_wine->diagnosis(), HasSubstr("the server has another key of \"monitor\" than this side"));
  EXPECT_TRUE(m_scene->content(5, "Report.prn") == WineHost::pattern(70000));
}

}  // namespace
}  // namespace tests
