#include "tests/end_to_end/administration_fixture.h"

#include <fstream>
#include <signal.h>

namespace tests {
namespace {

using ::testing::AllOf;
using ::testing::HasSubstr;
using ::testing::Not;

const char kInkWithoutDriver[] = "Ink,driver=Not installed,format=ps";

// Wine's spooler gives every driver version 3; an XPS driver is known by its files there.
class AdministrationOfDrivers : public Administration {
 protected:
  AdministrationOfDrivers() { machine.registerDriver("Acme XPS Driver", "mxdwdrv.dll"); }
  ~AdministrationOfDrivers() override { machine.forgetDriver("Acme XPS Driver"); }

  void installWith(const std::vector<std::string>& options) {
    std::vector<std::string> command = {"install", "--no-services", "--no-keys", "--port",
                                        std::to_string(scene.port())};
    command.insert(command.end(), options.begin(), options.end());
    succeed(command);
  }
  static std::vector<std::string> upCommand() { return {"session", "up", "5", "--processor", "mgtestproc"}; }
};

TEST_F(AdministrationOfDrivers, TheDriverOfTheServerStandsInForThatOfAPrinterThatWasFound) {
  const auto before = machine.listing();
  installWith({"--driver", "Generic PostScript"});
  const auto client = scene.startClient(5, {kInkWithoutDriver, "Found,format=pdf"});
  EXPECT_THAT(succeed(upCommand()), AllOf(HasSubstr("printer \"Ink (session 5)\" was added\n"),
                                          HasSubstr("printer \"Found (session 5)\" was added\n")));
  EXPECT_THAT(succeed({"doctor", "--processor", "mgtestproc"}),
              HasSubstr("ok      server drivers: 1 of 2 can be used; FallbackDriver is \"Generic PostScript\"\n"));
  succeed({"session", "down", "5"});
  succeed({"uninstall"});
  EXPECT_EQ(difference(before, machine.listing()), "");
}

TEST_F(AdministrationOfDrivers, ADriverThatCannotBeUsedIsNotSetAndNothingIsInstalled) {
  const auto before = machine.listing();
  expect(
      {"install", "--no-services", "--no-keys", "--driver", "Nowhere"}, 3,
      "could not take the printer driver \"Nowhere\" for printers of sessions: the printer driver \"Nowhere\" is not "
      "installed. Nothing was changed.\n  Install it (in PowerShell: Add-PrinterDriver -Name NAME)");
  expect({"install", "--no-services", "--no-keys", "--driver", "Acme XPS Driver"}, 1,
         "the printer driver \"Acme XPS Driver\" sends XPS and cannot be used (mxdwdrv.dll). Nothing was changed.");
  const auto package = scene.folder() / "driver.inf";
  std::ofstream(package) << "[Version]\n";
  expect(
      {"install", "--no-services", "--no-keys", "--driver", "Nowhere", "--driver-package", windowsPath(package)}, 1,
      "the spooler of this system adds no driver from a package. Nothing was changed.\n  Add the driver with pnputil");
  EXPECT_EQ(difference(before, machine.listing()), "");
}

TEST_F(AdministrationOfDrivers, TheTableMapsDriversOfClientsToThoseOfTheServer) {
  expect({"drivers", "map", "Not*", "Generic PostScript"}, 3, "the print monitor is not installed here");
  const auto before = machine.listing();
  install();
  EXPECT_EQ(succeed({"drivers"}),
            "\"Acme XPS Driver\" sends XPS and cannot be used (mxdwdrv.dll)\n\"Generic PostScript\" can be used\n"
            "no driver is set for all others; mgprintmon install --driver NAME sets one\n");
  const auto client = scene.startClient(5, {kInkWithoutDriver});
  expect(upCommand(), 3,
         "needs the driver \"Not installed\", which is not installed\n  Install the driver, or name one");
  expect({"drivers", "map", "Not*", "Nowhere"}, 3, "the printer driver \"Nowhere\" is not installed");
  expect({"drivers", "map", "Not*", "Acme XPS Driver"}, 1, "sends XPS and cannot be used (mxdwdrv.dll)");
  expect({"drivers", "map", "", "Generic PostScript"}, 2, "a pattern is 1 to 255 characters");
  EXPECT_EQ(succeed({"drivers", "map", "not*", "generic postscript"}),
            "\"not*\" at a client is \"Generic PostScript\" here\n");
  EXPECT_THAT(succeed({"drivers", "list"}), HasSubstr("\"not*\" at a client is \"Generic PostScript\" here\n"));
  EXPECT_THAT(succeed({"drivers", "--json"}),
              AllOf(HasSubstr("\"pattern\": \"not*\""), HasSubstr("\"usable\": false")));
  EXPECT_THAT(succeed(upCommand()), HasSubstr("printer \"Ink (session 5)\" was added\n"));
  EXPECT_EQ(succeed({"drivers", "unmap", "NOT*"}), "\"NOT*\" has no driver of its own here any more\n");
  expect({"drivers", "unmap", "not*"}, 3, "the table has no line for \"not*\"");
  succeed({"drivers", "map", "I?k*", "Generic PostScript"});
  succeed({"session", "down", "5"});
  succeed({"uninstall"});
  EXPECT_EQ(difference(before, machine.listing()), "");
}

TEST_F(AdministrationOfDrivers, LinesThatWereThereBeforeTheInstallationStayAndThoseSinceGo) {
  machine.configure("Marrowgate\\Printers\\Drivers", "Old*", "Generic PostScript");
  const auto before = machine.listing();
  install();
  succeed({"drivers", "map", "New*", "Generic PostScript"});
  succeed({"drivers", "map", "Newer*", "Generic PostScript"});
  succeed({"drivers", "unmap", "Newer*"});
  succeed({"uninstall"});
  EXPECT_EQ(difference(before, machine.listing()), "");
  machine.forgetSettings("Marrowgate\\Printers");
}

TEST_F(AdministrationOfDrivers, APrinterWhoseDriverSendsXpsIsRefusedAndItsClientIsTold) {
  install();
  const auto client = scene.startClient(5, {"Office,driver=Acme XPS Driver,format=pdf"});
  const std::string cause =
      "printer \"Office (session 5)\" cannot have the driver \"Acme XPS Driver\", which sends XPS (mxdwdrv.dll)";
  expect(upCommand(), 3, cause + "\n  Install the driver, or name one that is installed and sends PostScript");
  client->waitForLine("\"Office\" is not a printer on the server: " + cause);
  const Machine::Result sick = run({"doctor", "--processor", "mgtestproc"});
  EXPECT_EQ(sick.code, 1);
  EXPECT_THAT(sick.output,
              AllOf(HasSubstr("FAILED  server drivers: " + cause + "\n"),
                    HasSubstr("mgprintmon drivers map PATTERN NAME"), HasSubstr("ok      test page: 107 bytes")));
  const auto watch = machine.start({"watch", "--processor", "mgtestproc"});
  watch->waitForLine(cause +
                     ". Install the driver, or name one that is installed and sends PostScript: mgprintmon install");
  // What is set from now on, the watch takes up by itself.
  installWith({"--driver", "Generic PostScript"});
  watch->waitForLine("printer \"Office (session 5)\" was added");
  watch->signal(SIGINT);
  EXPECT_EQ(watch->wait(), 0) << watch->output();
  EXPECT_THAT(succeed({"doctor", "--processor", "mgtestproc"}), Not(HasSubstr("FAILED")));
}

}  // namespace
}  // namespace tests
