// From the monitor's request to the paper: aps, TLS, the print client and a printer.

#include "corvane/base/text.h"
#include "tests/processes/administration_peer.h"
#include "tests/processes/keys.h"
#include "tests/processes/monitor_peer.h"
#include "tests/processes/scene.h"
#include "tests/support/paper/print_scheduler.h"
#include "tests/support/paper/virtual_printer.h"

#include <fstream>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <optional>
#include <signal.h>

namespace tests {
namespace {

using corvane::Identity;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;
using ::testing::StartsWith;

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
    std::vector<std::string> tls = {"--server", m_address, "--tls"};
    tls.insert(tls.end(), options.begin(), options.end());
    return start(tls);
  }
  std::unique_ptr<ChildProcess> start(const std::vector<std::string>& options) const {
    std::vector<std::string> command = {Scene::program("printclient"), "--session", "5", "--key",
                                        m_keys.path("session-5"),      "--pace",    "5"};
    command.insert(command.end(), options.begin(), options.end());
    return std::make_unique<ChildProcess>(command);
  }
  // The print client's answer to the end of the job.
  int print(const std::wstring& printer, int copies, int number = 17) const {
    MonitorPeer peer(m_scene->port(), Identity::monitor(), m_keys.path("monitor"));
    EXPECT_TRUE(peer.attach(printer + L" (session 5)"));
    const std::wstring name = printer + L" (session 5) - Job #" + std::to_wstring(number);
    peer.startJob({name, printer, L"A letter", L"RAW"}, {1, 1, 1, 1}, copies);
    peer.writeJob(kPostScript);
    return peer.endJob();
  }

  // The states that aps was told of that job, in order, once it is told the last one.
  std::vector<std::wstring> statesUntil(const std::wstring& last, const std::wstring& job = L"17") const {
    AdministrationPeer tool(m_scene->port(), m_keys.path("monitor"));
    std::vector<std::wstring> states;
    for (int after = 0; states.empty() || states.back() != last;) {
      const auto notices = tool.notices(after, 5000);
      after = notices.latest;
      for (const auto& notice : notices.list) {
        if (notice.kind == L"paper" && valueOf(notice, L"job") == job) states.push_back(valueOf(notice, L"state"));
      }
    }
    return states;
  }
  static std::wstring valueOf(const AdministrationPeer::Notice& notice, const std::wstring& name) {
    for (const auto& [key, value] : notice.values) {
      if (key == name) return value;
    }
    return L"";
  }
  // A printer whose jobs come out when the file "go" is in its folder; what is said meanwhile comes first. What still
  // waits when the printer is gone ends with its folder.
  VirtualPrinter::Settings waiting(const std::string& meanwhile = "", const std::string& end = "exit 0") const {
    VirtualPrinter::Settings settings;
    settings.then = meanwhile + "\nwhile [ -e command ] && [ ! -e go ]; do sleep 0.05; done\n" + end;
    return settings;
  }
  static void letGo(const VirtualPrinter& printer) { std::ofstream(printer.folder() / "go") << ""; }

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
  // The record has the client's words, and not only that it did not print.
  AdministrationPeer tool(m_scene->port(), m_keys.path("monitor"));
  const auto record = tool.jobs(1).at(0);
  EXPECT_EQ(record.state, 6);
  const std::string cause = corvane::toUtf8(record.cause.substr(1)), remedy = corvane::toUtf8(record.remedy.substr(1));
  EXPECT_THAT(line, HasSubstr(cause.substr(0, cause.size() - 1) + " (printer"));
  EXPECT_THAT(line, HasSubstr(remedy.substr(0, remedy.size() - 1)));
  std::printf("%s %s\n", corvane::toUtf8(record.cause).c_str(), corvane::toUtf8(record.remedy).c_str());
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

TEST_F(PaperTest, WhenAJobIsPrintedTheServerAndThePersonKnowThatItHasComeOut) {
  VirtualPrinter printer(m_place, waiting());
  const auto client = startClient({"--printer", "Desk,uri=" + printer.uri()});
  client->waitForLine("ready: ");
  EXPECT_EQ(print(L"Desk", 1), 1);
  client->waitForLine("printed \"A letter\": ");
  EXPECT_THAT(statesUntil(L"printing"), ElementsAre(L"printing"));
  letGo(printer);
  EXPECT_EQ(client->waitForLine("\"A letter\" on \"Desk\" "), "\"A letter\" on \"Desk\" has come out");
  EXPECT_THAT(statesUntil(L"printed"), ElementsAre(L"printing", L"printed"));
  m_scene->server().waitForLine("session 5: Job 17 \"A letter\" on \"Desk (session 5)\" (session 5) was printed.");
}

TEST_F(PaperTest, PaperThatRunsOutIsSaidAndSoIsTheEndWhenThereIsSome) {
  const std::string runsOut =
      "while [ -e command ] && [ ! -e printing ]; do sleep 0.05; done; echo 'STATE: +media-needed' >&2; "
      "while [ -e command ] && [ ! -e paper ]; do sleep 0.05; done; echo 'STATE: -media-needed' >&2";
  VirtualPrinter printer(m_place, waiting(runsOut));
  const auto client = startClient({"--printer", "Desk,uri=" + printer.uri()});
  client->waitForLine("ready: ");
  EXPECT_EQ(print(L"Desk", 1), 1);
  client->waitForLine("printed \"A letter\": ");
  std::ofstream(printer.folder() / "printing") << "";
  EXPECT_THAT(client->waitForLine("\"A letter\" on \"Desk\" "),
              StartsWith("\"A letter\" on \"Desk\" is held up: the printer wants paper that is not in it"));
  m_scene->server().waitForLine(
      "session 5: Job 17 \"A letter\" on \"Desk (session 5)\" (session 5) is held up at the printer: The printer wants "
      "paper that is not in it");
  EXPECT_THAT(statesUntil(L"stopped"), ElementsAre(L"printing", L"stopped"));
  std::ofstream(printer.folder() / "paper") << "";
  client->waitForLine("\"A letter\" on \"Desk\" is being printed");
  letGo(printer);
  client->waitForLine("\"A letter\" on \"Desk\" has come out");
  EXPECT_THAT(statesUntil(L"printed"), ElementsAre(L"printing", L"stopped", L"printing", L"printed"));
}

TEST_F(PaperTest, AJobThatWaitsInAPausedQueueAndIsCanceledThereIsSaidToBe) {
  PrintScheduler scheduler(m_place);
  VirtualPrinter printer(m_place);
  scheduler.addQueue("desk", printer.uri());
  const auto client = startClient({"--printer", "Desk,queue=desk"});
  client->waitForLine("ready: ");
  scheduler.administer({"/usr/sbin/cupsdisable", "-r", "out for lunch", "desk"});
  EXPECT_EQ(print(L"Desk", 1), 1);
  client->waitForLine("where it waits: the printer is stopped (\"out for lunch\")");
  EXPECT_THAT(statesUntil(L"stopped"), ElementsAre(L"stopped"));
  scheduler.administer({"/usr/bin/cancel", "desk-1"});
  client->waitForLine("\"A letter\" on \"Desk\" was canceled: the printer ");
  EXPECT_THAT(statesUntil(L"canceled"), ElementsAre(L"stopped", L"canceled"));
  EXPECT_THAT(printer.printed(), IsEmpty());
}

TEST_F(PaperTest, AnAdministratorCancelsAJobThatThePersonsPrinterHas) {
  PrintScheduler scheduler(m_place);
  VirtualPrinter printer(m_place);
  scheduler.addQueue("desk", printer.uri());
  const auto client = startClient({"--printer", "Desk,queue=desk"});
  client->waitForLine("ready: ");
  scheduler.administer({"/usr/sbin/cupsdisable", "-r", "out for lunch", "desk"});
  ASSERT_EQ(print(L"Desk", 1), 1);
  EXPECT_THAT(statesUntil(L"stopped"), ElementsAre(L"stopped"));
  AdministrationPeer tool(m_scene->port(), m_keys.path("monitor"));
  const auto [isDone, text] = tool.cancel(1, L"PC\\admin");
  EXPECT_TRUE(isDone);
  EXPECT_EQ(text, L"job 1 \"A letter\" on \"Desk (session 5)\" is canceled at its printer");
  EXPECT_EQ(tool.jobs(1).at(0).state, 7);
  EXPECT_EQ(tool.jobs(1).at(0).cause, L"It was canceled by PC\\admin.");
  // The one is said once the printer has agreed, the other by whoever follows the job, who may see it first.
  client->waitForLines({"PC\\admin cancels a job at \"Desk\"", "\"A letter\" on \"Desk\" was canceled"});
  EXPECT_EQ(tool.cancel(1, L"PC\\admin").second, L"job 1 \"A letter\" on \"Desk (session 5)\" has ended");
  scheduler.administer({"/usr/sbin/cupsenable", "desk"});
  ASSERT_EQ(print(L"Desk", 1, 18), 1);
  PaperPlace::waitUntil("the next page", [&] { return !printer.printed().empty(); });
  EXPECT_EQ(printer.printed().size(), 1u) << "what was canceled came out all the same";
}

TEST_F(PaperTest, APrinterOrAClientThatCannotBeToldToCancelIsSaidToTheAdministrator) {
  VirtualPrinter printer(m_place, waiting());
  auto client = startClient({"--printer", "Desk,uri=" + printer.uri()});
  client->waitForLine("ready: ");
  ASSERT_EQ(print(L"Desk", 1), 1);
  AdministrationPeer tool(m_scene->port(), m_keys.path("monitor"));
  while (tool.jobs(1).at(0).state != 2) {
  }
  printer.switchOff();
  const auto [isDone, text] = tool.cancel(1, L"PC\\admin");
  EXPECT_FALSE(isDone);
  EXPECT_THAT(
      corvane::toUtf8(text),
      StartsWith("job 1 \"A letter\" on \"Desk (session 5)\" is at its printer still: The printer could not be told to "
                 "cancel the job: "));
  EXPECT_THAT(corvane::toUtf8(text), ::testing::EndsWith(". Cancel it at the printer."));
  client.reset();
  const auto isAway = [&] {
    return corvane::toUtf8(tool.cancel(1, L"PC\\admin").second) ==
           "job 1 \"A letter\" on \"Desk (session 5)\" is at its printer: the print client of session 5 is away: "
           "cancel it at "
           "the printer, or when the client is back";
  };
  while (!isAway()) {
  }
  EXPECT_EQ(tool.jobs(1).at(0).state, 2);
}

TEST_F(PaperTest, AJobThatThePrinterGivesUpLaterIsSaidToBeNotPrintedThoughItsQueueMayCallItCompleted) {
  PrintScheduler scheduler(m_place);
  VirtualPrinter printer(m_place, waiting("", "exit 1"));
  scheduler.addQueue("desk", printer.uri());
  const auto client = startClient({"--printer", "Desk,queue=desk", "--printer", "Straight,uri=" + printer.uri()});
  client->waitForLine("ready: ");
  EXPECT_EQ(print(L"Desk", 1), 1);
  client->waitForLine("printed \"A letter\": ");
  letGo(printer);
  EXPECT_EQ(
      client->waitForLine("\"A letter\" on \"Desk\" "),
      "\"A letter\" on \"Desk\" was not printed after all: the printer gave the job up (\"Job aborted\"); see what "
      "it shows and what its log says, and print again");
  EXPECT_THAT(statesUntil(L"aborted"), ElementsAre(L"printing", L"aborted"));
}

TEST_F(PaperTest, APrinterThatSaysNothingMoreHoldsUpNoOtherJobAndNotTheEndOfTheClient) {
  VirtualPrinter dead(m_place, waiting());
  VirtualPrinter living(m_place, waiting());
  const auto client = startClient({"--printer", "Dead,uri=" + dead.uri(), "--printer", "Living,uri=" + living.uri()});
  client->waitForLine("ready: ");
  EXPECT_EQ(print(L"Dead", 1, 17), 1);
  EXPECT_EQ(print(L"Living", 1, 18), 1);
  dead.process().signal(SIGSTOP);
  letGo(living);
  client->waitForLine("\"A letter\" on \"Living\" has come out");
  EXPECT_THAT(statesUntil(L"printed", L"18"), ElementsAre(L"printing", L"printed"));
  client->signal(SIGTERM);
  EXPECT_EQ(client->wait(), 0);
  dead.process().signal(SIGCONT);
  letGo(dead);
}

TEST_F(PaperTest, AJobThatIsFollowedIsToldOnANewConnectionToo) {
  VirtualPrinter printer(m_place, waiting());
  const auto client =
      start({"--server", "127.0.0.1:" + std::to_string(m_scene->port()), "--printer", "Desk,uri=" + printer.uri()});
  client->waitForLine("ready: ");
  EXPECT_EQ(print(L"Desk", 1), 1);
  m_scene->restartServer();
  client->waitForLine("ready: ");
  letGo(printer);
  EXPECT_THAT(statesUntil(L"printed"), ElementsAre(L"printed"));
}

TEST_F(PaperTest, AJobThatGoesToNoPaperIsSaidToBeWhereTheClientPutsIt) {
  const auto client = startClient({"--printer", "Desk", "--output", m_place.folder("out").string()});
  client->waitForLine("ready: ");
  EXPECT_EQ(print(L"Desk", 1), 1);
  EXPECT_THAT(statesUntil(L"handed on"), ElementsAre(L"handed on"));
}

}  // namespace
}  // namespace tests
