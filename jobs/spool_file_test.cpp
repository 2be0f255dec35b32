#include "jobs/spool_file.h"

#include "corvane/base/text.h"
#include "tests/support/failing_new.h"
#include "tests/support/guarded_heap.h"
#include "tests/support/import_seam.h"
#include "tests/support/jobs/file_read_seam.h"
#include "tests/support/recording_monitor.h"
#include "tests/support/temporary_folder.h"

#include <algorithm>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class SpoolFileTest : public testing::Test {
 protected:
  SpoolFileTest() { m_job.postScriptPath = m_path.c_str(); }

  bool isPostScript(const std::string& bytes) {
    TemporaryFolder::write(m_path, bytes);
    return IsPostScriptData(m_job);
  }
  std::string finalData() const {
    return {reinterpret_cast<const char*>(m_job.finalData), static_cast<std::size_t>(m_job.finalDataLength)};
  }

  ImportSeams m_seams;
  RecordingScope m_records;
  TemporaryFolder m_folder;
  std::wstring m_path = m_folder.file(L"job.ps");
  std::string m_shown = corvane::toUtf8(m_path);
  ClientPrintJob m_job;
};

TEST_F(SpoolFileTest, TheFiveBytesAtTheStartMakePostScript) {
  EXPECT_TRUE(isPostScript("%!PS-"));
  EXPECT_TRUE(isPostScript("%!PS-Adobe-3.0\n"));
  EXPECT_FALSE(isPostScript("%!PS\nshowpage\n"));
  EXPECT_FALSE(isPostScript("plain text"));
  EXPECT_THAT(m_records.lines(), IsEmpty());
}

TEST_F(SpoolFileTest, NothingInFrontOfTheSignatureIsSkipped) {
  EXPECT_FALSE(isPostScript("\x1B%-12345X@PJL\r\n%!PS-Adobe"));
  EXPECT_FALSE(isPostScript(" %!PS-Adobe"));
  EXPECT_FALSE(isPostScript("\xEF\xBB\xBF%!PS-Adobe"));
  EXPECT_FALSE(isPostScript("\x04%!PS-Adobe"));
}

TEST_F(SpoolFileTest, FewerThanFiveBytesCountAsPostScriptWhateverTheyAre) {
  EXPECT_TRUE(isPostScript(""));
  EXPECT_TRUE(isPostScript("abcd"));
}

TEST_F(SpoolFileTest, AMissingFileCountsAsPostScriptAndIsRecordedWithTheLastError) {
  EXPECT_TRUE(IsPostScriptData(m_job));
  const std::string text = "Failed to open print job file: " + m_shown + " - Last Error = 2.";
  EXPECT_THAT(m_records.lines(), ElementsAre("0x4000000a: " + text, "10: " + text,
                                             "0x40000008: Stack Trace: MgPrintMon - IsPostScriptData()"));
  EXPECT_EQ(m_records.reports(), 1);
}

TEST_F(SpoolFileTest, APathOutsideTheCodePageCannotBeOpenedAndIsRecordedWhole) {
  m_job.postScriptPath = (m_folder.directory() + L"\u4e2d\xD800.ps").c_str();
  EXPECT_TRUE(IsPostScriptData(m_job));
  ASSERT_EQ(m_records.lines().size(), 3u);
  EXPECT_THAT(m_records.lines()[0], testing::StartsWith("0x4000000a: Failed to open print job file: " +
                                                        corvane::toUtf8(m_job.postScriptPath.wide())));
}

TEST_F(SpoolFileTest, TheFileIsClosedAfterEveryEnd) {
  for (const char* bytes : {"", "abc", "%!PS-Adobe"}) {
    TemporaryFolder::write(m_path, bytes);
    IsPostScriptData(m_job);
    ReadDataIntoFinalBuffer(m_job);
    EXPECT_TRUE(DeleteFileW(m_path.c_str())) << bytes;  // refused while it is open
  }
  TemporaryFolder::write(m_path, "abc");
  file_read_seam::replace([](void*, std::size_t, std::size_t, std::FILE*) { return std::size_t{0}; });
  ReadDataIntoFinalBuffer(m_job);
  EXPECT_TRUE(DeleteFileW(m_path.c_str()));
}

TEST_F(SpoolFileTest, FinalDataThatAreTheReadBufferStayItsOwn) {
  TemporaryFolder::write(m_path, "abc");
  m_job.readBuffer = m_job.finalData = new unsigned char[1]{'x'};
  ReadDataIntoFinalBuffer(m_job);
  EXPECT_EQ(m_job.readBuffer[0], 'x');
  EXPECT_EQ(finalData(), "abc");
}

TEST_F(SpoolFileTest, TheWholeFileBecomesTheFinalData) {
  const std::string bytes(
      "a\0b\r\n\x1A"
      "c",
      7);
  TemporaryFolder::write(m_path, bytes);
  ReadDataIntoFinalBuffer(m_job);
  EXPECT_EQ(m_job.finalDataLength, 7);
  EXPECT_EQ(finalData(), bytes);
  EXPECT_THAT(m_records.lines(), IsEmpty());
}

TEST_F(SpoolFileTest, OneByteIsADocument) {
  TemporaryFolder::write(m_path, "a");
  ReadDataIntoFinalBuffer(m_job);
  EXPECT_EQ(m_job.finalDataLength, 1);
  EXPECT_EQ(finalData(), "a");
  EXPECT_THAT(m_records.lines(), IsEmpty());
}

TEST_F(SpoolFileTest, FinalDataOfAnEarlierReadAreFreedAndReplaced) {
  const guarded_heap::Mark mark;
  TemporaryFolder::write(m_path, "first");
  ReadDataIntoFinalBuffer(m_job);
  TemporaryFolder::write(m_path, "2nd");
  ReadDataIntoFinalBuffer(m_job);
  EXPECT_EQ(finalData(), "2nd");
  const auto left = mark.left();
  EXPECT_EQ(std::count_if(left.begin(), left.end(), [](const guarded_heap::Block& block) { return block.size == 5; }),
            0);
}

TEST_F(SpoolFileTest, AnEmptyFileIsRecordedAndLeavesNoFinalData) {
  TemporaryFolder::write(m_path, "");
  m_job.finalDataLength = 5;
  ReadDataIntoFinalBuffer(m_job);
  EXPECT_EQ(m_job.finalDataLength, 0);
  EXPECT_EQ(m_job.finalData, nullptr);
  const std::string text = "Print job file is empty: " + m_shown;
  EXPECT_THAT(m_records.lines(), ElementsAre("0x4000000a: " + text, "10: " + text,
                                             "0x40000008: Stack Trace: MgPrintMon - ReadDataIntoFinalBuffer()"));
}

TEST_F(SpoolFileTest, AMissingFileLeavesTheLengthAsItWas) {
  m_job.finalDataLength = 5;
  ReadDataIntoFinalBuffer(m_job);
  EXPECT_EQ(m_job.finalDataLength, 5);
  EXPECT_EQ(m_job.finalData, nullptr);
  const std::string text = "Failed to open print job file: " + m_shown + " - Last Error = 2.";
  EXPECT_THAT(m_records.lines(), ElementsAre("0x4000000a: " + text, "10: " + text,
                                             "0x40000008: Stack Trace: MgPrintMon - ReadDataIntoFinalBuffer()"));
}

TEST_F(SpoolFileTest, AFileThatCannotBeReadLeavesZeros) {
  TemporaryFolder::write(m_path, "abc");
  file_read_seam::replace([](void*, std::size_t, std::size_t, std::FILE*) { return std::size_t{0}; });
  ReadDataIntoFinalBuffer(m_job);
  EXPECT_EQ(finalData(), std::string(3, '\0'));
  const std::string text = "Failed to read print job file: " + m_shown;
  EXPECT_THAT(m_records.lines(), ElementsAre("0x4000000a: " + text, "10: " + text,
                                             "0x40000008: Stack Trace: MgPrintMon - ReadDataIntoFinalBuffer()"));
}

TEST_F(SpoolFileTest, WhatKeptTheDataFromBeingReadIsTheCauseOfTheJobsFailure) {
  ReadDataIntoFinalBuffer(m_job);
  EXPECT_EQ(corvane::toUtf8(m_job.report.cause()), "Failed to open print job file: " + m_shown + " - Last Error = 2.");
  EXPECT_EQ(m_job.report.fault(), JobFault::kCollect);
}

TEST_F(SpoolFileTest, AReadThatEndsEarlyIsTakenAsItIs) {
  TemporaryFolder::write(m_path, "abc");
  file_read_seam::replace([](void* to, std::size_t, std::size_t, std::FILE*) {
    *static_cast<char*>(to) = 'x';
    return std::size_t{1};
  });
  ReadDataIntoFinalBuffer(m_job);
  EXPECT_EQ(finalData(), std::string("x\0\0", 3));
  EXPECT_THAT(m_records.lines(), IsEmpty());
}

TEST_F(SpoolFileTest, WithoutMemoryAnUnknownExceptionIsRecordedAndNoDataAreLeft) {
  TemporaryFolder::write(m_path, "abc");
  m_job.postScriptPath.narrow();  // converted beforehand, so that the data are the first allocation
  {
    const FailingNew failing(1);
    ReadDataIntoFinalBuffer(m_job);
    EXPECT_TRUE(failing.hasFailed());
  }
  EXPECT_EQ(m_job.finalData, nullptr);
  EXPECT_THAT(m_records.lines(),
              ElementsAre("10: number 3012", "0x40000008: Stack Trace: MgPrintMon - ReadDataIntoFinalBuffer()"));
}

}  // namespace
