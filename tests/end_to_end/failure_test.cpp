#include "tests/end_to_end/fixture.h"

#include <filesystem>
#include <gmock/gmock.h>
#include <signal.h>

namespace tests {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

const char kPdf[] = "Laser-2,driver=Generic PostScript,format=pdf";
const char kRaw[] = "Laser-2,driver=Generic PostScript,format=raw";

TEST_F(EndToEnd, APrinterThatNoClientBringsIsRefusedByName) {
  const auto client = scene.startClient(5, {kPdf});
  const auto print = spooler.print("Ghost (session 5)", file("job", page("hello")));
  expectNotPrinted(*print, "not printed: StartDocPort failed", 5);
  EXPECT_THAT(moduleLog(), HasSubstr("Failed to get the printer's information: Ghost (session 5), print job #"));
  scene.server().waitForLine("Ghost (session 5)");
}

TEST_F(EndToEnd, APrinterThatTheSpoolerDoesNotHaveIsRefusedByName) {
  const auto client = scene.startClient(5, {kPdf});
  const auto print = spooler.print("No such printer", file("job", page("hello")));
  expectNotPrinted(*print, "printer \"No such printer\" cannot be opened", 5);
}

TEST_F(EndToEnd, AMissingConverterIsNamedAndNothingIsPrinted) {
  const auto client = scene.startClient(5, {kPdf});
  std::filesystem::remove(root / "Programs" / "ps2pdf.exe");
  const auto print = spooler.print(kPrinter, file("job", page("hello")));
  expectNotPrinted(*print, "not printed: EndDocPort failed", 5);
  EXPECT_THAT(moduleLog(), HasSubstr("Failed to normalize print job: "));
  EXPECT_THAT(moduleLog(), HasSubstr("Programs\\ps2pdf.exe"));
}

TEST_F(EndToEnd, PostScriptWithAnErrorIsReportedInGhostscriptsWords) {
  const auto client = scene.startClient(5, {kPdf});
  const auto print = spooler.print(kPrinter, file("job", page("hello") + "nosuchname\n"));
  expectNotPrinted(*print, "not printed: EndDocPort failed", 5);
  EXPECT_THAT(moduleLog(), HasSubstr("normalizer log: ps2pdf: Ghostscript: undefined in nosuchname. The PostScript of "
                                     "this document is in error: 1 page came."));
  client->waitForLine("not printed \"job\": no data came; the conversion of the job has failed");
  EXPECT_THAT(client->waitForLine("the server says why \"job\" for \"Laser-2\" was not printed: "),
              HasSubstr("Ghostscript: undefined in nosuchname"));
}

TEST_F(EndToEnd, AnEmptyFileIsNotPrinted) {
  const auto client = scene.startClient(5, {kPdf});
  const auto print = spooler.print(kPrinter, file("job", ""));
  expectNotPrinted(*print, "not printed: EndDocPort failed", 5);
  EXPECT_THAT(moduleLog(), HasSubstr("Failed to open print job file: "));
}

TEST_F(EndToEnd, AClientKilledInTheMiddlePrintsNothingAndTheNextOneGetsTheNextJob) {
  auto client = scene.startClient(5, {kRaw});
  const auto print = spooler.print(kPrinter, file("job", std::string(64u << 20, 'x')), {"--write-size", "4096"});
  client->waitForLine("receiving \"job\"");
  client->signal(SIGKILL);
  client->wait();
  EXPECT_EQ(print->wait(), 1);
  EXPECT_THAT(print->output(), HasSubstr("was not printed: "));
  EXPECT_THAT(moduleLog(), HasSubstr("Failed to send print job data"));
  scene.server().waitForLine("session 5: the print client has gone");

  client = scene.startClient(5, {kRaw});
  EXPECT_THAT(scene.files(5), IsEmpty());
  const auto again = spooler.print(kPrinter, file("job", page("hello")), {"--title", "again"});
  EXPECT_EQ(again->wait(), 0) << again->output();
  EXPECT_THAT(scene.files(5), ElementsAre("again.ps"));
}

TEST_F(EndToEnd, AJobWaitsForAServerThatIsNotRunningAndIsPrintedThen) {
  scene.server().signal(SIGKILL);
  scene.server().wait();
  const auto print = spooler.print(kPrinter, file("job", page("hello")), {"--title", "late"});
  waitForModuleLog("connect");
  // The module has just failed to connect; its next attempt is seconds away, and by then the client is there.
  scene.restartServer();
  const auto client = scene.startClient(5, {kPdf});
  EXPECT_EQ(print->wait(), 0) << print->output();
  EXPECT_THAT(scene.files(5), ElementsAre("late.pdf"));
}

}  // namespace
}  // namespace tests
