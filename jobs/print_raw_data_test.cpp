#include "corvane/records/messages.h"
#include "jobs/conversion.h"
#include "tests/support/import_seam.h"
#include "tests/support/jobs/environment_seam.h"
#include "tests/support/monitor_world.h"
#include "tests/support/temporary_folder.h"
#include "tests/support/trail_lines.h"

#include <cstring>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

// The run time's header marks fwrite with an attribute that is not part of its type.
#pragma GCC diagnostic ignored "-Wignored-attributes"

MG_PLAIN_SEAM(L"msvcrt.dll", fflush, EOF)
MG_PLAIN_SEAM(L"msvcrt.dll", fwrite, 0)

namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

constexpr char kPrintRawDataTrace[] = "0x40000008: Stack Trace: MgPrintMon - PrintRawDataViaNotepad()";

class PrintRawDataTest : public testing::Test {
 protected:
  PrintRawDataTest() {
    m_job.jobName = L"Preview PDF - Job #3";
    m_job.finalDataLength = 7;
    m_job.finalData = new unsigned char[7];
    std::memcpy(m_job.finalData, "A\x1B(s0PB", 7);
    m_world.peer().answer("PortMonitorClient", 7,
                          [this](corvane::ValueWriter& reply) { reply.writeBoolean(m_launched); });
    m_world.bringUpInstance();
  }
  // The text file is made here from now on.
  void write(const TemporaryFolder& folder) {
    environment_seam::replaceTempPath([path = folder.directory()](DWORD, LPWSTR out) -> DWORD {
      wcscpy(out, path.c_str());
      return static_cast<DWORD>(path.size());
    });
    environment_seam::replaceTickCount([] { return DWORD{90210}; });
  }
  // What a text that could not be written leaves: its records, the cause, and nobody asked to print it.
  void expectNotWritten(const TemporaryFolder& folder) {
    const std::string text =
        "Failed to write raw data: " + corvane::toUtf8(folder.file(L"Preview PDF - Job #3-90210.txt")) +
        " - Last Error = 112.";
    EXPECT_THAT(m_world.records().lines(), ElementsAre("0x4000000a: " + text, "10: " + text, kPrintRawDataTrace));
    EXPECT_EQ(corvane::toUtf8(m_job.report.cause()), text);
    EXPECT_EQ(m_job.report.fault(), JobFault::kCollect);
    EXPECT_EQ(m_world.countOf("request 7"), 0u);
  }
  // The path of the only text file, from the request that names it.
  std::wstring launchedFile() {
    const std::string line = m_world.requests().back();
    const std::string begin = "text \"notepad.exe\", text \"\"/PT \\\"";
    const std::size_t from = line.find(begin) + begin.size();
    return corvane::fromUtf8(line.substr(from, line.find("\\\" \\\"") - from));
  }

  ImportSeams m_seams;
  MonitorWorld m_world;
  bool m_launched = true;
  ClientPrintJob m_job;
};

TEST_F(PrintRawDataTest, FiltersTheDataWritesThemAndHasNotepadPrintTheFile) {
  PrintRawDataViaNotepad(m_job, L"Preview PDF");
  const std::wstring file = launchedFile();
  EXPECT_EQ(m_job.finalDataLength, 2);
  EXPECT_EQ(TemporaryFolder::read(file), "AB");
  EXPECT_THAT(corvane::toUtf8(file), HasSubstr("\\Preview PDF - Job #3-"));
  EXPECT_EQ(file.substr(file.size() - 4), L".txt");
  EXPECT_EQ(m_world.requests().back(), "request 7 LaunchApplication: text \"notepad.exe\", text \"\"/PT \\\"" +
                                           corvane::toUtf8(file) +
                                           "\\\" \\\"Preview PDF\\\"\"\", boolean true, text \"Preview PDF\"");
  EXPECT_THAT(m_world.records().lines(), IsEmpty());
  DeleteFileW(file.c_str());
}

TEST_F(PrintRawDataTest, TheFileIsNamedAfterDirectoryJobAndSignedTickCountAndHoldsTheBytesAsTheyAre) {
  const TemporaryFolder folder;
  environment_seam::replaceTempPath([&](DWORD size, LPWSTR out) -> DWORD {
    EXPECT_EQ(size, 260u);
    wcscpy(out, folder.directory().c_str());
    return static_cast<DWORD>(folder.directory().size());
  });
  environment_seam::replaceTickCount([] { return DWORD{0xFFFFFFFF}; });
  std::memcpy(m_job.finalData, "a\nb\r\n\x1A\f", 7);
  PrintRawDataViaNotepad(m_job, L"Preview PDF");
  EXPECT_EQ(launchedFile(), folder.file(L"Preview PDF - Job #3--1.txt"));
  EXPECT_EQ(TemporaryFolder::read(launchedFile()), "a\nb\r\n\x1A\f");
}

TEST_F(PrintRawDataTest, WithoutAnInstanceTheDataAreWrittenAndNothingIsLaunched) {
  const TemporaryFolder folder;
  write(folder);
  m_world.losePeer();
  PrintRawDataViaNotepad(m_job, L"Preview PDF");
  EXPECT_EQ(m_job.finalDataLength, 2);
  EXPECT_FALSE(folder.isEmpty());
  EXPECT_EQ(m_world.countOf("request 7"), 0u);
}

// The run time holds a short text back until it is flushed: only then does a full disk show.
TEST_F(PrintRawDataTest, ATextThatTheDiskRefusesAtTheEndIsNotPrinted) {
  const TemporaryFolder folder;
  write(folder);
  fflushSeam.fail(1, EOF, ERROR_DISK_FULL);
  PrintRawDataViaNotepad(m_job, L"Preview PDF");
  expectNotWritten(folder);
}

TEST_F(PrintRawDataTest, ATextThatTheDiskTakesInPartIsNotPrinted) {
  const TemporaryFolder folder;
  write(folder);
  fwriteSeam.fail(1, 1, ERROR_DISK_FULL);
  PrintRawDataViaNotepad(m_job, L"Preview PDF");
  expectNotWritten(folder);
}

TEST_F(PrintRawDataTest, ALaunchIsInTheJobsTrail) {
  const TemporaryFolder folder;
  write(folder);
  PrintRawDataViaNotepad(m_job, L"Preview PDF");
  EXPECT_THAT(trailLines(m_job.report), ElementsAre("notepad was started in the session"));
  EXPECT_FALSE(m_job.report.hasFailed());
}

// Nobody knows whether the program started; what is not known to be shown is not told as shown.
TEST_F(PrintRawDataTest, ALaunchWhoseAnswerIsLostWithTheConnectionIsAFailureOfTheJob) {
  const TemporaryFolder folder;
  write(folder);
  m_world.peer().hangUpAt("PortMonitorClient", 7);
  PrintRawDataViaNotepad(m_job, L"Preview PDF");
  EXPECT_EQ(m_world.countOf("request 7"), 1u);
  EXPECT_STREQ(m_job.report.cause(), corvane::messageText(corvane::kConnectionLost));
  EXPECT_EQ(m_job.report.fault(), JobFault::kConnection);
  EXPECT_THAT(trailLines(m_job.report), IsEmpty());
}

TEST_F(PrintRawDataTest, ARefusedLaunchIsRecordedAndTheFileStays) {
  m_launched = false;
  PrintRawDataViaNotepad(m_job, L"Preview PDF");
  const std::wstring file = launchedFile();
  EXPECT_TRUE(TemporaryFolder::exists(file));
  const std::string text =
      "Failed to launch notepad: notepad.exe \"/PT \\\"" + corvane::toUtf8(file) + "\\\" \\\"Preview PDF\\\"\"";
  EXPECT_THAT(m_world.records().lines(), ElementsAre("0x4000000a: " + text, "10: " + text, kPrintRawDataTrace));
  EXPECT_EQ(corvane::toUtf8(m_job.report.cause()), text);
  EXPECT_EQ(m_job.report.fault(), JobFault::kNotepad);
  DeleteFileW(file.c_str());
}

TEST_F(PrintRawDataTest, AFileThatCannotBeOpenedLeavesTheDataAndLaunchesNothing) {
  m_job.jobName = L"no\\such\\folder";
  const std::size_t before = m_world.requests().size();
  PrintRawDataViaNotepad(m_job, L"Preview PDF");
  EXPECT_EQ(m_job.finalDataLength, 7);
  EXPECT_EQ(m_world.requests().size(), before);
  ASSERT_EQ(m_world.records().lines().size(), 3u);
  EXPECT_THAT(m_world.records().lines()[0], HasSubstr("0x4000000a: Failed to open raw data: "));
  EXPECT_THAT(m_world.records().lines()[0], HasSubstr(" - Last Error = 3."));
  EXPECT_EQ(m_world.records().lines()[2], kPrintRawDataTrace);
}

}  // namespace
