#include "jobs/spooler_calls.h"
#include "tests/support/failing_new.h"
#include "tests/support/import_seam.h"
#include "tests/support/recording_monitor.h"

#include <winspool.h>

#include <cstring>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

MG_PLAIN_SEAM(L"winspool.drv", OpenPrinterW, FALSE)
MG_PLAIN_SEAM(L"winspool.drv", GetJobW, FALSE)
MG_PLAIN_SEAM(L"winspool.drv", ClosePrinter, FALSE)

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

const HANDLE kPrinter = reinterpret_cast<HANDLE>(0x77);
constexpr char kNumCopiesTrace[] = "0x40000008: Stack Trace: MgPrintMon - GetNumCopies()";

class NumCopiesTest : public testing::Test {
 protected:
  NumCopiesTest() {
    OpenPrinterWSeam.replacement = [](LPWSTR name, LPHANDLE out, LPPRINTER_DEFAULTSW defaults) -> WINBOOL {
      EXPECT_STREQ(name, L"Laser");
      EXPECT_EQ(defaults, nullptr);
      *out = kPrinter;
      return TRUE;
    };
    ClosePrinterSeam.replacement = [](HANDLE printer) -> WINBOOL {
      EXPECT_EQ(printer, kPrinter);
      return TRUE;
    };
    GetJobWSeam.replacement = [this](HANDLE printer, DWORD job, DWORD level, LPBYTE buffer, DWORD size,
                                     LPDWORD needed) -> WINBOOL {
      EXPECT_EQ(printer, kPrinter);
      EXPECT_EQ(job, 17u);
      EXPECT_EQ(level, 2u);
      if (buffer == nullptr) {
        EXPECT_EQ(size, 0u);
        *needed = m_needed;
        SetLastError(ERROR_INSUFFICIENT_BUFFER);
        return FALSE;
      }
      EXPECT_EQ(size, m_needed);
      if (!m_second) return FALSE;
      JOB_INFO_2W info{};
      info.TotalPages = 12;
      info.Status = m_status;
      info.pDevMode = m_hasMode ? &m_mode : nullptr;
      std::memcpy(buffer, &info, sizeof info);
      return TRUE;
    };
  }

  int copiesFor(short deviceModeCopies) {
    m_mode.dmCopies = deviceModeCopies;
    return GetNumCopies(L"Laser", 17);
  }

  ImportSeams m_seams;
  RecordingScope m_records;
  DWORD m_needed = sizeof(JOB_INFO_2W) + 40;
  bool m_second = true;
  bool m_hasMode = true;
  DWORD m_status = 0;
  DEVMODEW m_mode{};
};

TEST_F(NumCopiesTest, TheDeviceModeSaysHowMany) {
  EXPECT_EQ(copiesFor(3), 3);
  EXPECT_THAT(m_seams.calls(), ElementsAre("OpenPrinterW", "GetJobW", "GetJobW", "ClosePrinter"));
  EXPECT_THAT(m_records.lines(), IsEmpty());
}

TEST_F(NumCopiesTest, ThePagesComeAlongAndWhetherThereMayBeMore) {
  mg::QueuedPages pages;
  EXPECT_EQ(GetNumCopies(L"Laser", 17, &pages), 1);
  EXPECT_EQ(pages.count, 12u);
  EXPECT_FALSE(pages.isGrowing);
  m_status = JOB_STATUS_SPOOLING | JOB_STATUS_PRINTING;
  GetNumCopies(L"Laser", 17, &pages);
  EXPECT_TRUE(pages.isGrowing);
}

TEST_F(NumCopiesTest, ThePagesOfAJobThatCannotBeReadStayAsTheyWere) {
  mg::QueuedPages pages{3, true};
  m_second = false;
  GetNumCopies(L"Laser", 17, &pages);
  EXPECT_EQ(pages.count, 3u);
}

TEST_F(NumCopiesTest, ThePagesAloneAreAskedWithoutARecordWhateverFails) {
  EXPECT_EQ(mg::pagesInQueue(L"Laser", 17).count, 12u);
  EXPECT_THAT(m_seams.calls(), ElementsAre("OpenPrinterW", "GetJobW", "GetJobW", "ClosePrinter"));
  m_second = false;
  EXPECT_EQ(mg::pagesInQueue(L"Laser", 17).count, 0u);
  m_second = true;
  m_needed = 4;
  EXPECT_EQ(mg::pagesInQueue(L"Laser", 17).count, 0u);
  m_needed = sizeof(JOB_INFO_2W) + 40;
  {
    const FailingNew failing(1);
    EXPECT_EQ(mg::pagesInQueue(L"Laser", 17).count, 0u);
    EXPECT_TRUE(failing.hasFailed());
  }
  OpenPrinterWSeam.fail(1, FALSE, 5);
  EXPECT_EQ(mg::pagesInQueue(L"Laser", 17).count, 0u);
  EXPECT_THAT(m_records.lines(), IsEmpty());
}

TEST_F(NumCopiesTest, EveryCountThatTheDeviceModeCanTellIsToldWhole) {
  EXPECT_EQ(copiesFor(1), 1);
  EXPECT_EQ(copiesFor(256), 256);
  EXPECT_EQ(copiesFor(32767), 32767);
}

TEST_F(NumCopiesTest, ACountBelowOneIsOne) {
  EXPECT_EQ(copiesFor(0), 1);
  EXPECT_EQ(copiesFor(-4), 1);
}

TEST_F(NumCopiesTest, AJobWithoutADeviceModeIsPrintedOnce) {
  m_hasMode = false;
  EXPECT_EQ(copiesFor(5), 1);
  EXPECT_THAT(m_records.lines(), IsEmpty());
}

TEST_F(NumCopiesTest, APrinterThatCannotBeOpenedIsRecorded) {
  OpenPrinterWSeam.fail(1, FALSE, 5);
  EXPECT_EQ(copiesFor(5), 1);
  EXPECT_THAT(m_seams.calls(), ElementsAre("OpenPrinterW"));
  EXPECT_THAT(m_records.lines(), ElementsAre("0x4000000c: Failed to open printer: Laser",
                                             "10: Failed to open printer: Laser", kNumCopiesTrace));
  EXPECT_EQ(m_records.reports(), 1);
}

TEST_F(NumCopiesTest, AJobOfUnknownSizeIsRecordedAndThePrinterClosed) {
  m_needed = 0;
  EXPECT_EQ(copiesFor(5), 1);
  EXPECT_THAT(m_seams.calls(), ElementsAre("OpenPrinterW", "GetJobW", "ClosePrinter"));
  EXPECT_THAT(m_records.lines(), ElementsAre("0x4000000c: Failed to get print job info: Laser, job #17",
                                             "10: Failed to get print job info: Laser, job #17", kNumCopiesTrace));
}

TEST_F(NumCopiesTest, AJobThatCannotBeReadIsRecordedAndThePrinterClosed) {
  m_second = false;
  EXPECT_EQ(copiesFor(5), 1);
  EXPECT_THAT(m_seams.calls(), ElementsAre("OpenPrinterW", "GetJobW", "GetJobW", "ClosePrinter"));
  EXPECT_THAT(m_records.lines(), ElementsAre("0x4000000c: Failed to get print job info: Laser, job #17",
                                             "10: Failed to get print job info: Laser, job #17", kNumCopiesTrace));
}

TEST_F(NumCopiesTest, WithoutMemoryAnUnknownExceptionIsRecordedAndThePrinterClosed) {
  {
    const FailingNew failing(1);
    EXPECT_EQ(copiesFor(5), 1);
    EXPECT_TRUE(failing.hasFailed());
  }
  EXPECT_THAT(m_seams.calls(), ElementsAre("OpenPrinterW", "GetJobW", "ClosePrinter"));
  EXPECT_THAT(m_records.lines(), ElementsAre("10: number 3012", kNumCopiesTrace));
}

TEST_F(NumCopiesTest, ANullNameIsABadArgument) {
  EXPECT_EQ(GetNumCopies(nullptr, 17), 1);
  EXPECT_THAT(m_seams.calls(), IsEmpty());
  EXPECT_THAT(m_records.lines(), ElementsAre("10: number 3015", kNumCopiesTrace));
}

}  // namespace
