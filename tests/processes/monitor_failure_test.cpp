#include "tests/processes/scene.h"
#include "tests/processes/wine_host.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>

namespace tests {
namespace {

using ::testing::HasSubstr;
using ::testing::IsEmpty;

class MonitorFailures : public ::testing::Test {
 protected:
  void SetUp() override {
    MG_SKIP_WITHOUT_WINDOWS_PROGRAMS();
    m_scene = std::make_unique<Scene>();
    m_wine = std::make_unique<WineHost>(*m_scene);
  }

  // A job that is far from its end when this returns.
  std::unique_ptr<ChildProcess> startLongJob(ChildProcess& client) {
    auto host = m_wine->start("port_host.exe", {"--port", "CPP5", "--printer", "Laser-2 (session 5)", "--document",
                                                "Report", "--pattern", "4000000000", "--write-size", "4096"});
    client.waitForLine("receiving \"Report\"");
    return host;
  }

  std::unique_ptr<Scene> m_scene;
  std::unique_ptr<WineHost> m_wine;
};

TEST_F(MonitorFailures, AKilledClientPrintsNothing) {
  const auto client = m_scene->startClient(5, {"Laser-2"});
  const auto host = startLongJob(*client);
  client->signal(SIGKILL);
  client->wait();
  EXPECT_EQ(host->wait(), 1);
  EXPECT_THAT(host->output(), HasSubstr("not printed: WritePort failed"));
  m_scene->server().waitForLine("on \"Laser-2 (session 5)\" (session 5) failed: Failed to send print job data: ");
}

TEST_F(MonitorFailures, AServerThatDoesNotKnowThePrinterLearnsOfTheJobThatFailed) {
  EXPECT_FALSE(m_wine->print("Laser-2 (session 5)", "letter", {"--pattern", "70000"}));
  m_scene->server().waitForLine(
      "\"letter\" on \"Laser-2 (session 5)\" (session 5) failed: Failed to get the printer's information: ");
}

TEST_F(MonitorFailures, AKilledServerPrintsNothing) {
  const auto client = m_scene->startClient(5, {"Laser-2"});
  const auto host = startLongJob(*client);
  m_scene->server().signal(SIGKILL);
  m_scene->server().wait();
  EXPECT_EQ(host->wait(), 1);
  EXPECT_THAT(host->output(), HasSubstr("not printed: WritePort failed"));
  client->waitForLine("dropped \"Report\"");
  EXPECT_THAT(m_scene->files(5), IsEmpty());
}

TEST_F(MonitorFailures, AKilledMonitorPrintsNothingAndTheNextJobArrives) {
  const auto client = m_scene->startClient(5, {"Laser-2"});
  const auto host = startLongJob(*client);
  host->signal(SIGKILL);
  host->wait();
  // Wine's server may keep the socket of a process that is killed inside a send, which Windows does not: it ends too.
  m_wine.reset();
  client->waitForLine("dropped \"Report\"");
  EXPECT_THAT(m_scene->files(5), IsEmpty());
  m_wine = std::make_unique<WineHost>(*m_scene);
  EXPECT_TRUE(m_wine->print("Laser-2 (session 5)", "next", {"--pattern", "70000"})) << m_wine->diagnosis();
  EXPECT_TRUE(m_scene->content(5, "next.prn") == WineHost::pattern(70000));
}

TEST_F(MonitorFailures, AFullDiskIsNotPrinted) {
  std::string command = "trap '' XFSZ; ulimit -f 16; exec";
  for (const std::string& word : m_scene->clientCommand(5, {"Laser-2"}))
    command += " '" + word + "'";
  ChildProcess client({"/bin/sh", "-c", command});
  client.waitForLine("ready: ");
  EXPECT_FALSE(m_wine->print("Laser-2 (session 5)", "Report", {"--pattern", "5000000"}));
  EXPECT_THAT(m_wine->diagnosis(), HasSubstr("EndDocPort failed"));
  client.waitForLine("not printed \"Report\": cannot write: File too large");
  EXPECT_THAT(m_scene->files(5), IsEmpty());
}

TEST_F(MonitorFailures, AnUnknownPrinterAndASessionWithoutClientAreRefused) {
  EXPECT_FALSE(m_wine->print("Nobody's", "Report", {"--pattern", "5"}));
  EXPECT_THAT(m_wine->diagnosis(), HasSubstr("StartDocPort failed"));
  EXPECT_THAT(m_wine->diagnosis(),
              HasSubstr("Failed to get the printer's information: Nobody's, print job #1 has failed to print."));
  const auto client = m_scene->startClient(5, {"Laser-2"});
  client->signal(SIGTERM);
  client->wait();
  EXPECT_FALSE(m_wine->print("Laser-2 (session 5)", "Report", {"--pattern", "5"}));
  EXPECT_THAT(m_wine->diagnosis(), HasSubstr("Failed to attach print job to session for Laser-2 (session 5)"));
  m_scene->server().waitForLine(": session 5 has no print client; start one and print again");
}

}  // namespace
}  // namespace tests
