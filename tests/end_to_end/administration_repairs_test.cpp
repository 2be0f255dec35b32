// An installation that is broken in each way and mended by the doctor.

#include "tests/end_to_end/administration_fixture.h"
#include "tests/processes/process_table.h"
#include "tests/processes/wine_server.h"

#include <fstream>
#include <functional>

namespace tests {
namespace {

namespace fs = std::filesystem;
using ::testing::AllOf;
using ::testing::HasSubstr;
using ::testing::Not;

const std::string kMonitor = R"(HKLM\SYSTEM\CurrentControlSet\Control\Print\Monitors\Client Printer Port)";
const std::string kFramework = R"(HKLM\SOFTWARE\Quillfern\Corvane)";

// A complete installation, with services and a key.
class AdministrationOfRepairs : public testing::Test {
 protected:
  AdministrationOfRepairs() {
    machine.clean();
    const Machine::Result result = machine.administer({"install", "--port", port, "--driver", "Generic PostScript"});
    EXPECT_EQ(result.code, 0) << result.output;
  }
  void TearDown() override { machine.clean(); }

  Machine::Result doctor(std::vector<std::string> options) const {
    options.insert(options.begin(), {"doctor", "--no-page"});
    return machine.administer(options);
  }
  // The doctor finds it, mends it and finds all well.
  void expectMended(const std::string& fault, const std::string& repair) const {
    const Machine::Result mended = doctor({"--fix", "--yes"});
    EXPECT_EQ(mended.code, 0) << mended.output;
    EXPECT_THAT(mended.output, AllOf(HasSubstr("FAILED  " + fault), HasSubstr("\n        done: " + repair),
                                     HasSubstr("\nnothing is wrong\n")));
  }
  void write(const std::string& key, const std::string& name, const std::string& type, const std::string& value) const {
    machine.tool("reg", {"add", key, "/v", name, "/t", type, "/d", value, "/f"});
  }
  void stop(const std::string& service) const {
    machine.tool("sc", {"stop", service});
    EXPECT_TRUE(comesTrue(
        [&] {
          return machine.tool("sc", {"query", service}).output.find("STOPPED") != std::string::npos;
        },
        30));
  }
  // What is installed; logs and records go on.
  std::set<std::string> state() const {
    auto lines = machine.listing();
    std::erase_if(lines, [](const std::string& line) {
      return line.find("/Log/") != std::string::npos || line.find("/State/") != std::string::npos;
    });
    return lines;
  }
  fs::path data(const std::string& name) const { return machine.path() / "drive_c/ProgramData/Marrowgate" / name; }

  Machine& machine = Machine::get();
  const std::string port = [] {
    const Scene scene;  // somebody who had a free one
    return std::to_string(scene.port());
  }();
};

TEST_F(AdministrationOfRepairs, AnInstallationThatIsWellIsLeftAsItIs) {
  const auto before = state();
  const Machine::Result result = doctor({"--fix", "--yes"});
  EXPECT_EQ(result.code, 0) << result.output;
  EXPECT_THAT(result.output, AllOf(HasSubstr("nothing is wrong\n"), Not(HasSubstr("done: ")),
                                   HasSubstr("ok      windows policies: none keeps the monitor, its drivers or its "
                                             "printers out\n"),
                                   HasSubstr("ok      spooler: it is a part of each program that prints\n"),
                                   HasSubstr("left    test page: skipped: none is wanted\n")));
  EXPECT_EQ(difference(before, state()), "");
}

TEST_F(AdministrationOfRepairs, ARegistrationThatIsGoneOrPointsElsewhereIsMadeAgain) {
  machine.administer({"ports", "add", "CPP5"});
  const auto before = state();
  machine.tool("reg", {"delete", kMonitor, "/f"});
  expectMended("registration: the spooler does not know the monitor", "register the monitor with the spooler again\n");
  EXPECT_EQ(difference(before, state()), "");
  write(kMonitor, "Driver", "REG_SZ", "other.dll");
  expectMended("registration: ", "register the monitor with the spooler again\n");
  EXPECT_EQ(difference(before, state()), "");
}

TEST_F(AdministrationOfRepairs, ServicesThatAreStoppedRunAgain) {
  stop("aps");
  expectMended("services: the service aps is stopped\n", "start the service aps\n");
  stop("mgprintmon");
  expectMended("services: the service mgprintmon is stopped\n", "start the service mgprintmon\n");
}

TEST_F(AdministrationOfRepairs, AFolderOfKeysThatIsOpenToOthersIsClosedAndOneThatIsGoneIsMade) {
  fs::permissions(data("Keys"), fs::perms::all);
  expectMended("services: the folder \"C:\\ProgramData\\Marrowgate\\Keys\" is open to others: ",
               "leave the folder \"C:\\ProgramData\\Marrowgate\\Keys\" to administrators and the service alone\n");
  EXPECT_EQ(fs::status(data("Keys")).permissions() & fs::perms::others_all, fs::perms::none);
  stop("mgprintmon");
  stop("aps");
  fs::remove_all(data("State"));
  expectMended("services: the service aps is stopped\n",
               "make the folder \"C:\\ProgramData\\Marrowgate\\State\", for administrators and the service alone\n");
  EXPECT_EQ(fs::status(data("State")).permissions() & fs::perms::others_all, fs::perms::none);
}

TEST_F(AdministrationOfRepairs, FilesThatAreGoneComeFromWhereTheyWereInstalledFrom) {
  const auto before = state();
  fs::remove(machine.path() / "drive_c/Program Files/Marrowgate/Programs/ps2pdf.exe");
  expectMended("converter: ", "install again what is missing, from ");
  fs::remove(machine.path() / "drive_c/windows/system32/MgPrintMon.dll");
  expectMended("module file: ", "install again what is missing, from ");
  EXPECT_EQ(difference(before, state()), "");
}

TEST_F(AdministrationOfRepairs, ValuesOfAWrongTypeOrSizeAreTakenAwayAndThePortIsThatOfTheService) {
  const auto before = state();
  write(kFramework, "LogLimit", "REG_SZ", "much");
  write(kFramework, "Port", "REG_DWORD", "70000");
  const Machine::Result mended = doctor({"--fix", "--yes"});
  EXPECT_EQ(mended.code, 0) << mended.output;
  EXPECT_THAT(
      mended.output,
      AllOf(HasSubstr("done: set the value Port (70000) of HKEY_LOCAL_MACHINE\\SOFTWARE\\Quillfern\\Corvane to " +
                      port + ", where the service aps listens\n"),
            HasSubstr("done: remove the value LogLimit (not a DWORD) of "
                      "HKEY_LOCAL_MACHINE\\SOFTWARE\\Quillfern\\Corvane: without it 8388608 holds\n")));
  EXPECT_EQ(difference(before, state()), "");
}

TEST_F(AdministrationOfRepairs, TheFolderForTemporaryFilesIsMadeAgain) {
  fs::path folder;
  for (const fs::path& temporary : WineServer::temporaryFolders(machine.path()))
    if (fs::exists(temporary)) folder = temporary;
  ASSERT_FALSE(folder.empty());
  fs::remove_all(folder);
  expectMended("temporary folder: ", "make the folder \"");
  EXPECT_TRUE(fs::is_directory(folder));
}

TEST_F(AdministrationOfRepairs, WithoutATerminalNobodyIsAskedAndNothingIsRepaired) {
  write(kFramework, "LogLimit", "REG_SZ", "much");
  const auto before = state();
  const Machine::Result result = doctor({"--fix"});
  EXPECT_EQ(result.code, 1);
  EXPECT_THAT(result.output, HasSubstr("\nnothing was repaired: nobody can be asked, because the input is no terminal; "
                                       "--yes repairs without asking\n"));
  EXPECT_THAT(doctor({"--fix", "--json"}).output, HasSubstr("\"remark\": \"nothing was repaired: "));
  EXPECT_EQ(difference(before, state()), "");
}

TEST_F(AdministrationOfRepairs, WhatWasRepairedIsToldToPrograms) {
  write(kFramework, "LogLimit", "REG_SZ", "much");
  const Machine::Result result = doctor({"--fix", "--yes", "--json"});
  EXPECT_EQ(result.code, 0);
  EXPECT_THAT(result.output, AllOf(HasSubstr("\"ok\": true"), HasSubstr("\"repairs\": ["),
                                   HasSubstr("\"what\": \"remove the value LogLimit (not a DWORD) of "),
                                   HasSubstr("\"outcome\": \"done\"")));
}

TEST_F(AdministrationOfRepairs, APolicyOfWindowsIsNamedAndStaysAsItIs) {
  const std::string key = R"(HKLM\SOFTWARE\Policies\Microsoft\Windows NT\Printers)";
  write(key + "\\WPP", "WindowsProtectedPrintGroupPolicyState", "REG_DWORD", "1");
  write(key, "EnableDeviceControl", "REG_DWORD", "1");
  const Machine::Result result = doctor({"--fix", "--yes"});
  const std::string left = machine.tool("reg", {"query", key, "/s"}).output;
  machine.tool("reg", {"delete", key, "/f"});
  EXPECT_EQ(result.code, 1);
  EXPECT_THAT(result.output, AllOf(HasSubstr("FAILED  windows policies: Windows protected print mode is on: "),
                                   HasSubstr("        The policy \"Configure Windows protected print\" says so "),
                                   HasSubstr("FAILED  windows policies: printing is restricted to printers of the "
                                             "corporate network"),
                                   HasSubstr("2 of ")));
  EXPECT_THAT(left, AllOf(HasSubstr("WindowsProtectedPrintGroupPolicyState"), HasSubstr("EnableDeviceControl")));
}

using AdministrationOfLeftSessions = Administration;

TEST_F(AdministrationOfLeftSessions, PrintersOfASessionWhoseClientHasGoneAreTakenDown) {
  succeed({"install", "--no-services", "--no-keys", "--port", std::to_string(scene.port()), "--driver",
           "Generic PostScript"});
  auto client = scene.startClient(5, {kLaser});
  up("5");
  client.reset();
  scene.server().waitForLine("session 5: the print client has gone");
  EXPECT_THAT(succeed({"doctor", "--no-page", "--fix", "--yes"}),
              AllOf(HasSubstr("FAILED  print client of session 5: gone since "),
                    HasSubstr("\n        done: take the port and the printers of session 5 down\n"),
                    HasSubstr("ok      print client of session 5: gone since ")));
  EXPECT_EQ(succeed({"ports", "list"}), "the monitor has no ports\n");
}

TEST_F(AdministrationOfLeftSessions, PrintersOfASessionThatApsDoesNotKnowAreTakenDown) {
  succeed({"install", "--no-services", "--no-keys", "--port", std::to_string(scene.port()), "--driver",
           "Generic PostScript"});
  auto client = scene.startClient(5, {kLaser});
  up("5");
  client.reset();
  scene.server().signal(SIGKILL);
  scene.server().wait();
  scene.restartServer();
  succeed({"ports", "add", "CPP6"});
  EXPECT_THAT(succeed({"doctor", "--no-page", "--fix", "--yes"}),
              AllOf(HasSubstr("FAILED  port CPP5: it has printers, and aps does not know its session\n"),
                    HasSubstr("ok      port CPP5: it is gone\n"), Not(HasSubstr("CPP6"))));
  EXPECT_EQ(succeed({"ports", "list"}), "CPP6\n");
}

}  // namespace
}  // namespace tests
