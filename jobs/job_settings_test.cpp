#include "jobs/job_settings.h"

#include "corvane/base/text.h"
#include "session/port_monitor_server.h"
#include "tests/support/import_seam.h"
#include "tests/support/jobs/environment_seam.h"
#include "tests/support/recording_monitor.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr char kJobSettingsTrace[] = "0x40000008: Stack Trace: MgPrintMon - ConfigurePrintJobSettings()";

class JobSettingsTest : public testing::Test {
 protected:
  JobSettingsTest() {
    m_job.jobName = L"Laser-2 - Job #17";
    m_printer.printerName = L"Laser";
    m_printer.driverName = L"Some Driver";
    environment_seam::replaceTempPath([](DWORD size, LPWSTR out) -> DWORD {
      EXPECT_EQ(size, 260u);
      wcscpy(out, L"C:\\temp\\");
      return 8;
    });
    environment_seam::replaceTickCount([] { return DWORD{90210}; });
  }

  ImportSeams m_seams;
  RecordingScope m_records;
  ClientPrintJob m_job;
  ClientPrinter m_printer;
};

TEST_F(JobSettingsTest, PrinterValueOneSendsDirectlyWithoutFiles) {
  m_printer.printerValue = 1;
  ConfigurePrintJobSettings(&m_job, m_printer);
  EXPECT_THAT(m_job.settings, ElementsAre(1, 1, 1, 1));
  EXPECT_TRUE(m_job.postScriptPath.isEmpty());
  EXPECT_TRUE(m_job.pdfPath.isEmpty());
  EXPECT_TRUE(m_job.logPath.isEmpty());
  EXPECT_THAT(m_seams.calls(), IsEmpty());
}

TEST_F(JobSettingsTest, PrinterValueTwoDiffersInTheSecondSetting) {
  m_printer.printerValue = 2;
  ConfigurePrintJobSettings(&m_job, m_printer);
  EXPECT_THAT(m_job.settings, ElementsAre(1, 2, 1, 1));
  EXPECT_TRUE(m_job.postScriptPath.isEmpty());
}

TEST_F(JobSettingsTest, PrinterValueThreeConvertsAndNamesTheFilesWithOneTickCount) {
  m_printer.printerValue = 3;
  ConfigurePrintJobSettings(&m_job, m_printer);
  EXPECT_THAT(m_job.settings, ElementsAre(1, 2, 3, 2));
  EXPECT_STREQ(m_job.postScriptPath.wide(), L"C:\\temp\\Laser-2 - Job #17-90210.ps");
  EXPECT_STREQ(m_job.pdfPath.wide(), L"C:\\temp\\Laser-2 - Job #17-90210.pdf");
  EXPECT_STREQ(m_job.logPath.wide(), L"C:\\temp\\Laser-2 - Job #17-90210.log");
  EXPECT_THAT(m_seams.calls(), ElementsAre("GetTempPathW", "GetTickCount"));
  EXPECT_THAT(m_records.lines(), IsEmpty());
}

TEST_F(JobSettingsTest, ALongUptimeGivesANegativeNumber) {
  m_printer.printerValue = 3;
  environment_seam::replaceTickCount([] { return DWORD{0x80000001}; });
  ConfigurePrintJobSettings(&m_job, m_printer);
  EXPECT_STREQ(m_job.postScriptPath.wide(), L"C:\\temp\\Laser-2 - Job #17--2147483647.ps");
}

TEST_F(JobSettingsTest, WithoutATemporaryDirectoryThePathsAreTheNamesAlone) {
  m_printer.printerValue = 3;
  environment_seam::replaceTempPath([](DWORD, LPWSTR) { return DWORD{0}; });
  ConfigurePrintJobSettings(&m_job, m_printer);
  EXPECT_STREQ(m_job.pdfPath.wide(), L"Laser-2 - Job #17-90210.pdf");
  EXPECT_THAT(m_records.lines(), IsEmpty());
}

TEST_F(JobSettingsTest, NamesOfAnyLengthAndCharacterThatTheCodePageHoldsStandInThePathsAsTheyAre) {
  m_printer.printerValue = 3;
  for (const std::wstring& name :
       {std::wstring(300, L'n'), std::wstring(L"B\u00fcro \u20ac %d {~} \u00e9\u0081 - Job #17"), std::wstring(L"nul"),
        std::wstring(L" . ")}) {
    m_job.logPath = L"";
    m_job.jobName = name.c_str();
    m_printer.printerName = name.c_str();
    ConfigurePrintJobSettings(&m_job, m_printer);
    EXPECT_EQ(m_job.logPath.wide(), L"C:\\temp\\" + name + L"-90210.log");
    EXPECT_EQ(m_job.clientPrinterName.wide(), name);
  }
}

// The tests' own code page is 1252; one that holds every name, as UTF-8 does, has nothing to put in its place.
TEST_F(JobSettingsTest, WhatTheCodePageCannotTellExactlyIsReplacedInThePathsAlone) {
  if (GetACP() != 1252) GTEST_SKIP() << "the code page is " << GetACP();
  m_printer.printerValue = 3;
  m_printer.printerName = L"\u65e5\u672c \uff21";
  m_job.jobName = L"\u65e5\u672c \uff21 - Job #17";
  ConfigurePrintJobSettings(&m_job, m_printer);
  EXPECT_STREQ(m_job.postScriptPath.wide(), L"C:\\temp\\__ _ - Job #17~465a9d425314e72d-90210.ps");
  EXPECT_STREQ(m_job.pdfPath.wide(), L"C:\\temp\\__ _ - Job #17~465a9d425314e72d-90210.pdf");
  EXPECT_STREQ(m_job.logPath.wide(), L"C:\\temp\\__ _ - Job #17~465a9d425314e72d-90210.log");
  EXPECT_STREQ(m_job.clientPrinterName.wide(), L"\u65e5\u672c \uff21");
  EXPECT_STREQ(m_job.jobName.wide(), L"\u65e5\u672c \uff21 - Job #17");
}

TEST_F(JobSettingsTest, PathsAreAppendedToWhatTheFieldsHold) {
  m_printer.printerValue = 3;
  m_job.logPath = L"before ";
  ConfigurePrintJobSettings(&m_job, m_printer);
  EXPECT_STREQ(m_job.logPath.wide(), L"before C:\\temp\\Laser-2 - Job #17-90210.log");
}

TEST_F(JobSettingsTest, TheUniversalDriverTakesNoClientPrinterName) {
  m_printer.printerValue = 1;
  m_printer.driverName = L"Universal Remote Printer";
  ConfigurePrintJobSettings(&m_job, m_printer);
  EXPECT_EQ(m_job.settings[0], 2);
  EXPECT_TRUE(m_job.clientPrinterName.isEmpty());
}

TEST_F(JobSettingsTest, EveryOtherDriverTakesTheClientPrintersName) {
  m_printer.printerValue = 1;
  for (const wchar_t* driver :
       {L"universal remote printer", L"Universal Remote Printer 2", L"", L"Universal Remote Printe\uFF52"}) {
    m_job.settings = {};
    m_job.clientPrinterName = L"";
    m_printer.driverName = driver;
    ConfigurePrintJobSettings(&m_job, m_printer);
    EXPECT_EQ(m_job.settings[0], 1);
    EXPECT_STREQ(m_job.clientPrinterName.wide(), L"Laser");
  }
}

TEST_F(JobSettingsTest, AnotherPrinterValueIsRecordedAndChangesNothing) {
  m_job.settings = {9, 8, 7, 6};
  for (const int value : {0, 4, -1}) {
    m_printer.printerValue = value;
    m_records.clear();
    ConfigurePrintJobSettings(&m_job, m_printer);
    EXPECT_THAT(m_job.settings, ElementsAre(9, 8, 7, 6));
    EXPECT_TRUE(m_job.clientPrinterName.isEmpty());
    EXPECT_THAT(m_records.lines(), ElementsAre("10: number 3014", kJobSettingsTrace));
  }
}

TEST_F(JobSettingsTest, NeitherTheUniversalDriverNorARefusalTakesANameAway) {
  m_job.clientPrinterName = L"before";
  m_printer.printerValue = 4;
  ConfigurePrintJobSettings(&m_job, m_printer);
  EXPECT_STREQ(m_job.clientPrinterName.wide(), L"before");
  m_printer.printerValue = 1;
  m_printer.driverName = L"Universal Remote Printer";
  ConfigurePrintJobSettings(&m_job, m_printer);
  EXPECT_STREQ(m_job.clientPrinterName.wide(), L"before");
}

TEST_F(JobSettingsTest, ANullJobIsABadArgument) {
  ConfigurePrintJobSettings(nullptr, m_printer);
  EXPECT_THAT(m_records.lines(), ElementsAre("10: number 3015", kJobSettingsTrace));
  EXPECT_EQ(m_records.reports(), 1);
}

}  // namespace
