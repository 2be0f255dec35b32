#include "tests/end_to_end/fixture.h"

#include <gmock/gmock.h>
#include <map>

namespace tests {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::MatchesRegex;
using ::testing::Not;
using ::testing::UnorderedElementsAre;

using Application = EndToEnd;

TEST_F(Application, ADrawingOfTwoPagesInThreeCopiesArrivesAsAPdfWithItsTextPicturesAndCopies) {
  const auto client = scene.startClient(5, {"Laser-2,driver=Generic PostScript,format=pdf"});
  const auto application = spooler.draw(kPrinter, "Drawing", {"first page", "second page"}, {"--copies", "3"});
  EXPECT_EQ(application->wait(), 0) << application->output();
  EXPECT_THAT(client->waitForLine("receiving \"Drawing\""), HasSubstr("3 copies"));
  ASSERT_THAT(scene.files(5), ElementsAre("Drawing.pdf"));
  const std::string pdf = scene.output(5) / "Drawing.pdf";
  EXPECT_THAT(outputOf({"pdfinfo", pdf}), HasSubstr("Pages:           2\n"));
  const std::string first = outputOf({"pdftotext", "-l", "1", pdf, "-"});
  EXPECT_THAT(first, HasSubstr("first page"));
  EXPECT_THAT(first, Not(HasSubstr("second page")));
  EXPECT_THAT(outputOf({"pdftotext", "-f", "2", pdf, "-"}), HasSubstr("second page"));
  // One line of headings, one of dashes, and the picture of each page in its own size.
  EXPECT_THAT(outputOf({"pdfimages", "-list", pdf}),
              MatchesRegex("page [^\n]*\n-+\n +1 +0 +image +64 +64 [^\n]*\n +2 +1 +image +64 +64 [^\n]*\n"));
}

TEST_F(Application, PlainTextForARawPrinterArrivesByteForByte) {
  const auto client = scene.startClient(5, {"Ink,driver=Generic PostScript,format=raw"});
  const std::string text = "Dear reader,\r\n\tall is well: 100 % \xE4\xF6\xFC.\r\n\f";
  const auto print = spooler.print("Ink (session 5)", file("note", text), {"--title", "A note"});
  EXPECT_EQ(print->wait(), 0) << print->output();
  client->waitForLine("printed \"A note\"");
  ASSERT_THAT(scene.files(5), ElementsAre(testing::StartsWith("A note")));
  EXPECT_EQ(scene.content(5, scene.files(5)[0]), text);
}

TEST_F(Application, FourSessionsWithTwoPrintersEachPrintAtTheSameTimeAndEachDocumentArrivesOnceAtItsOwnClient) {
  const std::vector<int> sessions = {5, 6, 7, 8};
  std::vector<std::unique_ptr<ChildProcess>> clients;
  for (const int session : sessions) {
    clients.push_back(scene.startClient(
        session, {"Laser-2,driver=Generic PostScript,format=pdf", "Ink,driver=Generic PostScript,format=raw"}));
  }
  std::vector<std::unique_ptr<ChildProcess>> applications;
  std::map<int, std::string> data;
  for (const int session : sessions) {
    const std::string number = std::to_string(session);
    const std::string of = " (session " + number + ")";
    for (int i = 0; i < 200000; ++i)
      data[session] += static_cast<char>(i * (session + 26) % 251);
    applications.push_back(spooler.draw("Laser-2" + of, "Drawing " + number, {"drawn in session " + number}));
    applications.push_back(
        spooler.print("Ink" + of, file("bytes" + number, data[session]), {"--title", "Bytes " + number}));
  }
  for (const auto& application : applications)
    EXPECT_EQ(application->wait(), 0) << application->output();
  for (const int session : sessions) {
    const std::string number = std::to_string(session);
    ASSERT_THAT(scene.files(session),
                UnorderedElementsAre("Drawing " + number + ".pdf", testing::StartsWith("Bytes " + number)));
    EXPECT_EQ(scene.content(session, scene.files(session)[0]), data[session]);
    EXPECT_THAT(outputOf({"pdftotext", scene.output(session) / ("Drawing " + number + ".pdf"), "-"}),
                HasSubstr("drawn in session " + number));
  }
}

}  // namespace
}  // namespace tests
