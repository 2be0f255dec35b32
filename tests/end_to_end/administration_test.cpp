#include "tests/end_to_end/administration_fixture.h"

#include <fstream>
#include <iterator>
#include <signal.h>

namespace tests {
namespace {

namespace fs = std::filesystem;
using ::testing::AllOf;
using ::testing::ElementsAre;
using ::testing::HasSubstr;

const char kLetter[] = MG_SOURCE_DIR "/examples/letter.ps";

std::string contentOf(const fs::path& path) {
  std::ifstream in(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(in), {}};
}

TEST_F(Administration, RemovingLeavesTheMachineAsItWasBeforeInstalling) {
  const auto before = machine.listing();
  EXPECT_THAT(succeed({"install", "--no-services", "--no-keys"}), HasSubstr("MgPrintMon 4.0.1.0 is installed"));
  const auto installed = machine.listing();
  EXPECT_THAT(difference(before, installed),
              AllOf(HasSubstr("system32/MgPrintMon.dll"), HasSubstr("Program Files/Marrowgate/Programs/ps2pdf.exe"),
                    HasSubstr("Monitors\\Client Printer Port"), HasSubstr("EventLog\\Application\\MgPrintMon")));
  EXPECT_THAT(succeed({"install", "--no-services", "--no-keys"}), HasSubstr("MgPrintMon 4.0.1.0 is already installed"));
  EXPECT_EQ(difference(installed, machine.listing()), "");
  succeed({"ports", "add", "CPP5"});
  EXPECT_THAT(succeed({"uninstall"}), HasSubstr("MgPrintMon is removed"));
  EXPECT_EQ(difference(before, machine.listing()), "");
  EXPECT_EQ(succeed({"uninstall"}), "nothing is installed\n");
}

TEST_F(Administration, ADamagedInstallationIsRepaired) {
  succeed({"install", "--no-services", "--no-keys"});
  const auto installed = machine.listing();
  const fs::path folder = machine.path() / "drive_c/Program Files/Marrowgate";
  fs::remove(folder / "Programs/ps2pdf.exe");
  std::ofstream(machine.path() / "drive_c/windows/system32/MgPrintMon.dll") << "damaged";
  EXPECT_THAT(succeed({"install", "--no-services", "--no-keys"}), HasSubstr("MgPrintMon 4.0.1.0 is repaired"));
  EXPECT_EQ(difference(installed, machine.listing()), "");
}

TEST_F(Administration, PortsComeAndGo) {
  install();
  EXPECT_EQ(succeed({"ports", "list"}), "the monitor has no ports\n");
  EXPECT_EQ(succeed({"ports", "add", "CPP5"}), "port CPP5 was added\n");
  EXPECT_EQ(succeed({"ports", "add", "CPP5"}), "port CPP5 is already there\n");
  EXPECT_EQ(succeed({"ports", "list"}), "CPP5\n");
  EXPECT_THAT(succeed({"ports", "list", "--json"}), HasSubstr("\"port\": \"CPP5\""));
  EXPECT_EQ(succeed({"ports", "delete", "CPP5"}), "port CPP5 was deleted\n");
  expect({"ports", "delete", "CPP5"}, 3, "the monitor has no port \"CPP5\"");
  expect({"ports", "add", "C:\\port"}, 2, "holds a path");
  expect({"ports", "add", std::string(260, 'p')}, 2, "a port name of 260 characters is too long");
  const std::string longest(259, 'p');
  EXPECT_EQ(succeed({"ports", "add", longest}), "port " + longest + " was added\n");
}

TEST_F(Administration, AJobOfASessionReachesItsClientAndItsOutcomeIsSaid) {
  install();
  auto client = scene.startClient(5, {kLaser});
  up("5");
  EXPECT_THAT(succeed({"print", "Laser-2 (session 5)", windowsPath(kLetter), "--title", "A letter", "--copies", "3"}),
              AllOf(HasSubstr("the spooler has job 1 for \"Laser-2 (session 5)\"\n"),
                    HasSubstr("was delivered to the client of session 5, 6565 bytes")));
  EXPECT_THAT(client->waitForLine("receiving \"A letter\""), HasSubstr("3 copies"));
  EXPECT_THAT(scene.files(5), ElementsAre("A letter.ps"));
  EXPECT_EQ(scene.content(5, "A letter.ps"), contentOf(kLetter));

  client.reset();
  scene.server().waitForLine("session 5: the print client has gone");
  expect({"print", "Laser-2 (session 5)", windowsPath(kLetter)}, 1, "Start the session's print client");
  EXPECT_THAT(succeed({"status"}), AllOf(HasSubstr("session 5: print client gone"), HasSubstr("last failed jobs:"),
                                         HasSubstr("Failed to attach print job to session for Laser-2 (session 5)")));
}

TEST_F(Administration, AJobWhoseOutcomeNobodyTellsEndsWithAnExitCodeOfItsOwn) {
  install();
  const auto client = scene.startClient(5, {kLaser});
  up("5");
  // A server that has nothing to do with the job.
  Scene other;
  expect({"print", "Laser-2 (session 5)", windowsPath(kLetter), "--wait", "1", "--server-port",
          std::to_string(other.port())},
         7, "the outcome of job 1 is unknown: the time for it is over");
}

TEST_F(Administration, WhatCannotBePrintedIsNamed) {
  install();
  expect({"print", "No such printer", windowsPath(kLetter)}, 3, "printer \"No such printer\" cannot be opened");
  expect({"print", "No such printer", "Z:\\no\\such\\file"}, 3, "\"Z:\\no\\such\\file\" cannot be opened");
}

TEST_F(Administration, TheModulesOwnListShowsASessionItsPrinters) {
  install();
  const auto client = scene.startClient(5, {kLaser});
  expect({"printers", "5"}, 3, "session 5 has no port here");
  up("5");
  EXPECT_EQ(succeed({"printers", "5"}), "Laser-2 (session 5)\n");
  EXPECT_EQ(succeed({"visible", "5", "Laser-2 (session 5)"}), "\"Laser-2 (session 5)\" is shown to session 5\n");
  EXPECT_EQ(succeed({"visible", "5", "Other"}), "\"Other\" is hidden from session 5\n");
}

TEST_F(Administration, TheDoctorPrintsAPageTheWholeWayRoundAndLeavesNothing) {
  install();
  const auto client = scene.startClient(5, {kLaser});
  const auto before = machine.listing();
  const std::string report = succeed({"doctor", "--processor", "mgtestproc", "--driver", "Generic PostScript"});
  for (const char* name : {"module file", "module", "registration", "registry", "key file", "application server",
                           "converter", "temporary folder", "print client of session 5", "test page"}) {
    EXPECT_THAT(report, HasSubstr("ok      " + std::string(name) + ": "));
  }
  EXPECT_THAT(report, HasSubstr("107 bytes went through spooler, monitor and aps and came back"));
  auto after = machine.listing();
  // The page is a job, and the end of a job is one line in the module's log.
  std::erase_if(after, [](const std::string& line) { return line.find("/Log/MgPrintMon.log ") != std::string::npos; });
  EXPECT_EQ(difference(before, after), "");
}

TEST_F(Administration, TheDoctorNamesEveryFaultWithItsRemedy) {
  install();
  scene.server().signal(SIGKILL);
  scene.server().wait();
  fs::remove(machine.path() / "drive_c/Program Files/Marrowgate/Programs/ps2pdf.exe");
  machine.configure("Corvane", "LogFile", "C:\\windows");
  const Machine::Result result = run({"doctor"});
  EXPECT_EQ(result.code, 1);
  EXPECT_THAT(result.output, HasSubstr("FAILED  registry: LogFile \"C:\\windows\" is a folder"));
  EXPECT_THAT(result.output, AllOf(HasSubstr("FAILED  application server: "), HasSubstr("Start aps"),
                                   HasSubstr("FAILED  converter: "), HasSubstr("Run mgprintmon install"),
                                   HasSubstr("FAILED  test page: not checked"), HasSubstr("ok      registration")));
  EXPECT_THAT(run({"doctor", "--json"}).output, HasSubstr("\"ok\": false"));
  scene.restartServer();
}

}  // namespace
}  // namespace tests
