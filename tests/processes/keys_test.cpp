#include "tests/processes/keys.h"

#include "corvane/components/component_server.h"
#include "corvane/components/in_request.h"
#include "corvane/components/out_request.h"
#include "corvane/records/exception.h"
#include "corvane/records/messages.h"
#include "protocol/names.h"
#include "tests/processes/monitor_peer.h"
#include "tests/processes/scene.h"
#include "tests/support/connection_pair.h"

#include <fstream>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/stat.h>

namespace tests {
namespace {

using corvane::Identity;
using ::testing::HasSubstr;
using ::testing::MatchesRegex;
using ::testing::Not;

class KeysTest : public ::testing::Test {
 protected:
  KeysTest() {
    m_keys.make("monitor");
    m_keys.make("session-5");
    m_keys.make("session-6");
  }

  std::vector<std::string> clientCommand(int session, const std::string& key) const {
    auto command = m_scene.clientCommand(session, {"Laser-2"});
    command.insert(command.end(), {"--key", m_keys.path(key)});
    return command;
  }
  std::unique_ptr<ChildProcess> startClient(int session) const {
    auto client = std::make_unique<ChildProcess>(clientCommand(session, "session-" + std::to_string(session)));
    client->waitForLine("ready: ");
    return client;
  }

  // What the server answers a print client that registers a session.
  std::wstring refusalOf(const Identity& identity, const std::string& key, int session) const {
    CS_ComponentServer::initialize(0, 0);
    CS_ComponentServer* server = CS_ComponentServer::getServer();
    server->registerClass(protocol::kSessionClientClass, new corvane::ComponentClass<CS_Component>(protocol::kVersion));
    const CS_RCPtr<CS_Connection> connection = CS_Connection::create();
    connection->useKey(identity, m_keys.path(key));
    connection->connect(L"localhost", m_scene.port(), CS_Connection::kDirect, false);
    CS_OutRequest request(makeComponent(*connection, protocol::kSessionClientClass, protocol::kSessionHostClass), 20);
    request.writeInt(session);
    request.writeInt(1);
    for (int i = 0; i < 8; ++i) {
      request.writeBoolean(i == 0);
      if (i == 0) request.writeUTF(L"Laser-2");
    }
    request.writeBoolean(false);
    request.writeInt(1);
    request.writeInt(0);
    CS_ClassVersionMap versions;
    server->copyRegisteredClassVersionMap(versions);
    versions >> request.getChannel();
    CS_InRequest reply(request);
    std::wstring refusal;
    try {
      request.execute(reply, 60000);
      if (!reply.readBoolean()) refusal = reply.readUTF();
    } catch (const CS_Exception& exception) {
      refusal = exception.detail();
    }
    CS_Connection::destroy(connection, true);
    return refusal;
  }

  const Keys m_keys;
  Scene m_scene{m_keys.serverOptions()};
};

TEST_F(KeysTest, TheMonitorAndTwoSessionsPrintWithTheirKeys) {
  m_scene.server().waitForLine("peers must prove that they have their key in ");
  const auto first = startClient(5);
  const auto second = startClient(6);
  for (const int session : {5, 6}) {
    MonitorPeer peer(m_scene.port(), Identity::monitor(), m_keys.path("monitor"));
    EXPECT_TRUE(peer.attach(L"Laser-2 (session " + std::to_wstring(session) + L")"));
    peer.startJob({L"j", L"", L"Report", L""}, {1, 1, 1, 1});
    peer.writeJob("for " + std::to_string(session));
    EXPECT_EQ(peer.endJob(), 1);
    peer.record(77, L"spoolsv", 0x4000000a, L"a record");
    m_scene.server().waitForLine("failure: a record");
    EXPECT_EQ(m_scene.content(session, "Report.txt"), "for " + std::to_string(session));
  }
}

TEST_F(KeysTest, ASessionsKeyRegistersNoOtherSession) {
  EXPECT_EQ(refusalOf(Identity::session(5), "session-5", 6),
            L"this print client has the key of session-5, not of session-6");
  m_scene.server().waitForLine(
      "session 6: a print client was refused: this print client has the key of session-5, not of session-6");
  ChildProcess client(clientCommand(6, "session-5"));
  client.waitForLine("is not used: The other side was not authenticated. the server has another key of \"session-6\"");
  EXPECT_THAT(
      m_scene.server().waitForLine(" refused: "),
      MatchesRegex(".*connection from 127.0.0.1:[0-9]+ refused: The other side was not authenticated. Process " +
                   std::to_string(client.id()) + " says that it is \"session-6\": it proved nothing, .*"));
  EXPECT_EQ(refusalOf(Identity::session(5), "session-5", 5), L"");
}

TEST_F(KeysTest, ASessionsKeyMakesNoneOfTheMonitorsComponents) {
  const auto client = startClient(5);
  MonitorPeer peer(m_scene.port(), Identity::session(5), m_keys.path("session-5"));
  const auto refusal = [](auto&& action) {
    try {
      action();
    } catch (const CS_Exception& exception) {
      return std::wstring(exception.detail());
    }
    return std::wstring(L"nothing was thrown");
  };
  const std::wstring end = L" are for the monitor only, and this peer is session-5";
  const std::wstring port = L"components of the class Quillfern::NTR::PortMonitorClient" + end;
  EXPECT_EQ(refusal([&] { peer.attach(kLaserPrinter); }), port);
  EXPECT_EQ(refusal([&] { peer.printerInfo(kLaserPrinter); }), port);
  EXPECT_EQ(refusal([&] { peer.printerList(6); }), port);
  EXPECT_EQ(refusal([&] { peer.launch(L"notepad.exe", L"", nullptr); }), port);
  EXPECT_EQ(refusal([&] { peer.record(77, L"spoolsv", 1, L"a record"); }), L"the server does not take records");
  for (const char* name :
       {"ComponentServer::BridgeRouter", "NTR::PortMonitorClient", "ComponentServer::ProgramMonitor_s"}) {
    EXPECT_THAT(m_scene.server().waitForLine(name),
                MatchesRegex(".* connection from 127.0.0.1:[0-9]+, session-5: refused: components of the class "
                             "Quillfern::" +
                             std::string(name) + " are for the monitor only, and this peer is session-5"));
  }
}

TEST_F(KeysTest, TheMonitorsKeyRegistersNoSession) {
  EXPECT_EQ(refusalOf(Identity::monitor(), "monitor", 5),
            L"components of the class Quillfern::NTR::SessionHost are for sessions only, and this peer is monitor");
}

TEST_F(KeysTest, PeersWithoutAKeyAreToldSoAndServedNothing) {
  try {
    MonitorPeer peer(m_scene.port());
    FAIL() << "it has no key";
  } catch (const CS_Exception& exception) {
    EXPECT_EQ(exception.number(), corvane::kKeyNeeded);
    EXPECT_STREQ(exception.detail(),
                 L"the server serves only peers that prove who they are, and this one names no key");
  }
  EXPECT_THAT(m_scene.server().waitForLine(" refused: "), HasSubstr(" says that it is \"nobody\": it has no key"));
  ChildProcess client(m_scene.clientCommand(5, {"Laser-2"}));
  EXPECT_EQ(client.wait(), 1);
  EXPECT_THAT(client.output(), HasSubstr("is not used: This side needs a key to prove who it is. the server serves"));
}

TEST_F(KeysTest, ASessionThatIsAddedWhileTheServerRunsIsServed) {
  const Keys other;
  other.make("session-7");
  auto command = m_scene.clientCommand(7, {"Laser-2"});
  command.insert(command.end(), {"--key", other.path("session-7")});
  ChildProcess client(command);
  client.waitForLine("is not used: ");
  m_scene.server().waitForLine("\"session-7\": the key file cannot be opened (No such file or directory): ");
  // In one step, so that the server never sees half a file.
  std::filesystem::copy_file(other.path("session-7"), m_keys.path("new"));
  std::filesystem::rename(m_keys.path("new"), m_keys.path("session-7"));
  client.waitForLine("ready: ");
}

TEST_F(KeysTest, AnExchangedKeyIsGoodForTheNextConnection) {
  auto client = startClient(5);
  std::filesystem::remove(m_keys.path("session-5"));
  m_keys.make("session-5");
  m_scene.restartServer();
  client->waitForLine("ready: ");
}

TEST_F(KeysTest, APrintClientWithAnUnusableKeyDoesNotStart) {
  std::ofstream(m_keys.path("odd")) << "odd";
  ::chmod(m_keys.path("odd").c_str(), 0600);
  ChildProcess odd(clientCommand(5, "odd"));
  EXPECT_EQ(odd.wait(), 1);
  EXPECT_THAT(odd.output(), HasSubstr("a key file holds 64 hexadecimal digits and nothing else, not so "));
  ::chmod(m_keys.path("session-5").c_str(), 0640);
  ChildProcess readable(clientCommand(5, "session-5"));
  EXPECT_EQ(readable.wait(), 1);
  EXPECT_THAT(readable.output(), HasSubstr("others may use the key file; make it private with: chmod 600 "));
}

TEST(ServerWithKeys, IsReachedAtAnIpv6AddressToo) {
  const Keys keys;
  const std::string key = keys.make("session-5");
  ChildProcess server(Scene::serverCommand("[::1]:0", keys.serverOptions()));
  const std::string line = server.waitForLine("aps listens on [::1]:");
  const std::string address = line.substr(line.find("[::1]:"));
  const Scene scene;
  auto command = scene.clientCommand(5, {"Laser-2"});
  command[2] = address;
  command.insert(command.end(), {"--key", key});
  ChildProcess client(command);
  client.waitForLine("ready: ");
  server.signal(SIGTERM);
  EXPECT_EQ(server.wait(), 0);
  client.waitForLine("the server at " + address + " is away: ");
}

TEST(ServerWithoutKeys, SaysThatPeersAreNotAuthenticatedAndIsNoServerForPeersWithKeys) {
  const Keys keys;
  Scene scene;
  scene.server().waitForLine(
      "peers are not authenticated: every user of this machine can act as the monitor or as any "
      "session; start aps without --no-keys to change that");
  auto command = scene.clientCommand(5, {"Laser-2"});
  command.insert(command.end(), {"--key", keys.make("session-5")});
  ChildProcess client(command);
  client.waitForLine("the server proves no key of \"session-5\": it runs without keys, or another program");
  client.waitForLine("trying again in ");
  EXPECT_THROW(MonitorPeer(scene.port(), Identity::monitor(), keys.make("monitor")), CS_Exception);
}

// The folder of the package is not here, unless the package is.
TEST(ServerWithKeys, DoesNotServeWithoutThemUnlessThatIsTyped) {
  if (std::filesystem::exists("/var/lib/aps/keys")) GTEST_SKIP() << "aps is installed on this machine";
  ChildProcess server({Scene::program("aps"), "--listen", "127.0.0.1:0"});
  EXPECT_EQ(server.wait(), 1);
  EXPECT_THAT(
      server.output(),
      AllOf(HasSubstr("aps: it serves only peers that prove who they are, by keys in /var/lib/aps/keys, and that "
                      "folder cannot be used: No such file or directory: /var/lib/aps/keys; make it and the keys "
                      "in it (mgprintmon install; aps --new-key FILE), name another folder with --keys, or type "
                      "--no-keys to serve everybody on this machine\n"),
            ::testing::Not(HasSubstr("listens"))));
}

TEST(ServerWithKeys, DoesNotStartWhereKeysCannotBeTrusted) {
  const Keys keys;
  const auto start = [](const std::string& folder) {
    ChildProcess server({Scene::program("aps"), "--listen", "127.0.0.1:0", "--keys", folder});
    EXPECT_EQ(server.wait(), 1);
    return server.output();
  };
  EXPECT_THAT(start(keys.path("none")), HasSubstr("the folder of --keys cannot be used: No such file or directory: "));
  const std::string open = keys.path("open");
  std::filesystem::create_directory(open);
  ::chmod(open.c_str(), 0777);
  EXPECT_THAT(start(open), HasSubstr("others may put keys into it; make it private with: chmod go-rwx "));
}

TEST(NewKey, IsWrittenOnceForItsOwnerAlone) {
  const Keys keys;
  const std::string file = keys.path("monitor");
  ChildProcess maker({Scene::program("aps"), "--new-key", file});
  EXPECT_EQ(maker.wait(), 0);
  EXPECT_EQ(maker.output(), "a new key is in " + file + "\n");
  std::ifstream in(file);
  const std::string content{std::istreambuf_iterator<char>(in), {}};
  EXPECT_THAT(content, MatchesRegex("[0-9a-f]+\n"));
  EXPECT_EQ(content.size(), 65u);
  struct stat facts {};
  ASSERT_EQ(::stat(file.c_str(), &facts), 0);
  EXPECT_EQ(facts.st_mode & 0777, 0600u);
  ChildProcess again({Scene::program("aps"), "--new-key", file});
  EXPECT_EQ(again.wait(), 1);
  EXPECT_EQ(again.output(), "aps: the key file cannot be made (File exists): " + file + "\n");
}

}  // namespace
}  // namespace tests
