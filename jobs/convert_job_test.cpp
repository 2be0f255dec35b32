#include "jobs/conversion.h"
#include "tests/support/failing_new.h"
#include "tests/support/import_seam.h"
#include "tests/support/jobs/convert_job_fixture.h"
#include "tests/support/jobs/environment_seam.h"
#include "tests/support/jobs/file_read_seam.h"
#include "tests/support/local_log.h"
#include "tests/support/monitor_world.h"
#include "tests/support/temporary_folder.h"

#include <cstring>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

MG_IMPORT_SEAM(L"advapi32.dll", RegOpenKeyExW, ERROR_FILE_NOT_FOUND)
MG_IMPORT_SEAM(L"advapi32.dll", RegQueryValueExW, ERROR_FILE_NOT_FOUND)
MG_IMPORT_SEAM(L"advapi32.dll", RegCloseKey, ERROR_SUCCESS)
MG_IMPORT_SEAM(L"advapi32.dll", RevertToSelf, FALSE)
MG_IMPORT_SEAM(L"kernel32.dll", CreateFileA, INVALID_HANDLE_VALUE)
MG_IMPORT_SEAM(L"kernel32.dll", CreateProcessA, FALSE)
MG_IMPORT_SEAM(L"kernel32.dll", WaitForSingleObject, WAIT_FAILED)
MG_IMPORT_SEAM(L"kernel32.dll", DeleteFileW, FALSE)

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

const HKEY kKey = reinterpret_cast<HKEY>(0x5550);

}  // namespace

ConvertJobTest::ConvertJobTest() {
  m_job.jobName = L"Laser - Job #1";
  m_job.settings = {1, 2, 3, 2};
  m_job.postScriptPath = m_ps.c_str();
  m_job.pdfPath = m_pdf.c_str();
  m_job.logPath = m_log.c_str();
  TemporaryFolder::write(m_ps, "%!PS-Adobe-3.0\nshowpage\n");
  standInForRegistry();
  standInForConverter();
}

void ConvertJobTest::standInForRegistry() {
  RegOpenKeyExWSeam.replacement = [this](HKEY root, LPCWSTR key, DWORD options, REGSAM access, PHKEY out) -> LSTATUS {
    EXPECT_EQ(root, HKEY_LOCAL_MACHINE);
    EXPECT_STREQ(key, L"SOFTWARE\\Quillfern\\Marrowgate");
    EXPECT_EQ(options, 0u);
    EXPECT_EQ(access, 0x20019u);
    if (m_hasKey) *out = kKey;
    return m_hasKey ? ERROR_SUCCESS : ERROR_FILE_NOT_FOUND;
  };
  RegQueryValueExWSeam.replacement = [this](HKEY key, LPCWSTR name, LPDWORD, LPDWORD, LPBYTE data,
                                            LPDWORD size) -> LSTATUS {
    EXPECT_EQ(key, kKey);
    EXPECT_STREQ(name, L"RootPath");
    EXPECT_EQ(*size, 520u);
    if (!m_hasRoot) return ERROR_FILE_NOT_FOUND;
    std::memcpy(data, m_root.data(), m_root.size() * sizeof(wchar_t));
    return ERROR_SUCCESS;
  };
  RegCloseKeySeam.replacement = [](HKEY) -> LSTATUS { return ERROR_SUCCESS; };
}

void ConvertJobTest::standInForConverter() {
  RevertToSelfSeam.replacement = []() -> WINBOOL { return TRUE; };
  CreateProcessASeam.replacement = [this](LPCSTR application, LPSTR command, LPSECURITY_ATTRIBUTES process,
                                          LPSECURITY_ATTRIBUTES thread, WINBOOL inherit, DWORD flags,
                                          LPVOID environment, LPCSTR folder, LPSTARTUPINFOA start,
                                          LPPROCESS_INFORMATION out) -> WINBOOL {
    EXPECT_EQ(application, nullptr);
    EXPECT_EQ(process, nullptr);
    EXPECT_EQ(thread, nullptr);
    EXPECT_EQ(inherit, TRUE);
    EXPECT_EQ(flags, 0x20u);
    EXPECT_EQ(environment, nullptr);
    EXPECT_EQ(folder, nullptr);
    EXPECT_EQ(start->cb, 104u);
    EXPECT_EQ(start->wShowWindow, 0);
    EXPECT_EQ(start->hStdInput, nullptr);
    EXPECT_EQ(start->hStdError, nullptr);
    m_command = command;
    m_startFlags = start->dwFlags;
    m_hasOutput = start->hStdOutput != nullptr;
    if (m_makesPdf) TemporaryFolder::write(m_pdf, m_pdfBytes);
    DWORD written = 0;
    if (m_hasOutput) {
      WriteFile(start->hStdOutput, m_output.data(), static_cast<DWORD>(m_output.size()), &written, nullptr);
    }
    out->hProcess = CreateEventA(nullptr, TRUE, TRUE, nullptr);
    out->hThread = CreateEventA(nullptr, TRUE, TRUE, nullptr);
    return TRUE;
  };
}

namespace {

TEST_F(ConvertJobTest, APostScriptJobBecomesThePdfAndItsFilesAreGone) {
  EXPECT_EQ(convert(), 0);
  EXPECT_EQ(finalData(), m_pdfBytes);
  EXPECT_EQ(m_command, command());
  EXPECT_EQ(m_startFlags, 0x101u);
  EXPECT_TRUE(m_hasOutput);
  EXPECT_TRUE(m_folder.isEmpty());
  EXPECT_THAT(m_records.lines(), IsEmpty());
  EXPECT_FALSE(m_job.report.hasFailed());
}

TEST_F(ConvertJobTest, WindowsIsCalledInThisOrder) {
  convert();
  EXPECT_THAT(m_seams.calls(),
              ElementsAre("fread", "GetTempPathW", "DeleteFileW", "DeleteFileW", "RegOpenKeyExW", "RegQueryValueExW",
                          "CreateFileA", "RevertToSelf", "CreateProcessA", "WaitForSingleObject", "GetExitCodeProcess",
                          "fread", "DeleteFileW", "DeleteFileW", "DeleteFileW", "RegCloseKey"));
}

// Everything that can fail for want of memory is done by then: the converter is all that is left to start.
TEST_F(ConvertJobTest, TheThreadIsRevertedOnlyWhenTheCommandIsReady) {
  int reverted = 0;
  int started = 0;
  RevertToSelfSeam.watch = [&] { ++reverted; };
  CreateProcessASeam.watch = [&](LPCSTR, LPSTR, LPSECURITY_ATTRIBUTES, LPSECURITY_ATTRIBUTES, WINBOOL, DWORD, LPVOID,
                                 LPCSTR, LPSTARTUPINFOA, LPPROCESS_INFORMATION) { ++started; };
  for (int nth = 1;; ++nth) {
    ASSERT_LT(nth, 500);
    TemporaryFolder::write(m_ps, "%!PS-Adobe-3.0\n");
    const FailingNew failing(nth);
    convert();
    EXPECT_EQ(reverted, started) << nth;
    if (!failing.hasFailed()) break;
  }
  EXPECT_GT(started, 0);
}

TEST_F(ConvertJobTest, FilesAreDeletedBeforeAndAfterInThisOrder) {
  std::vector<std::wstring> deleted;
  DeleteFileWSeam.watch = [&](LPCWSTR path) { deleted.push_back(path); };
  TemporaryFolder::write(m_pdf, "old");
  convert();
  EXPECT_THAT(deleted, ElementsAre(m_pdf, m_log, m_ps, m_pdf, m_log));
}

TEST_F(ConvertJobTest, TheConverterIsWaitedForWithoutLimit) {
  WaitForSingleObjectSeam.watch = [](HANDLE, DWORD milliseconds) { EXPECT_EQ(milliseconds, INFINITE); };
  EXPECT_EQ(convert(), 0);
}

TEST_F(ConvertJobTest, TheLogIsMadeAnewSharedAndInheritable) {
  CreateFileASeam.watch = [this](LPCSTR path, DWORD access, DWORD share, LPSECURITY_ATTRIBUTES security,
                                 DWORD disposition, DWORD attributes, HANDLE) {
    EXPECT_EQ(corvane::fromUtf8(path), m_log);
    EXPECT_EQ(access, 0xC0000000u);
    EXPECT_EQ(share, 3u);
    EXPECT_EQ(disposition, 2u);
    EXPECT_EQ(attributes, 0x80u);
    EXPECT_EQ(security->nLength, 24u);
    EXPECT_EQ(security->lpSecurityDescriptor, nullptr);
    EXPECT_EQ(security->bInheritHandle, TRUE);
  };
  convert();
  EXPECT_TRUE(m_hasOutput);
}

TEST_F(ConvertJobTest, ARootPathWithABackslashAtItsEndGivesTheSameCommand) {
  m_root = L"C:\\Marrowgate\\";
  convert();
  EXPECT_EQ(m_command, command());
}

TEST_F(ConvertJobTest, ASlashAtTheEndOfTheRootPathIsNoBackslash) {
  m_root = L"C:/Marrowgate/";
  convert();
  EXPECT_EQ(m_command, "C:/Marrowgate/\\Programs\\ps2pdf.exe \"" + corvane::toUtf8(m_ps) + "\"");
}

TEST_F(ConvertJobTest, AnEmptyRootPathMeansThePathOnTheCurrentDrive) {
  m_root = L"";
  convert();
  EXPECT_EQ(m_command, "\\Programs\\ps2pdf.exe \"" + corvane::toUtf8(m_ps) + "\"");
}

TEST_F(ConvertJobTest, ARootPathThatFillsItsBufferNeedsNoTerminator) {
  m_root = L"C:\\" + std::wstring(257, L'r');
  convert();
  EXPECT_EQ(m_command, corvane::toUtf8(m_root) + "\\Programs\\ps2pdf.exe \"" + corvane::toUtf8(m_ps) + "\"");
}

// The text that is tested for emptiness is the directory's, whatever the RootPath is.
TEST_F(ConvertJobTest, ATemporaryDirectoryTooLongToBeToldFailsTheQueryOfTheRootPath) {
  environment_seam::replaceTempPath([](DWORD size, LPWSTR) {
    EXPECT_EQ(size, 260u);
    return DWORD{300};
  });
  EXPECT_EQ(convert(), 0);
  EXPECT_EQ(m_command, "");
  EXPECT_EQ(records(),
            thrown("Failed to query RootPath registry key.") + notDeleted(m_pdf) + notDeleted(m_log) + closing());
}

TEST_F(ConvertJobTest, OnlyTheSettingsTwoAndThreeAreConverted) {
  for (const auto& [second, third] : {std::pair(1, 1), std::pair(2, 1), std::pair(3, 3), std::pair(2, 2)}) {
    ClientPrintJob job;
    job.settings = {1, second, third, 2};
    EXPECT_EQ(ConvertJob(&job, L"Preview PDF"), 0);
  }
  EXPECT_THAT(m_seams.calls(), IsEmpty());
  EXPECT_THAT(m_records.lines(), IsEmpty());
}

TEST_F(ConvertJobTest, AJobThatIsNotConvertedStillLosesItsFiles) {
  m_job.settings = {1, 1, 1, 1};
  TemporaryFolder::write(m_pdf, "pdf");
  TemporaryFolder::write(m_log, "log");
  EXPECT_EQ(convert(), 0);
  EXPECT_TRUE(m_folder.isEmpty());
  EXPECT_EQ(m_job.finalData, nullptr);
}

TEST_F(ConvertJobTest, PlainTextForAnotherPrinterIsOnlyRead) {
  TemporaryFolder::write(m_ps, "plain text");
  TemporaryFolder::write(m_pdf, "");
  TemporaryFolder::write(m_log, "");
  EXPECT_EQ(convert(L"My Preview PDF"), 0);
  EXPECT_EQ(finalData(), "plain text");
  EXPECT_TRUE(m_folder.isEmpty());
  EXPECT_THAT(m_records.lines(), IsEmpty());
}

TEST_F(ConvertJobTest, PlainTextWithoutAPrinterNameIsOnlyRead) {
  TemporaryFolder::write(m_ps, "plain text");
  EXPECT_EQ(convert(nullptr), 0);
  EXPECT_EQ(finalData(), "plain text");
}

TEST_F(ConvertJobTest, PlainTextForAPreviewPrinterGoesToNotepad) {
  MonitorWorld world;
  world.bringUpInstance();
  world.peer().answer("PortMonitorClient", 7, [](corvane::ValueWriter& reply) { reply.writeBoolean(true); });
  TemporaryFolder::write(m_ps, "plain text");
  EXPECT_EQ(convert(L"Preview PDF on Client"), 1);
  ASSERT_FALSE(world.requests().empty());
  const std::string line = world.requests().back();
  EXPECT_THAT(line, testing::StartsWith("request 7 LaunchApplication: text \"notepad.exe\", "));
  const std::size_t from = line.find("/PT \\\"") + 6;
  DeleteFileW(corvane::fromUtf8(line.substr(from, line.find("\\\" \\\"") - from)).c_str());
  EXPECT_FALSE(TemporaryFolder::exists(m_ps));
}

TEST_F(ConvertJobTest, WithoutTheKeyNothingIsStarted) {
  m_hasKey = false;
  EXPECT_EQ(convert(), 0);
  EXPECT_EQ(m_command, "");
  EXPECT_FALSE(TemporaryFolder::exists(m_ps));
  EXPECT_EQ(records(),
            thrown("Failed to find RootPath registry key.") + notDeleted(m_pdf) + notDeleted(m_log) + closing());
  EXPECT_EQ(m_records.reports(), 1);
}

TEST_F(ConvertJobTest, WithoutTheValueNothingIsStarted) {
  m_hasRoot = false;
  EXPECT_EQ(convert(), 0);
  EXPECT_EQ(m_command, "");
  EXPECT_FALSE(TemporaryFolder::exists(m_ps));
  EXPECT_EQ(records(),
            thrown("Failed to query RootPath registry key.") + notDeleted(m_pdf) + notDeleted(m_log) + closing());
}

TEST_F(ConvertJobTest, WithoutATemporaryDirectoryNothingIsStarted) {
  m_seams.failNth(2);
  EXPECT_EQ(convert(), 0);
  EXPECT_EQ(m_command, "");
  EXPECT_EQ(records(), thrown("Failed to find temporary path.") + notDeleted(m_pdf) + notDeleted(m_log) + closing());
  EXPECT_EQ(m_job.report.fault(), JobFault::kCollect);
}

TEST_F(ConvertJobTest, WithoutALogTheConversionGoesOnAndCounts) {
  CreateFileASeam.fail(1, INVALID_HANDLE_VALUE, 5);
  EXPECT_EQ(convert(), 0);
  EXPECT_EQ(m_startFlags, 1u);
  EXPECT_FALSE(m_hasOutput);
  EXPECT_EQ(finalData(), m_pdfBytes);
  EXPECT_EQ(records(), "0x4000000c: Failed to create a normalizer error log: " + corvane::toUtf8(m_log) +
                           notDeleted(m_log) + closing());
}

TEST_F(ConvertJobTest, ANullHandleIsNoLogEither) {
  CreateFileASeam.fail(1, nullptr, 5);
  EXPECT_EQ(convert(), 0);
  EXPECT_EQ(m_startFlags, 1u);
  EXPECT_EQ(records(), "0x4000000c: Failed to create a normalizer error log: " + corvane::toUtf8(m_log) +
                           notDeleted(m_log) + closing());
}

TEST_F(ConvertJobTest, ALogThatCannotBeOpenedAgainIsNotedWithTheLastError) {
  const std::wstring other = m_folder.file(L"other.log");
  CreateFileASeam.replacement = [&](LPCSTR, DWORD access, DWORD share, LPSECURITY_ATTRIBUTES security,
                                    DWORD disposition, DWORD attributes, HANDLE like) {
    return CreateFileW(other.c_str(), access, share, security, disposition, attributes, like);
  };
  EXPECT_EQ(convert(), 0);
  EXPECT_EQ(finalData(), m_pdfBytes);
  EXPECT_EQ(records(), "0x4000000c: Failed to open normalized print job log file: " + corvane::toUtf8(m_log) +
                           " - Last Error = 2." + notDeleted(m_log) + closing());
}

TEST_F(ConvertJobTest, AThreadThatStaysImpersonatedIsNotedAndTheLogBelongsToIt) {
  RevertToSelfSeam.fail(1, FALSE, 5);
  m_output = "one page";
  EXPECT_EQ(convert(), 0);
  EXPECT_EQ(finalData(), m_pdfBytes);
  EXPECT_EQ(records(),
            "0x4000000c: Failed to revert to the SYSTEM context.\n0x4000000a: normalizer log: one page" + closing());
}

TEST_F(ConvertJobTest, AConverterThatCannotBeStartedIsRecordedWithItsCommand) {
  CreateProcessASeam.fail(1, FALSE, 2);
  EXPECT_EQ(convert(), 0);
  EXPECT_EQ(m_job.finalData, nullptr);
  EXPECT_EQ(records(), thrown("Failed to normalize print job: " + command()) + notDeleted(m_pdf) + closing());
  EXPECT_TRUE(m_folder.isEmpty());
}

TEST_F(ConvertJobTest, ACommandThatDoesNotFitIsNotStarted) {
  m_job.postScriptPath = (m_ps + std::wstring(4096, L'x')).c_str();
  EXPECT_EQ(convert(), 0);
  EXPECT_EQ(m_command, "");
  EXPECT_THAT(m_records.lines(), testing::Contains(testing::StartsWith("0x4000000a: Failed to normalize print job: ")));
}

TEST_F(ConvertJobTest, ACommandOf4095BytesIsStartedAndOneMoreIsNot) {
  const std::size_t rest = 4095 - std::string("C:\\Marrowgate\\Programs\\ps2pdf.exe \"\"").size();
  m_job.postScriptPath = std::wstring(rest, L'x').c_str();
  convert();
  EXPECT_EQ(m_command.size(), 4095u);
  m_command.clear();
  m_job.postScriptPath = std::wstring(rest + 1, L'x').c_str();
  convert();
  EXPECT_EQ(m_command, "");
}

TEST_F(ConvertJobTest, WithoutMemoryAnUnknownExceptionIsRecordedAndTheFilesAreGone) {
  m_job.postScriptPath.narrow();  // converted beforehand, so that the command line is the first allocation
  {
    const FailingNew failing(1);
    EXPECT_EQ(convert(), 0);
    EXPECT_TRUE(failing.hasFailed());
  }
  EXPECT_EQ(records(), "10: number 3012" + notDeleted(m_pdf) + notDeleted(m_log) + closing());
  EXPECT_FALSE(TemporaryFolder::exists(m_ps));
}

TEST_F(ConvertJobTest, AFailedWaitIsNotedAndTheResultStillTaken) {
  WaitForSingleObjectSeam.fail(1, WAIT_FAILED, 6);
  EXPECT_EQ(convert(), 0);
  EXPECT_EQ(finalData(), m_pdfBytes);
  EXPECT_EQ(records(), "0x4000000c: Failed to wait for print job normalization: " + command() + closing());
}

TEST_F(ConvertJobTest, WhatIsNotedOfOneConversionIsOneReport) {
  CS_ProgramMonitor::setDefaultMonitor(nullptr);
  const LocalLog log;
  CreateFileASeam.fail(1, INVALID_HANDLE_VALUE, 5);
  RevertToSelfSeam.fail(1, FALSE, 5);
  WaitForSingleObjectSeam.fail(1, WAIT_FAILED, 6);
  convert();
  EXPECT_EQ(log.records().size(), 5u);  // with the log that is not there to be deleted, and the closing line
  EXPECT_EQ(log.reports().size(), 1u);
}

TEST_F(ConvertJobTest, ALogThatCannotBeOpenedBelongsToTheReportOnWhatWasNotedBefore) {
  CS_ProgramMonitor::setDefaultMonitor(nullptr);
  const LocalLog log;
  CreateFileASeam.replacement = [](LPCSTR, DWORD, DWORD, LPSECURITY_ATTRIBUTES, DWORD, DWORD, HANDLE) -> HANDLE {
    return CreateEventA(nullptr, TRUE, TRUE, nullptr);
  };
  RevertToSelfSeam.fail(1, FALSE, 5);
  convert();
  EXPECT_EQ(log.records().size(), 4u);
  EXPECT_EQ(log.reports().size(), 1u);
}

TEST_F(ConvertJobTest, AConverterWithoutAPdfIsRecordedWithTheLastErrorAndItsLog) {
  m_makesPdf = false;
  m_output = "no pages\r\n";
  EXPECT_EQ(convert(), 0);
  EXPECT_EQ(records(), thrown("Failed to open normalized print job file: " + command() + " - Last Error = 2.") +
                           notDeleted(m_pdf) + "\n0x4000000a: normalizer log: no pages\n" + closing());
}

TEST_F(ConvertJobTest, AnEmptyPdfIsRecordedAndSetsTheLength) {
  m_pdfBytes.clear();
  m_job.finalDataLength = 9;
  EXPECT_EQ(convert(), 0);
  EXPECT_EQ(m_job.finalDataLength, 0);
  EXPECT_EQ(records(), thrown("Normalized print job file is empty: " + command()) + closing());
  EXPECT_TRUE(m_folder.isEmpty());
}

TEST_F(ConvertJobTest, APdfThatCannotBeReadIsRecordedAndLeavesZeros) {
  // The first two reads are of the collected file's first bytes and of the log.
  m_output = "log";
  int reads = 0;
  file_read_seam::replace([&](void* to, std::size_t size, std::size_t count, std::FILE* file) {
    return ++reads == 3 ? 0 : file_read_seam::real(to, size, count, file);
  });
  EXPECT_EQ(convert(), 0);
  EXPECT_EQ(finalData(), std::string(m_pdfBytes.size(), '\0'));
  EXPECT_EQ(records(), thrown("Failed to read normalized print job file: " + command()) +
                           "\n0x4000000a: normalizer log: log" + closing());
}

TEST_F(ConvertJobTest, AFileThatCannotBeDeletedDoesNotKeepTheOthers) {
  int call = 0;
  DeleteFileWSeam.replacement = [&](LPCWSTR path) -> WINBOOL {
    if (++call == 3) return FALSE;
    return DeleteFileWSeam.real(path);
  };
  EXPECT_EQ(convert(), 0);
  EXPECT_EQ(finalData(), m_pdfBytes);
  EXPECT_EQ("\n" + records(), notDeleted(m_ps) + closing());
  EXPECT_FALSE(TemporaryFolder::exists(m_pdf));
  EXPECT_FALSE(TemporaryFolder::exists(m_log));
}

TEST_F(ConvertJobTest, TheCauseOfAFailureIsTheRecordWhenTheConverterSaidNothing) {
  CreateProcessASeam.fail(1, FALSE);
  convert();
  EXPECT_EQ(corvane::toUtf8(m_job.report.cause()), "Failed to normalize print job: " + command());
  EXPECT_EQ(m_job.report.fault(), JobFault::kConverterStart);
}

TEST_F(ConvertJobTest, NoJobIsNothingToConvert) {
  EXPECT_EQ(ConvertJob(nullptr, L"Laser"), 0);
}

// Each Windows call on the way fails once: whatever that is, the call ends, and the file that was collected is gone.
TEST_F(ConvertJobTest, NoFailingCallLeavesTheCollectedFileBehind) {
  for (int nth = 1;; ++nth) {
    TemporaryFolder::write(m_ps, "%!PS-Adobe-3.0\n");
    m_seams.failNth(nth);
    EXPECT_EQ(convert(), 0);
    const bool failed = m_seams.hasFailed();
    m_seams.failNth(0);
    if (!failed) break;
    ASSERT_LT(nth, 50);
    // Only the deletion of the file itself can leave it.
    if (nth != 13) {
      EXPECT_FALSE(TemporaryFolder::exists(m_ps)) << nth;
    }
  }
}

}  // namespace
