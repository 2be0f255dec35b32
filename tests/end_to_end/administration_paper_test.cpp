// What mgprintmon knows of a job behind its delivery: to the paper of a printer of the session's person.

#include "tests/end_to_end/administration_fixture.h"
#include "tests/end_to_end/wine_prefix.h"
#include "tests/support/paper/virtual_printer.h"

#include <fstream>
#include <future>

namespace tests {
namespace {

using ::testing::AllOf;
using ::testing::HasSubstr;
using ::testing::Not;

class AdministrationOfPaper : public Administration {
 protected:
  // A printer that holds each job until go() and then ends it so.
  void bringUp(const std::string& end) {
    VirtualPrinter::Settings settings;
    settings.then = "while [ ! -e go ]; do sleep 0.05; done; " + end;
    m_printer.emplace(m_place, settings);
    install();
    m_client = scene.startClient(5, {"Desk,driver=Generic PostScript,uri=" + m_printer->uri()});
    up("5");
  }
  void go() const { std::ofstream(m_printer->folder() / "go") << ""; }
  Machine::Result print(const std::vector<std::string>& options) {
    std::vector<std::string> arguments = {"print",   "Desk (session 5)", windowsPath(kLetter),
                                          "--title", "A letter",         "--wait-printed"};
    arguments.insert(arguments.end(), options.begin(), options.end());
    return run(arguments);
  }

  const PaperPlace m_place;
  std::optional<VirtualPrinter> m_printer;
  std::unique_ptr<ChildProcess> m_client;
};

TEST_F(AdministrationOfPaper, PrintWaitsUntilThePaperIsOutAndStatusSaysSo) {
  bringUp("exit 0");
  auto printing = std::async(std::launch::async, [this] { return print({}); });
  m_client->waitForLine("printed \"A letter\": ");
  scene.server().waitForLine("(session 5) is being printed.");
  EXPECT_THAT(succeed({"status"}), HasSubstr("\"A letter\" on \"Desk (session 5)\" (session 5) is being printed."));
  go();
  const Machine::Result printed = printing.get();
  EXPECT_EQ(printed.code, 0);
  EXPECT_THAT(printed.output, AllOf(HasSubstr("on \"Desk (session 5)\" was delivered to the client of session 5"),
                                    HasSubstr("on \"Desk (session 5)\" is being printed\n"),
                                    HasSubstr("on \"Desk (session 5)\" was printed\n")));
  EXPECT_THAT(succeed({"status"}),
              AllOf(HasSubstr("what became of the last jobs at the printers:\n"), Not(HasSubstr("is being printed")),
                    HasSubstr("\"A letter\" on \"Desk (session 5)\" (session 5) was printed.\n")));
  EXPECT_THAT(succeed({"status", "--json"}), HasSubstr("\"state\": \"printed\""));
}

TEST_F(AdministrationOfPaper, PrintFailsWhenThePrinterGivesTheJobUpAndSaysWhy) {
  bringUp("exit 1");
  auto printing = std::async(std::launch::async, [this] { return print({"--json"}); });
  m_client->waitForLine("printed \"A letter\": ");
  go();
  const Machine::Result printed = printing.get();
  EXPECT_EQ(printed.code, 1);
  EXPECT_THAT(printed.output, AllOf(HasSubstr("\"result\": \"delivered\""), HasSubstr("\"paper\": \"aborted\""),
                                    HasSubstr("\"cause\": \"The printer gave the job up (\\\"Job aborted\\\").\"")));
}

TEST_F(AdministrationOfPaper, PrintWaitsNoLongerThanItIsTold) {
  bringUp("exit 0");
  const Machine::Result printed = print({"--timeout", "0"});
  EXPECT_EQ(printed.code, 7);
  EXPECT_THAT(printed.output, HasSubstr("--timeout waits longer; mgprintmon status shows what is told later."));
  go();
  m_client->waitForLine("\"A letter\" on \"Desk\" has come out");
}

TEST_F(AdministrationOfPaper, AClientThatPrintsNothingIsNotWaitedFor) {
  install();
  const auto client = scene.startClient(5, {"Desk,driver=Generic PostScript"});
  up("5");
  const Machine::Result printed = print({});
  EXPECT_EQ(printed.code, 0);
  EXPECT_THAT(printed.output,
              HasSubstr("on \"Desk (session 5)\" is where the print client puts it, in a folder or with "
                        "a program; of paper nobody tells there\n"));
}

}  // namespace
}  // namespace tests
