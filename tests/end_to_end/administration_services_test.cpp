// aps and the watch as services: what installing makes of them, and how they start, fail and end. That one is started
// again after it was killed is Windows's part: Wine's service manager does not notice that a process is gone.

#include "tests/end_to_end/administration_fixture.h"
#include "tests/processes/process_table.h"

#include <fstream>
#include <iterator>

namespace tests {
namespace {

namespace fs = std::filesystem;
using ::testing::AllOf;
using ::testing::HasSubstr;
using ::testing::Not;

class AdministrationOfServices : public testing::Test {
 protected:
  AdministrationOfServices() { machine.clean(); }
  void TearDown() override { machine.clean(); }

  Machine::Result install(const std::vector<std::string>& more = {}) {
    std::vector<std::string> command = {"install", "--port", port};
    command.insert(command.end(), more.begin(), more.end());
    return machine.administer(command);
  }
  void installWell(const std::vector<std::string>& more = {}) {
    const Machine::Result result = install(more);
    ASSERT_EQ(result.code, 0) << result.output;
  }
  // What the service manager's own tools say.
  std::string sc(const std::vector<std::string>& arguments) const { return machine.tool("sc", arguments).output; }
  std::string configured(const std::string& service) const {
    return machine.tool("reg", {"query", "HKLM\\SYSTEM\\CurrentControlSet\\Services\\" + service}).output;
  }
  bool becomes(const std::string& service, const std::string& state) const {
    return comesTrue([&] { return sc({"query", service}).find(state) != std::string::npos; }, 30);
  }
  fs::path data(const std::string& name) const { return machine.path() / "drive_c/ProgramData/Marrowgate" / name; }
  static std::string contentOf(const fs::path& path) {
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
  }
  pid_t serverProcess() const {
    const auto processes = processesWith("Programs\\aps.exe");
    return processes.size() == 1 ? processes.front().id : -1;
  }

  Machine& machine = Machine::get();
  const std::string port = [] {
    const Scene scene;  // somebody who had a free one
    return std::to_string(scene.port());
  }();
};

TEST_F(AdministrationOfServices, InstallingMakesThemWithAKeyAndRemovingLeavesNothing) {
  const auto before = machine.listing();
  const Machine::Result installed = install();
  EXPECT_EQ(installed.code, 0);
  EXPECT_THAT(installed.output, AllOf(HasSubstr("aps and mgprintmon watch run as services\n"),
                                      HasSubstr("peers of aps must have keys; mgprintmon invite N gives one")));
  EXPECT_THAT(machine.administer({"status"}).output,
              AllOf(HasSubstr("services: aps runs, process "), HasSubstr("; mgprintmon runs, process "),
                    HasSubstr("keys:    the monitor's is in C:\\ProgramData\\Marrowgate\\Keys\\monitor.key\n"),
                    HasSubstr("server:  aps 4.0.1.0, process ")));
  EXPECT_THAT(contentOf(data("Log/aps.log")),
              HasSubstr("peers must prove that they have their key in C:\\ProgramData\\Marrowgate\\Keys"));
  EXPECT_THAT(contentOf(data("Log/mgprintmon.log")), HasSubstr(" watching the sessions"));
  EXPECT_EQ(fs::status(data("Keys")).permissions() & fs::perms::others_all, fs::perms::none);
  EXPECT_THAT(configured("aps"), HasSubstr("NT SERVICE\\aps"));
  EXPECT_THAT(install().output, HasSubstr("MgPrintMon 4.0.1.0 is already installed"));
  const Machine::Result removed = machine.administer({"uninstall"});
  EXPECT_EQ(removed.code, 0) << removed.output;
  EXPECT_EQ(difference(before, machine.listing()), "");
  EXPECT_EQ(serverProcess(), -1);
}

TEST_F(AdministrationOfServices, TheDoctorPrintsItsPageWithAKeyThatItMakesAndTakesAway) {
  installWell({"--driver", "Generic PostScript"});
  const Machine::Result report = machine.administer({"doctor", "--processor", "mgtestproc"});
  EXPECT_EQ(report.code, 0) << report.output;
  EXPECT_THAT(report.output, AllOf(HasSubstr("ok      services: aps runs, process "),
                                   HasSubstr("ok      test page: 107 bytes went through spooler, monitor and aps")));
  EXPECT_FALSE(fs::exists(data("Keys/session-900000001.key")));
}

TEST_F(AdministrationOfServices, EndInOrderAndStartAgain) {
  installWell();
  for (int i = 0; i < 3; ++i) {
    sc({"stop", "aps"});
    EXPECT_TRUE(becomes("aps", "STOPPED"));
    EXPECT_THAT(sc({"query", "aps"}), AllOf(HasSubstr("WIN32_EXIT_CODE    : 0"), HasSubstr("SERVICE_EXIT_CODE  : 0")));
    EXPECT_THAT(contentOf(data("Log/aps.log")), HasSubstr(" aps stops\n"));
    EXPECT_THAT(machine.administer({"doctor"}).output, AllOf(HasSubstr("FAILED  services: the service aps is stopped"),
                                                             HasSubstr("Start it: net start aps.")));
    fs::remove(data("Log/aps.log"));
    sc({"start", "aps"});
    EXPECT_TRUE(becomes("aps", "RUNNING"));
  }
  sc({"stop", "mgprintmon"});
  EXPECT_TRUE(becomes("mgprintmon", "STOPPED"));
  EXPECT_THAT(contentOf(data("Log/mgprintmon.log")), HasSubstr(" the watch ends; the printers stay\n"));
}

// The folder of the log is made again, with all that it has from above.
TEST_F(AdministrationOfServices, AServiceWhoseLogFolderIsGoneMakesItAndServes) {
  installWell();
  sc({"stop", "aps"});
  EXPECT_TRUE(becomes("aps", "STOPPED"));
  fs::remove_all(data("Log"));
  sc({"start", "aps"});
  EXPECT_TRUE(becomes("aps", "RUNNING"));
  EXPECT_THAT(contentOf(data("Log/aps.log")), HasSubstr(" aps listens on 127.0.0.1:" + port));
}

TEST_F(AdministrationOfServices, AServiceThatCannotHaveItsLogServesWithoutOne) {
  installWell();
  sc({"stop", "aps"});
  EXPECT_TRUE(becomes("aps", "STOPPED"));
  fs::remove_all(data("Log"));
  std::ofstream(data("Log")) << "a file where a folder should be";
  sc({"start", "aps"});
  EXPECT_TRUE(becomes("aps", "RUNNING"));
  EXPECT_THAT(machine.administer({"status"}).output, HasSubstr("server:  aps 4.0.1.0, process "));
  fs::remove(data("Log"));
}

TEST_F(AdministrationOfServices, APortThatIsTakenIsItsExitCodeAndNothingIsInstalled) {
  const auto before = machine.listing();
  const Scene other;
  const Machine::Result result = machine.administer({"install", "--port", std::to_string(other.port())});
  EXPECT_EQ(result.code, 1);
  EXPECT_THAT(result.output,
              AllOf(HasSubstr("could not start the service aps: the service \"aps\" ended at once: its exit code is 1. "
                              "Nothing was changed."),
                    HasSubstr("The event log (Application, source MgPrintMon)")));
  EXPECT_EQ(difference(before, machine.listing()), "");
}

TEST_F(AdministrationOfServices, WhatWasInstalledWithoutKeysAndServicesStaysSoUntilItIsAskedFor) {
  installWell({"--no-services", "--no-keys"});
  const Machine::Result again = install();
  EXPECT_THAT(again.output,
              AllOf(HasSubstr("is already installed"), HasSubstr("no services: run aps and mgprintmon watch, or "),
                    HasSubstr("WITHOUT KEYS: every user of this machine can act as the monitor or as any session; ")));
  EXPECT_THAT(machine.administer({"status"}).output,
              AllOf(HasSubstr("services: none\n"), HasSubstr("keys:    NONE: ")));
  EXPECT_THAT(machine.administer({"doctor"}).output, HasSubstr("ok      key file: there is NONE: "));
  // By hand, as before keys were wanted.
  ChildProcess server(WinePrefix::command(windowsProgram("aps.exe"), {"--listen", "127.0.0.1:0"}));
  server.waitForLine("the monitor was installed without a key: mgprintmon install --keys changes that");
  machine.tool("taskkill", {"/f", "/im", "aps.exe"});
  server.wait();
  installWell({"--services"});
  EXPECT_THAT(contentOf(data("Log/aps.log")), HasSubstr("peers are not authenticated: "));
  installWell({"--keys"});
  EXPECT_THAT(contentOf(data("Log/aps.log")), HasSubstr("peers must prove that they have their key in "));
  EXPECT_THAT(configured("aps"),
              AllOf(HasSubstr("--keys C:\\ProgramData\\Marrowgate\\Keys"), Not(HasSubstr("--no-keys"))));
}

TEST_F(AdministrationOfServices, ServePrintClientsOnOtherMachinesWhereInstallSaysSo) {
  const std::string address = "127.0.0.1:" + std::to_string(Scene().port());
  installWell({"--listen-clients", address, "--public-address", "print.example:4712"});
  EXPECT_THAT(machine.administer({"invite", "5"}).output, HasSubstr("mgprint://print.example:4712/session-5/"));
  EXPECT_THAT(configured("aps"), HasSubstr("--listen-clients " + address + " --public-address print.example:4712"));
  EXPECT_THAT(install().output, HasSubstr("MgPrintMon 4.0.1.0 is already installed"));
  installWell({"--no-listen-clients"});
  EXPECT_THAT(machine.administer({"invite", "5"}).output, HasSubstr("nobody is invited: "));
  EXPECT_THAT(configured("aps"), AllOf(Not(HasSubstr("--listen-clients")), Not(HasSubstr("--public-address"))));
}

TEST_F(AdministrationOfServices, CannotServeOtherMachinesAtAnAddressThatIsNoneNorWithoutKeysOrAtAll) {
  const auto before = machine.listing();
  const Machine::Result misspelt = install({"--listen-clients", "4712"});
  EXPECT_EQ(misspelt.code, 2);
  EXPECT_THAT(misspelt.output, HasSubstr("\"4712\""));
  const Machine::Result keyless = install({"--no-keys", "--listen-clients", "127.0.0.1:4712"});
  EXPECT_EQ(keyless.code, 2);
  EXPECT_THAT(keyless.output, HasSubstr("print clients on other machines are served only where peers must have keys\n"
                                        "  Add --keys, or leave --listen-clients out.\n"));
  const Machine::Result none = install({"--no-services", "--public-address", "print.example:4712"});
  EXPECT_EQ(none.code, 2);
  EXPECT_THAT(none.output, HasSubstr("aps is no service of this installation, so install cannot set its addresses\n"
                                     "  Add --services, or start aps with --listen-clients and --public-address.\n"));
  EXPECT_EQ(difference(before, machine.listing()), "");
}

TEST_F(AdministrationOfServices, AStrangersServiceOfThatNameIsLeftAlone) {
  sc({"create", "aps", "binPath=", "C:\\windows\\system32\\notepad.exe"});
  const auto before = machine.listing();
  const Machine::Result result = install();
  EXPECT_EQ(result.code, 1);
  EXPECT_THAT(result.output, HasSubstr("a service of the name \"aps\" is there that this program has not made: "
                                       "\"C:\\windows\\system32\\notepad.exe\". Nothing was changed."));
  EXPECT_EQ(difference(before, machine.listing()), "");
  sc({"delete", "aps"});
}

TEST_F(AdministrationOfServices, OfTwoInstallationsAtOnceOneIsToldToWait) {
  const auto first = machine.start({"install", "--port", port});
  const auto second = machine.start({"install", "--port", port});
  const int codes[] = {first->wait(), second->wait()};
  // As a rule the second; when the first has ended before it begins, both are well.
  const bool bothWell = codes[0] == 0 && codes[1] == 0;
  if (!bothWell) {
    EXPECT_EQ(codes[0] + codes[1], 5) << first->output() << second->output();
    EXPECT_THAT(first->output() + second->output(), HasSubstr("another mgprintmon installs or removes just now"));
  }
  EXPECT_TRUE(becomes("aps", "RUNNING"));
}

}  // namespace
}  // namespace tests
