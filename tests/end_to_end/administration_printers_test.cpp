// The printers of a person, as they are on the person's machine: on the server, too.

#include "tests/end_to_end/administration_fixture.h"
#include "tests/processes/monitor_peer.h"
#include "tests/support/paper/print_scheduler.h"
#include "tests/support/paper/virtual_printer.h"

#include <fstream>
#include <signal.h>

namespace tests {
namespace {

using ::testing::HasSubstr;

// Both sides are faster, as signs of life are; the person's printers are looked at every second then.
class AdministrationOfPersonsPrinters : public Administration {
 protected:
  AdministrationOfPersonsPrinters() : Administration({"--pace", "5"}) {
    succeed({"install", "--no-services", "--no-keys", "--port", std::to_string(scene.port()), "--driver",
             "Generic PostScript"});
  }

  std::unique_ptr<ChildProcess> startClient() const {
    std::vector<std::string> command = scene.clientCommand(5, {});
    command.insert(command.end(), {"--pace", "5"});
    return std::make_unique<ChildProcess>(command);
  }
};

TEST_F(AdministrationOfPersonsPrinters, TheWatchFollowsThoseThatAppearVanishOrBecomeTheDefault) {
  // Before there is a scheduler: Wine's own spooler would take its queues for printers of this machine.
  const auto watch = machine.start({"watch", "--processor", "mgtestproc"});
  watch->waitForLine("watching the sessions");
  const PaperPlace place;
  const PrintScheduler scheduler(place);
  const std::string nowhere = "socket://127.0.0.1:1";
  scheduler.addQueue("desk", nowhere, {"-m", "raw"});
  const auto client = startClient();
  client->waitForLine("ready: the server knows \"desk (session 5)\"");
  watch->waitForLine("printer \"desk (session 5)\" was added");
  scheduler.addQueue("hall", nowhere, {"-m", "raw"});
  watch->waitForLine("printer \"hall (session 5)\" was added");
  scheduler.administer({"/usr/sbin/lpadmin", "-d", "hall"});
  watch->waitForLine("session 5: the client's default printer is \"hall (session 5)\"");
  scheduler.administer({"/usr/sbin/lpadmin", "-x", "desk"});
  watch->waitForLine("printer \"desk (session 5)\" was removed");
  watch->signal(SIGINT);
  EXPECT_EQ(watch->wait(), 0) << watch->output();
}

TEST_F(AdministrationOfPersonsPrinters, WhatTheyCanDoIsToldToTheServer) {
  std::unique_ptr<ChildProcess> client;
  {
    const PaperPlace place;
    const VirtualPrinter printer(place);
    const PrintScheduler scheduler(place);
    scheduler.addQueue("desk", printer.uri(), {"-m", "everywhere", "-D", "By the door"});
    client = startClient();
    client->waitForLine("ready: the server knows \"desk (session 5)\"");
  }
  // The scheduler has gone, and what is not told is not taken for a printer that vanished.
  const std::string listed = succeed({"session", "list", "--json"});
  EXPECT_THAT(listed, HasSubstr("\"resolution\": 600"));
  EXPECT_THAT(listed, HasSubstr("\"comment\": \"By the door, black and white, one-sided, 600 dpi, paper Letter, A4, "
                                "Env10, EnvDL, Legal\""));
}

TEST_F(AdministrationOfPersonsPrinters,
       ThoseOfAPersonOnWindowsComeWithTheirDriversAndGetThemHereWhereTheyAreInstalled) {
  machine.addPrinter("Desk");
  {
    ChildProcess client(WinePrefix::command(
        windowsProgram("printclient.exe"),
        {"--server", "127.0.0.1:" + std::to_string(scene.port()), "--session", "5", "--only", "Desk", "--pace", "5"}));
    client.waitForLine("ready: the server knows \"Desk (session 5)\"");
    const std::string listed = succeed({"session", "list", "--json"});
    EXPECT_THAT(listed, HasSubstr("\"driver\": \"Generic PostScript\""));
    EXPECT_THAT(listed, HasSubstr("\"resolution\": 300"));
    EXPECT_THAT(listed, HasSubstr("\"comment\": \"colour, one-sided, 300 dpi, paper "));
    EXPECT_THAT(succeed({"session", "up", "5", "--processor", "mgtestproc"}),
                HasSubstr("printer \"Desk (session 5)\" was added\n"));
    client.signal(SIGINT);
    EXPECT_EQ(client.wait(), 0) << client.output();
  }
  machine.removePrinter("Desk");
}

TEST_F(AdministrationOfPersonsPrinters, AJobForAPersonOnWindowsGoesThroughThatMachinesSpoolerByteForByte) {
  const std::filesystem::path tray = scene.folder() / "tray";
  std::ofstream(tray) << "";  // what is there is taken for a file
  machine.addPrinterIntoFile("Tray", tray);
  std::string data = "%!PS-Adobe-3.0\n";
  for (int i = 0; i < 300000; ++i)
    data += static_cast<char>(i * 7 % 251);
  {
    ChildProcess client(WinePrefix::command(
        windowsProgram("printclient.exe"),
        {"--server", "127.0.0.1:" + std::to_string(scene.port()), "--session", "5", "--only", "Tray", "--pace", "5"}));
    client.waitForLine("ready: the server knows \"Tray (session 5)\"");
    MonitorPeer peer(scene.port());
    ASSERT_TRUE(peer.attach(L"Tray (session 5)"));
    peer.startJob({L"j", L"Tray", L"A letter", L"RAW"}, {1, 1, 1, 1});
    peer.writeJob(data);
    EXPECT_EQ(peer.endJob(), 1);
    client.waitForLine("printed \"A letter\"");
    PaperPlace::waitUntil("the whole document in the tray",
                          [&] { return PaperPlace::read(tray).size() >= data.size(); });
    EXPECT_TRUE(PaperPlace::read(tray) == data);
    client.signal(SIGINT);
    EXPECT_EQ(client.wait(), 0) << client.output();
  }
  machine.removePrinter("Tray");
}

}  // namespace
}  // namespace tests
