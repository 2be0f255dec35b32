#include "converter/completeness.h"

#include "converter/conversion_error.h"

#include <gtest/gtest.h>

namespace mg::converter {
namespace {

using Ending = RunReport::Ending;

// A whole document of 17 pages that all came.
struct Case {
  Announcement announced = {17, false, 17, true, false};
  RunReport report = {Ending::kEndOfDocument, 17, false, false, false, ""};
  PdfPages pages = {17, 0};

  std::wstring verdict() const { return ending().text(); }
  // What ps2pdf.exe ends with.
  ExitCode code() const { return ending().code(); }

 private:
  ConversionError ending() const {
    try {
      checkEnding(announced, report);
      checkComplete(announced, report, pages);
    } catch (const ConversionError& error) {
      return error;
    }
    return {ExitCode::kDone, L"complete"};
  }
};

TEST(Completeness, EverythingThatWasAnnouncedCame) {
  EXPECT_EQ(Case().verdict(), L"complete");
}

TEST(Completeness, MorePagesThanAnnouncedAreNoLoss) {
  Case job;
  job.pages.count = 20;
  EXPECT_EQ(job.verdict(), L"complete");
}

TEST(Completeness, ADocumentThatAnnouncesNothingIsTakenAsItComes) {
  Case job;
  job.announced = {};
  job.pages.count = 1;
  EXPECT_EQ(job.verdict(), L"complete");
}

TEST(Completeness, ACutFileIsRefusedWithWhatWasAnnouncedAndWhatCame) {
  Case job;
  job.announced = {17, false, 8, false, false};
  job.pages.count = 8;
  EXPECT_EQ(job.verdict(),
            L"The PDF would not be complete: the file ends before the document does. 17 pages announced, 8 pages came. "
            L"Print the document again from its application.");
}

TEST(Completeness, ACutFileThatPromisesItsNumberForTheEndIsRefusedWhateverCame) {
  Case job;
  job.announced = {-1, true, 8, false, false};
  job.pages.count = 8;
  EXPECT_NE(job.verdict().find(L"the file ends before the document does. 8 pages announced, 8 pages came."),
            std::wstring::npos);
}

TEST(Completeness, AFileWithoutItsEndWhosePagesAllCameIsTaken) {
  Case job;
  job.announced.hasEnd = false;
  EXPECT_EQ(job.verdict(), L"complete");
}

TEST(Completeness, AMissingLastShowpageIsRefused) {
  Case job;
  job.pages = {16, 1};
  EXPECT_NE(job.verdict().find(L"what was drawn last is on no page, because \"showpage\" is missing. 17 pages "
                               L"announced, 16 pages came."),
            std::wstring::npos);
  job.announced = {};
  EXPECT_NE(job.verdict().find(L"\"showpage\" is missing. 16 pages came."), std::wstring::npos);
}

TEST(Completeness, SomethingDrawnBehindTheLastAnnouncedPageIsNoLoss) {
  Case job;
  job.pages.unshown = 1;
  EXPECT_EQ(job.verdict(), L"complete");
  job.announced = {0, false, 0, true, false};
  job.pages.count = 1;
  EXPECT_EQ(job.verdict(), L"complete");
}

TEST(Completeness, PagesThatAreMissingInAWholeFileAreRefused) {
  Case job;
  job.pages.count = 15;
  EXPECT_NE(job.verdict().find(L"pages are missing. 17 pages announced, 15 pages came."), std::wstring::npos);
}

TEST(Completeness, SeveralPagesOnASheetAreNoLoss) {
  Case job;
  for (const int sheets : {9, 10, 6, 5, 3, 2}) {
    job.pages.count = sheets;
    EXPECT_EQ(job.verdict(), L"complete") << sheets;
  }
  for (const int sheets : {16, 13, 11, 8, 7}) {
    job.pages.count = sheets;
    EXPECT_NE(job.verdict(), L"complete") << sheets;
  }
}

TEST(Completeness, ANumberThatNoPageCommentBearsOutIsAWrongNumber) {
  Case job;
  job.announced.pageComments = 0;
  job.pages.count = 3;
  EXPECT_EQ(job.verdict(), L"complete");
  job.announced.pageComments = 4;
  EXPECT_EQ(job.verdict(), L"complete");
}

TEST(Completeness, MissingPagesAfterAnErrorAreRefusedWithIt) {
  Case job;
  job.pages.count = 9;
  job.report.error = "undefined in foo";
  EXPECT_NE(job.verdict().find(L"pages are missing. 17 pages announced, 9 pages came; the first error was undefined in "
                               L"foo."),
            std::wstring::npos);
}

TEST(Completeness, AnErrorThatTheDocumentGotOverIsNoLoss) {
  Case job;
  job.report.error = "undefined in foo";
  EXPECT_EQ(job.verdict(), L"complete");
}

TEST(Completeness, AnErrorThatTheDocumentReportsIsRefused) {
  Case job;
  job.report.error = "undefined in foo";
  job.report.isReported = true;
  EXPECT_NE(job.verdict().find(L"the document met an error and gave up. 17 pages announced, 17 pages came; the first "
                               L"error was undefined in foo."),
            std::wstring::npos);
}

TEST(Completeness, QuittingBeforeTheLastPageIsRefused) {
  Case job;
  job.report.ending = Ending::kQuit;
  job.report.hasRest = job.report.hasFurtherPage = true;
  job.pages.count = 9;
  EXPECT_NE(job.verdict().find(L"the document quit before its last page. 17 pages announced, 9 pages came."),
            std::wstring::npos);
}

TEST(Completeness, QuittingAfterAnErrorIsRefusedAlthoughThePagesAreCountedRight) {
  Case job;
  job.report.ending = Ending::kQuit;
  job.report.hasRest = true;
  EXPECT_EQ(job.verdict(), L"complete");
  job.report.error = "undefined in foo";
  EXPECT_NE(job.verdict().find(L"the document quit after an error."), std::wstring::npos);
  job.report.hasRest = false;
  EXPECT_EQ(job.verdict(), L"complete");
}

TEST(Completeness, CountsOfSeveralDocumentsInOneFileAreNotBelieved) {
  Case job;
  job.announced.isMixed = true;
  job.announced.isPromised = true;
  job.announced.hasEnd = false;
  job.pages.count = 3;
  EXPECT_EQ(job.verdict(), L"complete");
}

TEST(Completeness, AnAnnouncementOfNoPageIsToldLikeAnyOther) {
  Case job;
  job.announced = {0, false, 0, true, false};
  job.report = {Ending::kStop, 1, false, false, false, ""};
  EXPECT_NE(job.verdict().find(L": 0 pages announced, 1 page came."), std::wstring::npos);
}

TEST(Completeness, APdfWithoutAPageIsRefusedWhateverTheRunReported) {
  Case job;
  job.announced = {};
  job.pages.count = 0;
  EXPECT_EQ(job.verdict(), L"The PDF has no page.");
  EXPECT_EQ(job.code(), ExitCode::kIncomplete);
}

TEST(Completeness, TheCodeTellsAnErrorInThePostScriptFromADocumentThatIsNotAllThere) {
  Case job;
  EXPECT_EQ(job.code(), ExitCode::kDone);
  job.pages.count = 15;
  EXPECT_EQ(job.code(), ExitCode::kIncomplete) << "pages are missing";
  job.report.ending = Ending::kUnknown;
  EXPECT_EQ(job.code(), ExitCode::kIncomplete) << "the end was not reached";
  job.report.ending = Ending::kError;
  EXPECT_EQ(job.code(), ExitCode::kPostScript) << "an error";
  job.report.ending = Ending::kStop;
  EXPECT_EQ(job.code(), ExitCode::kPostScript) << "it gave up";
  job.report = {Ending::kEndOfDocument, 0, false, false, false, ""};
  EXPECT_EQ(job.code(), ExitCode::kIncomplete) << "no page";
}

TEST(Completeness, TheEndOfTheRunIsToldInOneLine) {
  Case job;
  job.report = {Ending::kError, 8, false, false, false, "undefined in foo"};
  EXPECT_EQ(job.verdict(),
            L"Ghostscript: undefined in foo. The PostScript of this document is in error: 17 pages announced, 8 pages "
            L"came.");
  job.report = {Ending::kStop, 8, false, false, false, ""};
  EXPECT_EQ(job.verdict(),
            L"The document gave up (\"stop\"): 17 pages announced, 8 pages came. The PostScript of this document is in "
            L"error.");
  job.report = {};
  EXPECT_EQ(job.verdict(), L"Ghostscript ended before the end of the document was reached.");
  job.report = {Ending::kQuit, 0, false, false, false, ""};
  EXPECT_EQ(job.verdict(), L"The document has no page.");
}

}  // namespace
}  // namespace mg::converter
