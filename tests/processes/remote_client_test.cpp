// Print clients of other machines: over TLS, through what stands between them and the server.

#include "corvane/records/exception.h"
#include "tests/processes/keys.h"
#include "tests/processes/monitor_peer.h"
#include "tests/processes/process_watch.h"
#include "tests/processes/scene.h"
#include "tests/support/network/forwarder.h"
#include "tests/support/own_listener.h"

#include <algorithm>
#include <cstring>
#include <fstream>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <optional>
#include <signal.h>

namespace tests {
namespace {

using corvane::Identity;
using ::testing::HasSubstr;
using ::testing::MatchesRegex;
using ::testing::Not;

class RemoteClientTest : public ::testing::Test {
 protected:
  explicit RemoteClientTest(const std::vector<std::string>& serverOptions = {}) {
    m_keys.make("monitor");
    m_keys.make("session-5");
    std::vector<std::string> options = m_keys.serverOptions();
    options.insert(options.end(), {"--listen-clients", "127.0.0.1:0", "--listen-clients", "[::1]:0"});
    options.insert(options.end(), serverOptions.begin(), serverOptions.end());
    m_scene.emplace(options);
    m_port = portOf("127.0.0.1");
    m_ipv6Port = portOf("[::1]");
  }

  int portOf(const std::string& host) const {
    const std::string line = m_scene->server().waitForLine("aps listens for print clients on " + host + ":");
    return std::stoi(line.substr(line.rfind(':') + 1));
  }

  std::vector<std::string> clientCommand(const std::string& server, const std::string& key) const {
    auto command = m_scene->clientCommand(5, {"Laser-2"});
    command[2] = server;
    command.insert(command.end(), {"--tls", "--key", m_keys.path(key)});
    return command;
  }
  std::unique_ptr<ChildProcess> startClient(const std::string& server) const {
    auto client = std::make_unique<ChildProcess>(clientCommand(server, "session-5"));
    client->waitForLine("ready: the server knows \"Laser-2 (session 5)\"");
    return client;
  }
  std::string server() const { return "127.0.0.1:" + std::to_string(m_port); }

  std::string keyDigits(const std::string& name) const {
    std::ifstream file(m_keys.path(name));
    std::string digits;
    file >> digits;
    return digits;
  }
  // Prints a document for the session and returns the client's answer.
  int print(const std::string& data) const {
    MonitorPeer peer(m_scene->port(), Identity::monitor(), m_keys.path("monitor"));
    EXPECT_TRUE(peer.attach(L"Laser-2 (session 5)"));
    peer.startJob({L"j", L"", L"Quarterly salaries", L""}, {1, 1, 1, 1});
    for (std::size_t at = 0; at < data.size(); at += 65536)
      peer.writeJob(data.substr(at, 65536));
    return peer.endJob();
  }

  static std::string document(std::size_t size) {
    std::string text;
    for (int line = 0; text.size() < size; ++line)
      text += "line " + std::to_string(line) + " of a confidential text\n";
    return text;
  }

  const Keys m_keys;
  std::optional<Scene> m_scene;
  int m_port = 0;
  int m_ipv6Port = 0;
};

// Every byte goes over the line, so that only its encryption hides it.
class UncompressedClientTest : public RemoteClientTest {
 protected:
  UncompressedClientTest() : RemoteClientTest({"--no-compression"}) {}
};

TEST_F(UncompressedClientTest, AJobArrivesByteForByteAndNobodyOnTheWayReadsAnythingOfIt) {
  Forwarder way(static_cast<std::uint16_t>(m_port));
  const auto client = startClient(way.address());
  const std::string data = document(3000000);
  ASSERT_EQ(print(data), 1);
  EXPECT_TRUE(m_scene->content(5, "Quarterly salaries.txt") == data);
  std::size_t passed = 0;
  for (const std::string& bytes : way.seen()) {
    passed += bytes.size();
    for (const char* secret : {"confidential", "salaries", "Laser"}) {
      EXPECT_EQ(bytes.find(secret), std::string::npos) << secret;
      std::string wide;
      for (const char* c = secret; *c != '\0'; ++c)
        wide += {*c, '\0'};
      EXPECT_EQ(bytes.find(wide), std::string::npos) << secret << " as UTF-16";
    }
    EXPECT_EQ(bytes.find(std::string("corvane")), std::string::npos);
  }
  EXPECT_GT(passed, data.size());
}

TEST_F(RemoteClientTest, TheServerIsReachedOverIpv6AsWell) {
  const auto client = startClient("[::1]:" + std::to_string(m_ipv6Port));
  EXPECT_EQ(print("a page"), 1);
  EXPECT_EQ(m_scene->content(5, "Quarterly salaries.txt"), "a page");
}

TEST_F(RemoteClientTest, AfterAPulledCableTheClientComesBackByItselfAndTheNextJobArrives) {
  Forwarder way(static_cast<std::uint16_t>(m_port));
  const auto client = startClient(way.address());
  way.cut();
  client->waitForLine("the connection to the server is lost");
  client->waitForLine("ready: the server knows");
  EXPECT_EQ(print("a page"), 1);
}

TEST_F(RemoteClientTest, AJobWhoseClientIsKilledOrCutOffInItsMiddleIsNotReportedAsPrinted) {
  Forwarder way(static_cast<std::uint16_t>(m_port));
  for (const bool isKilled : {true, false}) {
    const auto client = startClient(way.address());
    MonitorPeer peer(m_scene->port(), Identity::monitor(), m_keys.path("monitor"));
    ASSERT_TRUE(peer.attach(L"Laser-2 (session 5)"));
    peer.startJob({L"j", L"", L"Cut", L""}, {1, 1, 1, 1});
    peer.writeJob(document(100000));
    client->waitForLine("receiving \"Cut\"");
    if (isKilled) client->signal(SIGKILL);
    way.cut();
    EXPECT_THROW(
        {
          peer.writeJob(document(100000));
          peer.endJob();
        },
        CS_Exception)
        << isKilled;
    if (isKilled) {
      EXPECT_EQ(client->wait(), 256 + SIGKILL);
    } else {
      client->waitForLine("dropped \"Cut\"");
    }
  }
  const auto files = m_scene->files(5);
  EXPECT_EQ(std::count(files.begin(), files.end(), "Cut.txt"), 0);
}

TEST_F(RemoteClientTest, AnotherKeyIsSaidOnBothSidesAndNothingIsServed) {
  m_keys.make("other");
  ChildProcess client(clientCommand(server(), "other"));
  client.waitForLine("the server at " + server() +
                     " is not used: The other side was not authenticated. the server does not take the key of "
                     "\"session-5\": it has another one or none, or what answers there is no application server (");
  EXPECT_THAT(
      m_scene->server().waitForLine(" refused: "),
      MatchesRegex(".*connection from 127.0.0.1:[0-9]+ refused: The other side was not authenticated. The peer "
                   "says that it is \"session-5\": it has another key than the one here; a program of this system "
                   "needs its key from the folder of --keys"));
  client.waitForLine("trying again every 2 s");
}

TEST_F(RemoteClientTest, TheMonitorsKeyOpensNothingFromTheNetwork) {
  ChildProcess client({"/usr/bin/openssl", "s_client", "-connect", server(), "-tls1_3", "-ciphersuites",
                       "TLS_AES_128_GCM_SHA256", "-psk_identity", "monitor", "-psk", keyDigits("monitor"), "-brief"});
  EXPECT_NE(client.wait(), 0);
  m_scene->server().waitForLine("The peer says that it is \"monitor\": there is no such key here");
}

TEST_F(RemoteClientTest, HundredsOfJobsAndOfPeersThatComeAndGoLeaveNothingBehind) {
  const auto client = startClient(server());
  const auto round = [&](int jobs) {
    for (int i = 0; i < jobs; ++i) {
      ASSERT_EQ(print("page " + std::to_string(i)), 1);
      // One that goes in the middle of TLS's handshake, one that speaks no TLS.
      for (const char* said : {"\x16\x03\x01\x02", "GET / HTTP/1.1\r\n\r\n"}) {
        corvane::Socket peer = corvane::Socket::connect("127.0.0.1", static_cast<std::uint16_t>(m_port), false);
        const corvane::Stream::Piece piece(reinterpret_cast<const unsigned char*>(said), std::strlen(said));
        peer.send(std::span(&piece, 1));
      }
    }
  };
  round(50);
  const Held serverBefore = heldBy(m_scene->server().id());
  const Held clientBefore = heldBy(client->id());
  round(300);
  const Held serverAfter = heldAtRest(m_scene->server().id(), serverBefore);
  const Held clientAfter = heldAtRest(client->id(), clientBefore);
  EXPECT_LE(serverAfter.descriptors, serverBefore.descriptors + 2);
  EXPECT_LE(serverAfter.threads, serverBefore.threads + 2);
  EXPECT_LE(clientAfter.descriptors, clientBefore.descriptors);
  EXPECT_LE(clientAfter.threads, clientBefore.threads);
  RecordProperty("server_kilobytes",
                 std::to_string(serverBefore.kilobytes) + "/" + std::to_string(serverAfter.kilobytes));
  RecordProperty("client_kilobytes",
                 std::to_string(clientBefore.kilobytes) + "/" + std::to_string(clientAfter.kilobytes));
}

// The widely used client, with the right key but another will.
class ForeignTlsTest : public RemoteClientTest {
 protected:
  std::vector<std::string> command(const std::vector<std::string>& more, const std::string& key = "session-5") const {
    std::vector<std::string> words = {"/usr/bin/openssl", "s_client",  "-connect", server(),      "-brief",
                                      "-psk_identity",    "session-5", "-psk",     keyDigits(key)};
    words.insert(words.end(), more.begin(), more.end());
    return words;
  }
};

TEST_F(ForeignTlsTest, WithTheRightKeyAHandshakeSucceedsAndWhatIsNoGreetingEndsTheConnection) {
  ChildProcess peer(command({"-tls1_3", "-ciphersuites", "TLS_AES_128_GCM_SHA256"}), ChildProcess::Input::kLines);
  peer.waitForLine("CONNECTION ESTABLISHED");
  peer.waitForLine("Protocol version: TLSv1.3");
  peer.waitForLine("Ciphersuite: TLS_AES_128_GCM_SHA256");
  peer.say("What does the server do with a line of text that is no greeting?");
  m_scene->server().waitForLine(" refused: ");
  peer.wait();
}

TEST_F(ForeignTlsTest, AnotherKeyAnOlderVersionAndAnotherCipherAreRefused) {
  m_keys.make("other");
  const std::vector<std::string> tls13 = {"-tls1_3", "-ciphersuites", "TLS_AES_128_GCM_SHA256"};
  for (const auto& words : {command(tls13, "other"), command({"-tls1_2", "-cipher", "PSK-AES128-GCM-SHA256"}),
                            command({"-tls1_3", "-ciphersuites", "TLS_AES_256_GCM_SHA384"})}) {
    ChildProcess peer(words);
    EXPECT_NE(peer.wait(), 0);
    EXPECT_THAT(peer.output(), Not(HasSubstr("ESTABLISHED")));
    m_scene->server().waitForLine(" refused: ");
  }
  const auto client = startClient(server());
  EXPECT_EQ(print("a page"), 1);
}

TEST_F(ForeignTlsTest, AServerWithACertificateInsteadOfTheKeyGetsNothingFromTheClient) {
  const std::string folder = m_scene->folder().string();
  ChildProcess make({"/usr/bin/openssl", "req", "-x509", "-newkey", "rsa:2048", "-nodes", "-subj", "/CN=127.0.0.1",
                     "-keyout", folder + "/k.pem", "-out", folder + "/c.pem"});
  ASSERT_EQ(make.wait(), 0);
  const std::string host = OwnListener::host();
  ChildProcess foreign({"/usr/bin/openssl", "s_server", "-accept", host + ":0", "-tls1_3", "-key", folder + "/k.pem",
                        "-cert", folder + "/c.pem"},
                       ChildProcess::Input::kLines);
  const std::string line = foreign.waitForLine("ACCEPT " + host + ":");
  const std::string address = host + line.substr(line.rfind(':'));
  ChildProcess client(clientCommand(address, "session-5"));
  client.waitForLine("the server at " + address + " is not used: The other side was not authenticated. ");
  client.signal(SIGTERM);
  EXPECT_EQ(client.wait(), 0);
  EXPECT_THAT(foreign.output(), Not(HasSubstr("corvane")));
  foreign.signal(SIGTERM);
  foreign.wait();
}

TEST_F(RemoteClientTest, PeersThatSayNothingTakeNoPlaceFromThoseOfThisMachine) {
  corvane::initializeNetwork();
  std::vector<corvane::Socket> silent;
  for (int i = 0; i < 300; ++i)
    silent.push_back(corvane::Socket::connect("127.0.0.1", static_cast<std::uint16_t>(m_port), false));
  m_scene->server().waitForLine("it had asked for nothing yet, and its place is needed for one that came later");
  const auto client = startClient(server());
  EXPECT_EQ(print("a page"), 1);
}

TEST_F(RemoteClientTest, APlainClientAtThePortForOthersAndAnEncryptedOneAtTheOwnPortAreToldWhatIsWrong) {
  auto plain = clientCommand(server(), "session-5");
  plain.erase(std::find(plain.begin(), plain.end(), "--tls"));
  ChildProcess first(plain);
  first.waitForLine("is away: The connection could not be made. ");
  m_scene->server().waitForLine(
      "the other side does not speak TLS 1.3: wrong version number; a print client reaches this port with --tls");
  ChildProcess second(clientCommand("127.0.0.1:" + std::to_string(m_scene->port()), "session-5"));
  second.waitForLine("is away: ");
  m_scene->server().waitForLine(
      "what came is TLS, which another port is for; the program that made it does not belong to this system");
}

}  // namespace
}  // namespace tests
