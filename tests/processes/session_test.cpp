#include "corvane/net/socket.h"
#include "corvane/records/exception.h"
#include "corvane/records/messages.h"
#include "tests/processes/monitor_peer.h"
#include "tests/processes/scene.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <unistd.h>

namespace tests {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

TEST(Sessions, APrinterIsDescribedAsItsClientBroughtIt) {
  Scene scene;
  const auto client = scene.startClient(
      5, {"Laser-2,driver=Universal Remote Printer,comment=2nd floor,format=pdf,default=yes,resolution=600", "Ink"});
  MonitorPeer peer(scene.port());
  const auto laser = peer.printerInfo(L"Laser-2 (session 5)");
  ASSERT_TRUE(laser);
  EXPECT_EQ(laser->texts[0], L"Laser-2");
  EXPECT_EQ(laser->texts[1], L"2nd floor");
  EXPECT_EQ(laser->texts[3], L"Universal Remote Printer");
  for (const std::size_t absent : {2, 4, 5, 6, 7})
    EXPECT_FALSE(laser->texts[absent]) << absent;
  EXPECT_TRUE(laser->flag);
  EXPECT_EQ(laser->value, 3);
  EXPECT_EQ(laser->secondValue, 600);
  const auto ink = peer.printerInfo(L"Ink (session 5)");
  ASSERT_TRUE(ink);
  EXPECT_FALSE(ink->texts[3]);
  EXPECT_FALSE(ink->flag);
  EXPECT_EQ(ink->value, 1);
  EXPECT_EQ(ink->secondValue, 0);
}

TEST(Sessions, AListHoldsTheSessionsOwnPrintersOnly) {
  Scene scene;
  const auto first = scene.startClient(5, {"Laser-2", "Ink"});
  const auto second = scene.startClient(6, {"Plotter"});
  MonitorPeer peer(scene.port());
  EXPECT_THAT(peer.printerList(5), ElementsAre(L"Laser-2 (session 5)", L"Ink (session 5)"));
  EXPECT_THAT(peer.printerList(6), ElementsAre(L"Plotter (session 6)"));
  EXPECT_THAT(peer.printerList(7), IsEmpty());
}

TEST(Sessions, AnUnknownPrinterIsRefusedWithTheCauseInTheLog) {
  Scene scene;
  MonitorPeer peer(scene.port());
  EXPECT_FALSE(peer.printerInfo(L"Nobody's"));
  scene.server().waitForLine("printer \"Nobody's\" was requested by process " + std::to_string(getpid()) +
                             ": no session has a printer of that name");
  EXPECT_FALSE(peer.attach(L"Nobody's"));
  scene.server().waitForLine(
      "job refused: printer \"Nobody's\", process 1234: no session has a printer of that name; start");
}

TEST(Sessions, WithoutItsClientASessionKeepsItsPrintersAndRefusesJobs) {
  Scene scene;
  auto client = scene.startClient(5, {"Laser-2"});
  client->signal(SIGTERM);
  EXPECT_EQ(client->wait(), 0);
  scene.server().waitForLine("session 5: the print client has gone");
  MonitorPeer peer(scene.port());
  EXPECT_TRUE(peer.printerInfo(L"Laser-2 (session 5)"));
  EXPECT_FALSE(peer.attach(L"Laser-2 (session 5)"));
  scene.server().waitForLine(": session 5 has no print client; start one and print again");
  client = scene.startClient(5, {"Laser-2"});
  EXPECT_TRUE(peer.attach(L"Laser-2 (session 5)"));
}

TEST(Sessions, ASecondClientIsRefusedAndTheFirstUndisturbed) {
  Scene scene;
  const auto client = scene.startClient(5, {"Laser-2"});
  ChildProcess second(scene.clientCommand(5, {"Other"}));
  EXPECT_EQ(second.wait(), 1);
  EXPECT_THAT(second.output(),
              HasSubstr("the server refuses: session 5 has a print client already; stop that one first"));
  scene.server().waitForLine("session 5: a print client was refused");
  MonitorPeer peer(scene.port());
  EXPECT_THAT(peer.printerList(5), ElementsAre(L"Laser-2 (session 5)"));
}

TEST(Sessions, TooManyPrintersOrSessionsAreRefusedWithTheLimit) {
  Scene scene({"--max-printers", "2", "--max-sessions", "1"});
  ChildProcess tooMany(scene.clientCommand(5, {"A", "B", "C"}));
  EXPECT_EQ(tooMany.wait(), 1);
  EXPECT_THAT(tooMany.output(), HasSubstr("session 5 registers 3 printers, the limit is 2"));
  const auto client = scene.startClient(5, {"A", "B"});
  ChildProcess other(scene.clientCommand(6, {"A"}));
  EXPECT_EQ(other.wait(), 1);
  EXPECT_THAT(other.output(), HasSubstr("this server has 1 sessions with a print client, which is its limit"));
}

TEST(Sessions, AConnectionOfTheMonitorPastTheLimitTakesThePlaceOfOneWithoutAJobOrIsRefused) {
  Scene scene({"--max-connections", "1"});
  const auto client = scene.startClient(5, {"Laser-2"});
  MonitorPeer idle(scene.port());
  EXPECT_THAT(idle.printerList(5), ElementsAre(L"Laser-2 (session 5)"));
  MonitorPeer peer(scene.port());
  EXPECT_TRUE(peer.attach(L"Laser-2 (session 5)"));
  scene.server().waitForLine(" closed: all places for the port monitor were taken, and it had been silent longest");
  EXPECT_THROW(idle.printerList(5), CS_Exception);
  EXPECT_THROW(MonitorPeer(scene.port()).printerList(5), CS_Exception);
  scene.server().waitForLine(": refused: all places for the port monitor are in use; try again when some are free");
  peer.startJob({L"j", L"", L"Report", L""}, {1, 1, 1, 1});
  peer.writeJob("hello");
  EXPECT_EQ(peer.endJob(), 1);
}

TEST(Sessions, ASessionThatMakesRoomForAnotherLeavesALine) {
  Scene scene({"--max-sessions", "1"});
  scene.startClient(5, {"Laser-2"}).reset();
  scene.server().waitForLine("session 5: the print client has gone");
  const auto client = scene.startClient(6, {"Ink"});
  scene.server().waitForLine(
      "session 5 and its printers were forgotten to make room for session 6; they are known again");
}

TEST(Sessions, AConnectionOfAnotherProtocolLeavesALine) {
  Scene scene;
  corvane::Socket socket = corvane::Socket::connect("127.0.0.1", static_cast<std::uint16_t>(scene.port()), false);
  const std::string text = "GET / HTTP/1.0\r\nHost: localhost\r\n\r\n";
  const corvane::Socket::Piece piece(reinterpret_cast<const unsigned char*>(text.data()), text.size());
  socket.send({&piece, 1});
  const std::string line = scene.server().waitForLine("connection from 127.0.0.1:");
  EXPECT_THAT(line, HasSubstr(" refused: "));
  EXPECT_THAT(line, HasSubstr("; the program that made it does not belong to this system, or has another version"));
}

TEST(Sessions, RecordsOfAnotherProcessAreReadableLines) {
  Scene scene;
  MonitorPeer peer(scene.port());
  peer.record(77, L"spoolsv", corvane::kLevelFailure, L"Failed to connect\nto APS.");
  scene.server().waitForLine("spoolsv 77: connected");
  EXPECT_THAT(scene.server().waitForLine("Failed to connect"), HasSubstr(": failure: Failed to connect to APS."));
}

TEST(Sessions, NoProgramIsStartedInASession) {
  Scene scene;
  MonitorPeer peer(scene.port());
  EXPECT_FALSE(peer.launch(L"notepad.exe", L"/p a.txt", nullptr));
  EXPECT_FALSE(peer.launch(L"notepad.exe", L"/p a.txt", L"x"));
  scene.server().waitForLine("program \"notepad.exe\" with arguments \"/p a.txt\" was not started");
}

TEST(Sessions, TheServerStopsOnBothSignalsAndSaysWhenThePortIsTaken) {
  Scene scene;
  const auto client = scene.startClient(5, {"Laser-2"});
  ChildProcess other(Scene::serverCommand("127.0.0.1:" + std::to_string(scene.port()), {}));
  EXPECT_EQ(other.wait(), 1);
  EXPECT_THAT(other.output(), HasSubstr("Address already in use"));
  EXPECT_THAT(other.output(), HasSubstr("choose another port with --listen"));
  for (const int number : {SIGINT, SIGTERM}) {
    scene.server().signal(number);
    EXPECT_EQ(scene.server().wait(), 0);
    EXPECT_THAT(scene.server().output(), HasSubstr("aps stops"));
    scene.restartServer();
  }
}

TEST(Sessions, AClientComesBackWhenTheServerDoes) {
  Scene scene;
  const auto client = scene.startClient(5, {"Laser-2"});
  scene.server().signal(SIGKILL);
  scene.server().wait();
  client->waitForLine("the connection to the server is lost");
  client->waitForLine("trying again in 0.5 s");
  client->waitForLine(" is away: ");
  client->waitForLine("trying again in 1 s");
  // Once, by the client, and not by its log as well.
  const std::string said = client->output();
  const std::size_t first = said.find("nobody answers on ");
  EXPECT_NE(first, std::string::npos) << said;
  EXPECT_EQ(said.find("nobody answers", first + 1), std::string::npos) << said;
  scene.restartServer();
  EXPECT_THAT(client->waitForLine("ready: "), HasSubstr("\"Laser-2 (session 5)\""));
  client->signal(SIGINT);
  EXPECT_EQ(client->wait(), 0);
}

}  // namespace
}  // namespace tests
