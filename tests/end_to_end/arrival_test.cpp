#include "tests/end_to_end/fixture.h"

#include <gmock/gmock.h>

namespace tests {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;

const char kLetter[] = MG_SOURCE_DIR "/examples/letter.ps";

TEST_F(EndToEnd, ALetterArrivesAsAPdfOfTwoPagesWithItsText) {
  const auto client = scene.startClient(5, {"Laser-2,driver=Generic PostScript,format=pdf"});
  const auto print = spooler.print(kPrinter, kLetter, {"--title", "A letter"});
  EXPECT_EQ(print->wait(), 0) << print->output();
  EXPECT_THAT(print->output(), HasSubstr("on \"Laser-2 (session 5)\" was printed"));
  client->waitForLine("printed \"A letter\"");
  ASSERT_THAT(scene.files(5), ElementsAre("A letter.pdf"));
  const std::string pdf = scene.output(5) / "A letter.pdf";
  EXPECT_THAT(outputOf({"pdfinfo", pdf}), HasSubstr("Pages:           2\n"));
  const std::string text = outputOf({"pdftotext", pdf, "-"});
  EXPECT_THAT(text, HasSubstr("The new lamp, and what the printer has to do with it"));
  EXPECT_THAT(text, HasSubstr("Ships counted at the point"));
}

TEST_F(EndToEnd, ARawPrinterGetsTheBytesThatWerePrinted) {
  const auto client = scene.startClient(5, {"Laser-2,driver=Generic PostScript,format=raw"});
  std::string bytes;
  for (int i = 0; i < 300000; ++i)
    bytes += static_cast<char>(i * 31 % 251);
  for (const char* size : {"1000", "65536", "300000"}) {
    const auto print =
        spooler.print(kPrinter, file("bytes", bytes), {"--title", std::string("by ") + size, "--write-size", size});
    EXPECT_EQ(print->wait(), 0) << print->output();
  }
  ASSERT_EQ(scene.files(5).size(), 3u);
  for (const std::string& name : scene.files(5))
    EXPECT_EQ(scene.content(5, name), bytes) << name;
}

TEST_F(EndToEnd, PostScriptPrinterGetsThePostScriptThatWasPrinted) {
  const auto client = scene.startClient(5, {"Laser-2,driver=Generic PostScript,format=ps"});
  const auto print = spooler.print(kPrinter, file("job", page("hello")), {"--title", "hello"});
  EXPECT_EQ(print->wait(), 0) << print->output();
  ASSERT_THAT(scene.files(5), ElementsAre("hello.ps"));
  EXPECT_EQ(scene.content(5, "hello.ps"), page("hello"));
}

TEST_F(EndToEnd, DocumentsOfTwoSessionsAtTheSameTimeArriveAtTheirOwnClientsOnly) {
  const auto client5 = scene.startClient(5, {"Laser-2,driver=Generic PostScript,format=pdf"});
  const auto client6 = scene.startClient(6, {"Laser-2,driver=Generic PostScript,format=pdf"});
  const auto print5 = spooler.print(kPrinter, file("five", page("for session five")), {"--title", "five"});
  const auto print6 = spooler.print("Laser-2 (session 6)", file("six", page("for session six")), {"--title", "six"});
  EXPECT_EQ(print5->wait(), 0) << print5->output();
  EXPECT_EQ(print6->wait(), 0) << print6->output();
  ASSERT_THAT(scene.files(5), ElementsAre("five.pdf"));
  ASSERT_THAT(scene.files(6), ElementsAre("six.pdf"));
  EXPECT_THAT(outputOf({"pdftotext", scene.output(5) / "five.pdf", "-"}), HasSubstr("for session five"));
  EXPECT_THAT(outputOf({"pdftotext", scene.output(6) / "six.pdf", "-"}), HasSubstr("for session six"));
}

TEST_F(EndToEnd, CopiesOfTheSpoolersDeviceModeReachTheClient) {
  const auto client = scene.startClient(5, {"Laser-2,driver=Generic PostScript,format=raw"});
  const auto print = spooler.print(kPrinter, file("job", page("hello")), {"--title", "hello", "--copies", "3"});
  EXPECT_EQ(print->wait(), 0) << print->output();
  EXPECT_THAT(client->waitForLine("receiving \"hello\""), HasSubstr("3 copies"));
}

}  // namespace
}  // namespace tests
