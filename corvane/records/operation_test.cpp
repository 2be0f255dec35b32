#include "corvane/records/operation.h"

#include "corvane/records/messages.h"
#include "tests/support/local_log.h"
#include "tests/support/recording_monitor.h"

#include <gtest/gtest.h>
#include <stdexcept>

namespace {

using Lines = std::vector<std::string>;
constexpr wchar_t kClosing[] = L"Stack Trace: MgPrintMon - MGOpenPort()";

TEST(Operation, RecordsNothingWhenItsBodyEndsWell) {
  RecordingScope records;
  Operation operation(kClosing);
  bool cleaned = false;
  operation.run([] {}, [&] { cleaned = true; });
  EXPECT_TRUE(operation.succeeded());
  EXPECT_FALSE(cleaned);
  EXPECT_EQ(Lines{}, records.lines());
  EXPECT_EQ(0, records.reports());
}

TEST(Operation, RecordsAFailureWithItsTextThenTheExceptionThenTheClosingLine) {
  RecordingScope records;
  Operation operation(kClosing);
  operation.run([&] { operation.fail(corvane::kLevelFailure, L"Failed to connect to %s.", L"APS"); });
  EXPECT_FALSE(operation.succeeded());
  EXPECT_EQ((Lines{"0x4000000a: Failed to connect to APS.", "10: Failed to connect to APS.",
                   "0x40000008: Stack Trace: MgPrintMon - MGOpenPort()"}),
            records.lines());
  EXPECT_EQ(1, records.reports());
}

TEST(Operation, RecordsAFrameworkExceptionByItsNumber) {
  RecordingScope records;
  Operation operation(kClosing);
  operation.run([] { throw CS_Exception(corvane::kBadArgument, nullptr); });
  EXPECT_EQ((Lines{"10: number 3015", "0x40000008: Stack Trace: MgPrintMon - MGOpenPort()"}), records.lines());
}

TEST(Operation, RecordsAnyOtherExceptionAsNumber3012) {
  RecordingScope records;
  Operation operation(kClosing);
  operation.run([] { throw std::runtime_error("foreign"); });
  EXPECT_FALSE(operation.succeeded());
  EXPECT_EQ((Lines{"10: number 3012", "0x40000008: Stack Trace: MgPrintMon - MGOpenPort()"}), records.lines());
}

TEST(Operation, CleansUpAfterAFailureAndBeforeTheClosingLine) {
  RecordingScope records;
  Operation operation(kClosing);
  operation.run([] { throw CS_Exception(corvane::kMissingObject, nullptr); },
                [&] { operation.note(corvane::kLevelCleanupNote, L"Deleted print job %s", L"letter"); });
  EXPECT_EQ((Lines{"10: number 3014", "0x4000000c: Deleted print job letter",
                   "0x40000008: Stack Trace: MgPrintMon - MGOpenPort()"}),
            records.lines());
}

TEST(Operation, RecordsWhatItsCleanUpThrowsAndStillCloses) {
  RecordingScope records;
  Operation operation(kClosing);
  operation.run([] { throw CS_Exception(corvane::kMissingObject, nullptr); }, [] { throw 1; });
  EXPECT_EQ((Lines{"10: number 3014", "10: number 3012", "0x40000008: Stack Trace: MgPrintMon - MGOpenPort()"}),
            records.lines());
}

TEST(Operation, FailsByANoteWithoutLeavingItsBody) {
  RecordingScope records;
  Operation operation(kClosing);
  bool wentOn = false;
  operation.run([&] {
    operation.note(corvane::kLevelCleanupNote, L"failed to access the printer queue");
    wentOn = true;
  });
  EXPECT_TRUE(wentOn);
  EXPECT_FALSE(operation.succeeded());
  EXPECT_EQ(
      (Lines{"0x4000000c: failed to access the printer queue", "0x40000008: Stack Trace: MgPrintMon - MGOpenPort()"}),
      records.lines());
}

TEST(Operation, UsesTheLevelItWasGivenForExceptions) {
  RecordingScope records;
  Operation operation(L"Failed to connect to localhost.", corvane::kLevelConnectionFailure);
  operation.run([] { throw 1; });
  EXPECT_EQ((Lines{"0x40000002: number 3012", "0x40000008: Failed to connect to localhost."}), records.lines());
}

TEST(Operation, PassesOnAFrameworkExceptionAfterReportingItAndKeepsAnyOther) {
  RecordingScope records;
  Operation first(kClosing);
  EXPECT_THROW(first.runAndPassOn([] { throw CS_Exception(corvane::kBadArgument, nullptr); }), CS_Exception);
  EXPECT_EQ((Lines{"10: number 3015", "0x40000008: Stack Trace: MgPrintMon - MGOpenPort()"}), records.lines());
  Operation second(kClosing);
  EXPECT_NO_THROW(second.runAndPassOn([] { throw 1; }));
  EXPECT_FALSE(second.succeeded());
}

TEST(Operation, LeavesTheLastErrorAsItsBodyLeftIt) {
  RecordingScope records;
  errno = 0;
  Operation operation(kClosing);
  operation.run([] {
    errno = 77;
    throw 1;
  });
  EXPECT_EQ(77, errno);
}

TEST(ProgramMonitor, GivesTheRecordsOfOneFailureOneReport) {
  RecordingScope records;
  const auto report = CS_ProgramMonitor::getDefaultMonitor()->recordText(10, corvane::kCategory, L"first");
  EXPECT_NE(&records.monitor(), report.get());
  EXPECT_EQ(report.get(), report->recordText(10, corvane::kCategory, L"second").get());
  EXPECT_STREQ(L"second", report->lastText());
}

TEST(ProgramMonitor, WritesTheTextOfANumberWithItsDetail) {
  RecordingScope records;
  const auto report = CS_ProgramMonitor::getDefaultMonitor()->recordNumber(10, corvane::kCategory, 11505, L"%d", 6);
  EXPECT_STREQ(L"The handle of the program could not be found out. 6", report->lastText());
}

TEST(ProgramMonitor, WritesTextsOfAnyLengthWhole) {
  RecordingScope records;
  const std::wstring path(4000, L'p');
  CS_ProgramMonitor::getDefaultMonitor()->recordText(10, corvane::kCategory, L"<%s>", path.c_str());
  EXPECT_EQ(Lines{"10: <" + std::string(4000, 'p') + ">"}, records.lines());
}

TEST(Exception, CarriesTheTextOfItsRecordAndCutsALongDetail) {
  RecordingScope records;
  const CS_Exception fromRecord(
      CS_ProgramMonitor::getDefaultMonitor()->recordText(corvane::kLevelFailure, corvane::kCategory, L"no port"));
  EXPECT_STREQ(L"no port", fromRecord.detail());
  EXPECT_EQ(0, fromRecord.number());
  const CS_Exception cut(corvane::kConnectionLost, L"%s", std::wstring(1000, L'x').c_str());
  EXPECT_EQ(static_cast<std::size_t>(CS_Exception::kDetailSize - 1), std::wcslen(cut.detail()));
}

TEST(TraceEntry, WritesNothingWhileTracingIsOff) {
  LocalLog log;
  { CS_TraceEntry entry(L"MGShutdown"); }
  EXPECT_EQ(Lines{}, log.lines());
}

TEST(TraceEntry, MarksTheBeginningAndTheEndOfAnOperation) {
  LocalLog log;
  log.trace();
  { CS_TraceEntry entry(L"MGOpenPort (pName = %s)", L"CPP5"); }
  EXPECT_EQ((Lines{"enter MGOpenPort (pName = CPP5)", "leave MGOpenPort (pName = CPP5)"}), log.lines());
}

TEST(LocalMonitor, WritesARecordAsOneLineWithItsReportAndLevel) {
  LocalLog log;
  const auto report = CS_ProgramMonitor::getLocalMonitor()->recordText(corvane::kLevelFailure, corvane::kCategory,
                                                                       L"line one\nline two %s", L"\u00e4");
  report->recordNumber(10, corvane::kCategory, 3015, nullptr);
  const Lines lines = log.lines();
  ASSERT_EQ(2u, lines.size());
  const std::string number = lines[0].substr(0, lines[0].find(' '));
  EXPECT_EQ(number + " failure: line one line two \xC3\xA4", lines[0]);
  EXPECT_EQ(number + " exception 3015: An argument is missing or invalid.", lines[1]);
}

}  // namespace
