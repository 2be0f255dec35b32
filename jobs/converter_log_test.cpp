#include "jobs/convert_job_test.h"

#include <cstring>
#include <gmock/gmock.h>

MG_IMPORT_SEAM(L"kernel32.dll", MultiByteToWideChar, 0)

namespace {

using testing::IsEmpty;
using testing::SizeIs;

// What becomes of the words of the converter.
class ConverterLogTest : public ConvertJobTest {};

TEST_F(ConverterLogTest, WhereNothingFailedNothingIsRecorded) {
  m_output = "one page";
  EXPECT_EQ(convert(), 0);
  EXPECT_THAT(m_records.lines(), IsEmpty());
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
  EXPECT_EQ(corvane::toUtf8(m_job.failure.cause()),
            "Failed to open normalized print job file: " + command() + " - Last Error = 2.");
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

}  // namespace
