// How somebody becomes a print client: an invitation, and nothing to type afterwards.

#include "corvane/base/text.h"
#include "tests/processes/administration_peer.h"
#include "tests/processes/keys.h"
#include "tests/processes/monitor_peer.h"
#include "tests/processes/scene.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <optional>
#include <signal.h>
#include <tuple>

namespace tests {
namespace {

using corvane::Identity;
using ::testing::HasSubstr;
using ::testing::MatchesRegex;
using ::testing::Not;

// With keys, and reached by print clients of other machines.
std::vector<std::string> optionsFor(const Keys& keys) {
  keys.make("monitor");
  std::vector<std::string> options = keys.serverOptions();
  options.insert(options.end(), {"--listen-clients", "127.0.0.1:0"});
  return options;
}

// Where they reach it.
std::string addressOf(const Scene& scene) {
  const std::string line = scene.server().waitForLine("aps listens for print clients on ");
  return line.substr(line.rfind(' ') + 1);
}

class InvitationProcessTest : public ::testing::Test {
 protected:
  InvitationProcessTest() {
    m_scene.emplace(optionsFor(m_keys));
    m_address = addressOf(*m_scene);
  }

  // The line of an invitation to session 5.
  std::string invite(const std::vector<std::string>& more = {}) const {
    std::vector<std::string> command = {Scene::program("aps"), "invite", "5", "--address", m_address};
    const auto keys = m_keys.serverOptions();
    command.insert(command.end(), keys.begin(), keys.end());
    command.insert(command.end(), more.begin(), more.end());
    ChildProcess process(command);
    EXPECT_EQ(process.wait(), 0) << process.output();
    const std::string said = process.output();
    const std::size_t at = said.find("mgprint://");
    return at == std::string::npos ? said : said.substr(at, said.find('\n', at) - at);
  }

  // A print client of somebody with a home of that name.
  std::vector<std::string> command(const std::string& home, const std::vector<std::string>& options = {}) const {
    std::vector<std::string> words = {"/usr/bin/env",
                                      "XDG_CONFIG_HOME=" + (m_scene->folder() / home).string(),
                                      Scene::program("printclient"),
                                      "--printer",
                                      "Laser-2",
                                      "--output",
                                      m_scene->output(5).string()};
    words.insert(words.end(), options.begin(), options.end());
    return words;
  }
  std::unique_ptr<ChildProcess> start(const std::string& home, const std::vector<std::string>& options = {}) const {
    auto client = std::make_unique<ChildProcess>(command(home, options));
    client->waitForLine("ready: the server knows \"Laser-2 (session 5)\"");
    return client;
  }
  // What somebody whose client ends by itself is told.
  std::string refusal(const std::string& home, const std::vector<std::string>& options) const {
    ChildProcess client(command(home, options));
    EXPECT_EQ(client.wait(), 1);
    return client.output();
  }

  void expectToPrint(const std::string& title, const std::string& printer = "Laser-2") const {
    MonitorPeer peer(m_scene->port(), Identity::monitor(), m_keys.path("monitor"));
    EXPECT_TRUE(peer.attach(corvane::fromUtf8(printer + " (session 5)")));
    peer.startJob({L"j", L"", std::wstring(title.begin(), title.end()), L""}, {1, 1, 1, 1});
    peer.writeJob("a page");
    EXPECT_EQ(peer.endJob(), 1);
    EXPECT_EQ(m_scene->content(5, title + ".txt"), "a page");
  }

  const Keys m_keys;
  std::optional<Scene> m_scene;
  std::string m_address;
};

TEST_F(InvitationProcessTest, IsAllThatAPersonNeedsAndNothingIsNeededAfterwards) {
  const std::string line = invite();
  EXPECT_THAT(line, MatchesRegex("mgprint://" + m_address + "/session-5/[0-9a-f]{32}"));
  {
    const auto client = start("anna", {"--invitation", line});
    EXPECT_THAT(client->output(),
                HasSubstr("the invitation is redeemed: printclient knows session 5 of " + m_address + " from now on"));
    m_scene->server().waitForLine("session 5: the invitation was redeemed from 127.0.0.1:");
    expectToPrint("first");
  }
  const auto client = start("anna");
  expectToPrint("second");
}

TEST_F(InvitationProcessTest, IsRedeemedOnceAndSomebodyElseIsToldWhatToDo) {
  const std::string line = invite();
  const auto client = start("anna", {"--invitation", line});
  EXPECT_EQ(refusal("berta", {"--invitation", line}),
            "printclient: the server at " + m_address +
                " does not take the invitation: it was used, is older than ten minutes or was replaced by a newer one; "
                "ask for another one\n");
  expectToPrint("still anna");
}

TEST_F(InvitationProcessTest, ToTheNextUserTakesTheSessionFromTheLastOneAtOnce) {
  const auto anna = start("anna", {"--invitation", invite()});
  const std::string line = invite();
  m_scene->server().waitForLine(" closed: the key of session-5 is not the one any more that it came with");
  anna->waitForLine("the connection to the server is lost");
  anna->waitForLine("the server does not take the key of \"session-5\"");
  const auto berta = start("berta", {"--invitation", line});
  expectToPrint("for berta");
  EXPECT_THAT(anna->output(), Not(HasSubstr("for berta")));
}

TEST_F(InvitationProcessTest, ToTheSameUserLeavesTheKeyAsItIs) {
  {
    const auto desk = start("desk", {"--invitation", invite()});
    invite({"--same-user"});
    expectToPrint("from the desk");
  }
  const auto sofa = start("sofa", {"--invitation", invite({"--same-user"})});
  expectToPrint("from the sofa");
}

TEST_F(InvitationProcessTest, OfSeveralServersMakesOneClientServeThemAll) {
  const Keys otherKeys;
  Scene other(optionsFor(otherKeys));
  const std::string otherAddress = addressOf(other);
  AdministrationPeer otherTool(other.port(), otherKeys.path("monitor"));
  const auto invitation = otherTool.invite(7, false, L"");
  ASSERT_TRUE(invitation.first);
  ChildProcess client(command("anna", {"--invitation", invite(), "--invitation", corvane::toUtf8(invitation.second)}));
  const std::string here = "Laser-2 on " + m_address, there = "Laser-2 on " + otherAddress;
  client.waitForLines({m_address + ": ready: the server knows \"" + here + " (session 5)\"",
                       otherAddress + ": ready: the server knows \"" + there + " (session 7)\""});
  expectToPrint("from the one", here);
  MonitorPeer peer(other.port(), Identity::monitor(), otherKeys.path("monitor"));
  const std::wstring printer = corvane::fromUtf8(there);
  EXPECT_TRUE(peer.attach(printer + L" (session 7)"));
  peer.startJob({L"j", L"", L"from the other", L""}, {1, 1, 1, 1});
  peer.writeJob("another page");
  EXPECT_EQ(peer.endJob(), 1);
  EXPECT_EQ(m_scene->content(5, "from the other.txt"), "another page");
  client.waitForLine(otherAddress + ": receiving \"from the other\"");
  client.waitForLine(otherAddress + ": printed \"from the other\": 12 bytes to ");
  {
    MonitorPeer leaving(other.port(), Identity::monitor(), otherKeys.path("monitor"));
    EXPECT_TRUE(leaving.attach(printer + L" (session 7)"));
    leaving.startJob({L"j", printer, L"a cut one", L""}, {1, 1, 1, 1});
    client.waitForLine(otherAddress + ": receiving \"a cut one\" for \"" + there + "\"");
  }
  client.waitForLine(otherAddress +
                     ": dropped \"a cut one\": the job was cut after 0 bytes, before its end (printer "
                     "\"" +
                     there + "\", session 7); ");
  other.server().signal(SIGTERM);
  client.waitForLine(otherAddress + ": the connection to the server is lost");
  EXPECT_EQ(other.server().wait(), 0);  // a second stop would end it at once
  expectToPrint("from the one that is still there", here);
}

TEST_F(InvitationProcessTest, OfSeveralServersLetsEachPrintersJobsGoWhereThatPrinterIs) {
  const Keys otherKeys;
  Scene other(optionsFor(otherKeys));
  const std::string otherAddress = addressOf(other);
  AdministrationPeer otherTool(other.port(), otherKeys.path("monitor"));
  const auto invitation = otherTool.invite(7, false, L"");
  ASSERT_TRUE(invitation.first);
  ChildProcess client(command("anna", {"--invitation", invite(), "--invitation", corvane::toUtf8(invitation.second),
                                       "--printer", "Desk,uri=ipp://localhost:1/ipp/print"}));
  client.waitForLines({m_address + ": ready: the server knows \"Laser-2 on " + m_address +
                           " (session 5)\", \"Desk on " + m_address + " (session 5)\"",
                       otherAddress + ": ready: the server knows \"Laser-2 on " + otherAddress +
                           " (session 7)\", \"Desk on " + otherAddress + " (session 7)\""});
  for (const auto& [scene, keys, address] : {std::tuple(&*m_scene, &m_keys, m_address + " (session 5)"),
                                             std::tuple(&other, &otherKeys, otherAddress + " (session 7)")}) {
    MonitorPeer peer(scene->port(), Identity::monitor(), keys->path("monitor"));
    const std::wstring name = corvane::fromUtf8("Desk on " + address);
    EXPECT_TRUE(peer.attach(name));
    peer.startJob({L"j", name.substr(0, name.find(L" (")), L"for nobody", L""}, {1, 1, 1, 1});
    peer.writeJob("a page");
    EXPECT_EQ(peer.endJob(), -6) << address;  // this printer cannot be had, and the folder is not its place
  }
}

TEST_F(InvitationProcessTest, ComesInAFileAsWell) {
  const std::string file = (m_scene->folder() / "for anna").string();
  invite({"--file", file});
  const auto client = start("anna", {"--invitation", file});
  expectToPrint("a letter");
}

TEST_F(InvitationProcessTest, CanBeMadeByAnAdministrationToolAsWell) {
  AdministrationPeer tool(m_scene->port(), m_keys.path("monitor"));
  const auto [isMade, line] = tool.invite(5, false, L"");
  ASSERT_TRUE(isMade) << corvane::toUtf8(line);
  EXPECT_THAT(corvane::toUtf8(line), MatchesRegex("mgprint://" + m_address + "/session-5/[0-9a-f]{32}"));
  m_scene->server().waitForLine("session 5: somebody is invited");
  const auto client = start("anna", {"--invitation", corvane::toUtf8(line)});
  expectToPrint("a letter");
  EXPECT_EQ(tool.invite(5, true, L"[::1]:7").second.substr(0, 26), L"mgprint://[::1]:7/session-");
  EXPECT_EQ(tool.invite(5, true, L"here"),
            std::make_pair(false, std::wstring(L"\"here\" is not host and port; an example is 127.0.0.1:4711")));
  EXPECT_EQ(tool.invite(0, true, L""), std::make_pair(false, std::wstring(L"there is no such session")));
}

TEST(Invitation, IsNotMadeByAServerThatNobodyReachesFromElsewhere) {
  Scene without;
  EXPECT_EQ(
      AdministrationPeer(without.port()).invite(5, false, L"h:1"),
      std::make_pair(false, std::wstring(L"aps runs without keys, and so takes no print clients of other machines: "
                                         L"start it with --keys and --listen-clients")));
  const Keys keys;
  keys.make("monitor");
  auto options = keys.serverOptions();
  options.insert(options.end(), {"--listen-clients", "0.0.0.0:0"});
  Scene everywhere(options);
  EXPECT_EQ(
      AdministrationPeer(everywhere.port(), keys.path("monitor")).invite(5, false, L""),
      std::make_pair(false, std::wstring(L"aps does not know where print clients of other machines reach it: say so "
                                         L"with --address, or start it with --public-address")));
}

TEST_F(InvitationProcessTest, WhatIsNoInvitationIsSaidWithWhatOneLooksLike) {
  EXPECT_THAT(
      refusal("anna", {"--invitation", "/no/such/file"}),
      HasSubstr("--invitation \"/no/such/file\" is neither an invitation, which begins with mgprint://, nor a file "
                "that can be read"));
  EXPECT_THAT(refusal("anna", {"--invitation", invite().substr(0, 60)}), HasSubstr("this is no invitation: "));
  EXPECT_EQ(
      refusal("anna", {}),
      "printclient: no server is known: give what an administrator gave you with --invitation, or the number of the "
      "session with --session (and --server)\n");
}

TEST_F(InvitationProcessTest, IsNotUsedUpWhereTheKeyCannotBeKept) {
  const std::string line = invite();
  std::filesystem::create_directories(m_scene->folder() / "anna" / "printclient" / "trial.key");
  EXPECT_THAT(refusal("anna", {"--invitation", line}),
              MatchesRegex("printclient: the key file cannot be replaced .*trial.key; the invitation was not used\n"));
  const auto client = start("berta", {"--invitation", line});
}

TEST_F(InvitationProcessTest, ToAServerThatIsNotThereCanBeTriedAgain) {
  const std::string line = invite();
  const std::string gone = "mgprint://127.0.0.1:1/session-5/" + line.substr(line.rfind('/') + 1);
  EXPECT_THAT(
      refusal("anna", {"--invitation", gone}),
      HasSubstr("the invitation was not redeemed at 127.0.0.1:1: The connection could not be made. nobody answers"));
  const auto client = start("anna", {"--invitation", line});
}

}  // namespace
}  // namespace tests
