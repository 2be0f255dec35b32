// From the monitor's request to the paper: aps, TLS, the print client and a printer.

#include "tests/processes/keys.h"
#include "tests/processes/monitor_peer.h"
#include "tests/processes/scene.h"
#include "tests/support/paper/print_scheduler.h"
#include "tests/support/paper/virtual_printer.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <optional>

namespace tests {
namespace {

using corvane::Identity;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::Not;

const std::string kPostScript = "%!PS-Adobe-3.0\n%%Pages: 1\n%%EOF\nshowpage\n";

class PaperTest : public ::testing::Test {
 protected:
  PaperTest() {
    m_keys.make("monitor");
    m_keys.make("session-5");
    std::vector<std::string> options = m_keys.serverOptions();
    // Faster on both sides, as signs of life are; what is followed is looked at every second then.
    options.insert(options.end(), {"--listen-clients", "127.0.0.1:0", "--pace", "5"});
    m_scene.emplace(options);
    const std::string line = m_scene->server().waitForLine("aps listens for print clients on ");
    m_address = line.substr(line.rfind(' ') + 1);
  }

  std::unique_ptr<ChildProcess> startClient(const std::vector<std::string>& options) const {
    std::vector<std::string> command = {
        Scene::program("printclient"), "--server", m_address, "--tls", "--session", "5", "--key",
        m_keys.path("session-5"),      "--pace",   "5"};
    command.insert(command.end(), options.begin(), options.end());
    return std::make_unique<ChildProcess>(command);
  }
  // The print client's answer to the end of the job.
  int print(const std::wstring& printer, int copies) const {
    MonitorPeer peer(m_scene->port(), Identity::monitor(), m_keys.path("monitor"));
    EXPECT_TRUE(peer.attach(printer + L" (session 5)"));
    peer.startJob({L"j", printer, L"A letter", L"RAW"}, {1, 1, 1, 1}, copies);
    peer.writeJob(kPostScript);
    return peer.endJob();
  }

  const PaperPlace m_place;
  const Keys m_keys;
  std::optional<Scene> m_scene;
  std::string m_address;
};

TEST_F(PaperTest, AJobOverTheNetworkComesOutOfThePersonsPrinterOnceWithItsCopiesAndItsTitle) {
  VirtualPrinter printer(m_place);
  const auto client = startClient({"--printer", "Desk,uri=" + printer.uri()});
  client->waitForLine("ready: the server knows \"Desk (session 5)\"");
  EXPECT_EQ(print(L"Desk", 3), 1);
  client->waitForLine("printed \"A letter\": ");
  PaperPlace::waitUntil("the page", [&] { return !printer.printed().empty(); });
  EXPECT_THAT(printer.printed(), ElementsAre(kPostScript));
  EXPECT_EQ(printer.said(0, "IPP_COPIES"), "3");
  EXPECT_EQ(printer.said(0, "IPP_JOB_NAME"), "A letter");
}

TEST_F(PaperTest, AJobForAPrinterThatIsOffIsNotPrintedAndBothSidesKnowWhy) {
  VirtualPrinter printer(m_place);
  const auto client = startClient({"--printer", "Desk,uri=" + printer.uri()});
  client->waitForLine("ready: ");
  printer.switchOff();
  EXPECT_LT(print(L"Desk", 1), 0);
  const std::string line = client->waitForLine("not printed \"A letter\": ");
  EXPECT_THAT(line, HasSubstr("printer \"Desk\", session 5"));
  printer.switchOn();
  EXPECT_EQ(print(L"Desk", 1), 1);
  PaperPlace::waitUntil("the page", [&] { return !printer.printed().empty(); });
  EXPECT_THAT(printer.printed(), ElementsAre(kPostScript)) << "what was not printed came out all the same";
}

TEST_F(PaperTest, WithoutAnyPrinterNamedThoseOfThePersonComeAlongAndPrint) {
  PrintScheduler scheduler(m_place);
  VirtualPrinter printer(m_place);
  scheduler.addQueue("desk", printer.uri());
  const auto client = startClient({});
  client->waitForLine("ready: the server knows \"desk (session 5)\"");
  EXPECT_EQ(print(L"desk", 2), 1);
  PaperPlace::waitUntil("the page", [&] { return !printer.printed().empty(); });
  EXPECT_EQ(printer.printed().size(), 1u);
  EXPECT_EQ(printer.said(0, "IPP_JOB_NAME"), "A letter");
}

TEST_F(PaperTest, PrintersThatComeAndGoAreFollowedOnTheConnectionThatIsThere) {
  PrintScheduler scheduler(m_place);
  VirtualPrinter printer(m_place);
  scheduler.addQueue("desk", printer.uri());
  const auto client = startClient({});
  client->waitForLine("ready: the server knows \"desk (session 5)\"");
  scheduler.addQueue("hall", printer.uri());
  client->waitForLine("the printers have changed: the server knows \"desk (session 5)\", \"hall (session 5)\"");
  EXPECT_EQ(print(L"hall", 1), 1);
  scheduler.administer({"/usr/sbin/lpadmin", "-x", "desk"});
  client->waitForLine("the printers have changed: the server knows \"hall (session 5)\"");
  MonitorPeer peer(m_scene->port(), Identity::monitor(), m_keys.path("monitor"));
  EXPECT_FALSE(peer.printerInfo(L"desk (session 5)"));
  EXPECT_TRUE(peer.printerInfo(L"hall (session 5)"));
  EXPECT_THAT(client->output(), Not(HasSubstr("the connection to the server is lost")));
}

}  // namespace
}  // namespace tests
