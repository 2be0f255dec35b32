// Programs that are stopped, as by a sleeping machine or a dead line: the system goes on taking bytes for them.

#include "corvane/records/exception.h"
#include "tests/processes/administration_peer.h"
#include "tests/processes/monitor_peer.h"
#include "tests/processes/scene.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>

namespace tests {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;

const std::vector<std::string> kFast = {"--pace", "50"};  // half a second of silence instead of 25

std::vector<std::string> fastClient(const Scene& scene) {
  std::vector<std::string> command = scene.clientCommand(5, {"Laser-2"});
  command.insert(command.end(), kFast.begin(), kFast.end());
  return command;
}

// A program that stands still until the object dies; the program outlives it.
class Stopped {
 public:
  explicit Stopped(const ChildProcess& program) : m_program(program) { m_program.signal(SIGSTOP); }
  ~Stopped() { m_program.signal(SIGCONT); }
  Stopped(const Stopped&) = delete;
  Stopped& operator=(const Stopped&) = delete;

 private:
  const ChildProcess& m_program;
};

TEST(Silence, AStoppedClientIsKnownItsJobEndsAndTheNextClientTakesItsSession) {
  Scene scene({"--client-wait", "0", "--pace", "50"});
  ChildProcess client(fastClient(scene));
  client.waitForLine("ready: ");
  MonitorPeer peer(scene.port());
  ASSERT_TRUE(peer.attach(kLaserPrinter));
  peer.startJob({L"Laser-2 - Job #17", L"Laser-2", L"Report", L"RAW"}, {1, 1, 1, 1});
  peer.writeJob("the beginning");
  client.waitForLine("receiving \"Report\"");
  {
    const Stopped stopped(client);
    try {
      peer.endJob();
      ADD_FAILURE() << "a client that stands still has answered";
    } catch (const CS_Exception& failure) {
      EXPECT_THAT(failure.detail(), HasSubstr(L"nothing was heard from the other side for 500 ms"));
    }
    scene.server().waitForLine("session 5: the print client has gone");
    scene.server().waitForLine("ended: nothing was heard from the other side for 500 ms");
    AdministrationPeer administration(scene.port());
    EXPECT_THAT(administration.status().sessions, ElementsAre(L"5 away: Laser-2 (session 5)"));

    ChildProcess next(fastClient(scene));
    next.waitForLine("ready: ");
    MonitorPeer other(scene.port());
    ASSERT_TRUE(other.attach(kLaserPrinter));
    other.startJob({L"Laser-2 - Job #18", L"Laser-2", L"Letter", L"RAW"}, {1, 1, 1, 1});
    other.writeJob("all of it");
    EXPECT_EQ(other.endJob(), 1);
  }
  client.waitForLine("the connection to the server is lost");
}

TEST(Silence, AStoppedServerIsKnownToItsClientWhichComesBackWhenItGoesOn) {
  Scene scene({"--pace", "50"});
  ChildProcess client(fastClient(scene));
  client.waitForLine("ready: ");
  {
    const Stopped stopped(scene.server());
    client.waitForLine("the connection to the server is lost: nothing was heard from the other side for 500 ms");
  }
  client.waitForLine("ready: ");
}

}  // namespace
}  // namespace tests
