#include "tests/support/failing_new.h"
#include "tests/support/jobs/convert_job_fixture.h"
#include "tests/support/local_log.h"
#include "tests/support/trail_lines.h"

#include <cstring>
#include <gmock/gmock.h>
#include <optional>

MG_IMPORT_SEAM(L"kernel32.dll", GetExitCodeProcess, FALSE)
MG_IMPORT_SEAM(L"kernel32.dll", MultiByteToWideChar, 0)

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

// What becomes of the words of the converter.
class ConverterLogTest : public ConvertJobTest {};

TEST_F(ConverterLogTest, WhereNothingFailedNothingIsRecorded) {
  m_output = "one page";
  EXPECT_EQ(convert(), 0);
  EXPECT_THAT(m_records.lines(), IsEmpty());
}

TEST_F(ConverterLogTest, TheCauseOfAFailureIsWhatTheConverterSaidLast) {
  m_makesPdf = false;
  m_output = "reading\r\n  no page \r\n\r\n";
  convert();
  EXPECT_STREQ(m_job.report.cause(), L"The conversion failed: no page");
  EXPECT_EQ(m_job.report.fault(), JobFault::kConversion);
}

TEST_F(ConverterLogTest, OneCharacterIsEnough) {
  m_makesPdf = false;
  m_output = "x";
  convert();
  EXPECT_STREQ(m_job.report.cause(), L"The conversion failed: x");
  EXPECT_THAT(m_records.lines(), testing::Contains("0x4000000a: normalizer log: x"));
}

TEST_F(ConverterLogTest, TheWordsBelongToTheReportOnWhatWasNoted) {
  CS_ProgramMonitor::setDefaultMonitor(nullptr);
  const LocalLog log;
  m_seams.failNth(8);  // RevertToSelf
  m_output = std::string(600, 'a');
  convert();
  EXPECT_EQ(log.records().size(), 4u);
  EXPECT_EQ(log.reports().size(), 1u);
}

TEST_F(ConverterLogTest, ALongLogIsRecordedInPiecesOf512Characters) {
  m_makesPdf = false;
  m_output = std::string(512, 'a') + std::string(512, 'b') + std::string(76, 'c');
  convert();
  const auto lines = m_records.lines();
  ASSERT_THAT(lines, SizeIs(7));
  EXPECT_EQ(lines[3], "0x4000000a: normalizer log: " + std::string(512, 'a'));
  EXPECT_EQ(lines[4], "0x4000000a: normalizer log: " + std::string(512, 'b'));
  EXPECT_EQ(lines[5], "0x4000000a: normalizer log: " + std::string(76, 'c'));
  EXPECT_EQ(lines[6], kClosing);
}

TEST_F(ConverterLogTest, ALogOf512CharactersIsOnePiece) {
  m_makesPdf = false;
  m_output = std::string(512, 'a');
  convert();
  EXPECT_THAT(m_records.lines(), SizeIs(5));
}

TEST_F(ConverterLogTest, BlanksAloneAreNoCauseOfAFailure) {
  m_makesPdf = false;
  m_output = " \r\n\t\r\n";
  convert();
  EXPECT_EQ(corvane::toUtf8(m_job.report.cause()),
            "Failed to open normalized print job file: " + command() + " - Last Error = 2.");
}

// A file that is still open cannot be deleted.
TEST_F(ConverterLogTest, WithoutMemoryForTheWordsTheirFileIsClosedAndGone) {
  m_output = "no pages";
  std::optional<FailingNew> failing;
  GetExitCodeProcessSeam.watch = [&](HANDLE, LPDWORD) { failing.emplace(1); };
  EXPECT_EQ(convert(), 0);
  ASSERT_TRUE(failing && failing->hasFailed());
  failing.reset();
  EXPECT_EQ(records(), "10: number 3012" + closing());
  EXPECT_TRUE(m_folder.isEmpty());
}

TEST_F(ConverterLogTest, WordsThatCannotBeConvertedEndTheCleanUpWithItsOwnLine) {
  m_makesPdf = false;
  m_output = "no pages";
  MultiByteToWideCharSeam.replacement = [](UINT page, DWORD flags, LPCCH text, int size, LPWSTR out, int room) {
    if (size == 8 && std::memcmp(text, "no pages", 8) == 0) return 0;
    return MultiByteToWideCharSeam.real(page, flags, text, size, out, room);
  };
  EXPECT_EQ(convert(), 0);
  const auto lines = m_records.lines();
  ASSERT_THAT(lines, SizeIs(4));
  EXPECT_EQ("\n" + lines[2], notDeleted(m_pdf));
  EXPECT_EQ(lines[3], "0x4000000a: Stack Trace: MgPrintMon - ConvertJob() cleanup execption");
  EXPECT_EQ(m_records.reports(), 1);
}

// The stages that a conversion adds to what its job's failure is told with.
class ConversionTrailTest : public ConvertJobTest {
 protected:
  ConversionTrailTest() {
    GetExitCodeProcessSeam.replacement = [](HANDLE, LPDWORD code) -> WINBOOL {
      *code = 9;
      return TRUE;
    };
  }
};

TEST_F(ConversionTrailTest, HasTheEndOfTheConverterAndTheSizeOfItsDocument) {
  convert();
  EXPECT_THAT(trailLines(m_job.report), ElementsAre("the conversion begins", "the converter ended with 9",
                                                    "the converted document has 17 bytes"));
}

TEST_F(ConversionTrailTest, HasTheEndOfTheConverterAndThatItFailed) {
  m_makesPdf = false;
  convert();
  EXPECT_THAT(trailLines(m_job.report),
              ElementsAre("the conversion begins", "the converter ended with 9", "the conversion failed"));
}

TEST_F(ConversionTrailTest, HasNoEndOfAConverterWhoseEndCannotBeAskedFor) {
  GetExitCodeProcessSeam.fail(1, FALSE);
  convert();
  EXPECT_THAT(trailLines(m_job.report), ElementsAre("the conversion begins", "the converted document has 17 bytes"));
}

TEST_F(ConversionTrailTest, HasWhyADocumentGoesOutAsItCame) {
  TemporaryFolder::write(m_ps, "%PDF-1.7\n");
  convert();
  EXPECT_THAT(trailLines(m_job.report), ElementsAre("the collected document is sent as it is and has 9 bytes",
                                                    "sent as it came: it is a PDF already."));
}

}  // namespace
