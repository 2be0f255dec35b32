#include "tests/end_to_end/administration_fixture.h"

#include <signal.h>

namespace tests {
namespace {

using ::testing::AllOf;
using ::testing::HasSubstr;
using ::testing::Not;

const char kInk[] = "Ink,driver=Not installed,format=ps";

using AdministrationOfSessions = Administration;

std::vector<std::string> upCommand(const std::vector<std::string>& options) {
  std::vector<std::string> command = {"session", "up", "5", "--processor", "mgtestproc"};
  command.insert(command.end(), options.begin(), options.end());
  return command;
}

TEST_F(AdministrationOfSessions, ASessionComesUpAndGoesDown) {
  install();
  EXPECT_EQ(succeed({"session", "list"}), "no print client has registered\n");
  const auto client = scene.startClient(5, {kLaser, kInk});
  EXPECT_THAT(succeed({"session", "list"}),
              AllOf(HasSubstr("session 5: print client connected"), HasSubstr("not up here: mgprintmon session up 5"),
                    Not(HasSubstr("no print client"))));
  EXPECT_THAT(succeed(upCommand({"--driver", "Generic PostScript"})),
              AllOf(HasSubstr("port CPP5 was added\nprinter \"Laser-2 (session 5)\" was added\n"
                              "printer \"Ink (session 5)\" was added\n"),
                    HasSubstr("a default is set for each user"), Not(HasSubstr("brings no printers"))));
  EXPECT_THAT(succeed(upCommand({"--driver", "Generic PostScript", "--default"})),
              AllOf(HasSubstr("printer \"Laser-2 (session 5)\" is already there\n"),
                    HasSubstr("\"Laser-2 (session 5)\" is now the default printer of the user who runs this")));
  expect({"uninstall"}, 5, "\"Laser-2 (session 5)\" on CPP5");
  expect({"ports", "delete", "CPP5"}, 5, "port \"CPP5\" is used by ");
  EXPECT_THAT(succeed({"session", "down", "5"}),
              AllOf(HasSubstr("printer \"Laser-2 (session 5)\" was removed\n"), HasSubstr("port CPP5 was deleted\n")));
  expect({"session", "down", "5"}, 3, "session 5 has no port here");
}

TEST_F(AdministrationOfSessions, AMissingDriverIsNamedAndTheOtherPrintersComeUp) {
  install();
  const auto client = scene.startClient(5, {kLaser, kInk});
  expect(upCommand({}), 3,
         "printer \"Laser-2 (session 5)\" was added\n"
         "printer \"Ink (session 5)\" needs the driver \"Not installed\", which is not installed\n"
         "  Install the driver, or name one");
  client->waitForLine(
      "\"Ink\" is not a printer on the server: printer \"Ink (session 5)\" needs the driver \"Not installed\"");
  EXPECT_THAT(succeed({"session", "list"}),
              HasSubstr("  \"Ink (session 5)\" is not here; mgprintmon session up 5 says why\n"));
}

TEST_F(AdministrationOfSessions, TheConfiguredDriverStandsInForOneThatIsNotInstalled) {
  install();
  const auto client = scene.startClient(5, {kInk});
  machine.configure("Marrowgate\\Printers", "FallbackDriver", "Generic PostScript");
  EXPECT_THAT(succeed(upCommand({})), HasSubstr("printer \"Ink (session 5)\" was added\n"));
}

TEST_F(AdministrationOfSessions, APrinterThatIsNotAsItShouldBeIsChanged) {
  install();
  const auto client = scene.startClient(5, {kLaser});
  up("5");
  EXPECT_THAT(succeed({"session", "up", "5"}), HasSubstr("printer \"Laser-2 (session 5)\" was changed\n"));
  EXPECT_THAT(succeed({"session", "up", "5"}), HasSubstr("printer \"Laser-2 (session 5)\" is already there\n"));
}

TEST_F(AdministrationOfSessions, PrintersThatTheClientNoLongerBringsAreRemoved) {
  install();
  auto client = scene.startClient(5, {kLaser, kInk});
  up("5");
  client.reset();
  scene.server().waitForLine("session 5: the print client has gone");
  client = scene.startClient(5, {kLaser});
  EXPECT_THAT(succeed(upCommand({})), AllOf(HasSubstr("printer \"Laser-2 (session 5)\" is already there\n"),
                                            HasSubstr("printer \"Ink (session 5)\" was removed\n")));
  EXPECT_EQ(succeed({"ports", "list"}), "CPP5  \"Laser-2 (session 5)\"\n");
}

TEST_F(AdministrationOfSessions, ForceRemovesPrintersAndPortsWithTheRest) {
  const auto before = machine.listing();
  install();
  const auto client = scene.startClient(5, {kLaser});
  up("5");
  EXPECT_THAT(succeed({"uninstall", "--force"}), HasSubstr("removed printer \"Laser-2 (session 5)\""));
  EXPECT_EQ(difference(before, machine.listing()), "");
}

TEST_F(AdministrationOfSessions, AnUnknownSessionAndAServerThatIsAwayAreSaid) {
  install();
  expect({"session", "up", "6"}, 3, "no print client of session 6 has registered");
  const auto client = scene.startClient(5, {kLaser});
  up("5");
  expect({"print", "Laser-2 (session 5)", windowsPath(MG_SOURCE_DIR)}, 2, "is a folder");
  scene.server().signal(SIGKILL);
  scene.server().wait();
  expect({"print", "Laser-2 (session 5)", windowsPath(MG_SOURCE_DIR "/examples/letter.ps")}, 6,
         "Start aps, or correct the port");
  for (const std::vector<std::string>& command :
       {std::vector<std::string>{"session", "up", "5"}, {"session", "list"}, {"printers", "5"}}) {
    expect(command, 6, "does not answer");
  }
  // By the tool, and not by its log as well.
  const std::string said = machine.administer({"session", "list"}).output;
  const std::size_t first = said.find("nobody answers on localhost");
  EXPECT_NE(first, std::string::npos) << said;
  EXPECT_EQ(said.find("nobody answers", first + 1), std::string::npos) << said;
  EXPECT_THAT(succeed({"status"}), HasSubstr("does not answer"));
  scene.restartServer();
}

TEST_F(AdministrationOfSessions, TheWatchFollowsClientsAndSurvivesTheServersAbsence) {
  install();
  const auto watch = machine.start({"watch", "--grace", "0", "--processor", "mgtestproc"});
  watch->waitForLine("watching the sessions");
  auto client = scene.startClient(5, {kLaser});
  watch->waitForLine("printer \"Laser-2 (session 5)\" was added");
  client.reset();
  watch->waitForLine("printer \"Laser-2 (session 5)\" was removed");
  watch->waitForLine("port CPP5 was deleted");
  scene.server().signal(SIGKILL);
  scene.server().wait();
  watch->waitForLine("waiting for it");
  scene.restartServer();
  watch->waitForLine("the application server is back");
  client = scene.startClient(5, {kLaser});
  watch->waitForLine("printer \"Laser-2 (session 5)\" was added");
  watch->signal(SIGINT);
  EXPECT_EQ(watch->wait(), 0) << watch->output();
  EXPECT_THAT(watch->output(), HasSubstr("the watch ends; the printers stay"));
}

}  // namespace
}  // namespace tests
