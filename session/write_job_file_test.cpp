#include "session/print_server.h"
#include "tests/support/failing_new.h"
#include "tests/support/import_seam.h"
#include "tests/support/monitor_world.h"

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <iterator>

MG_PLAIN_SEAM(L"msvcrt.dll", fclose, EOF)

// As MG_PLAIN_SEAM, for a function whose declaration has attributes.
struct FwriteTag {
  static constexpr const wchar_t* kModule = L"msvcrt.dll";
  static constexpr const char* kFunction = "fwrite";
};
using Fwrite = std::size_t(const void*, std::size_t, std::size_t, std::FILE*);
static import_seam::FunctionSeam<FwriteTag, Fwrite> fwriteSeam(0);
extern "C" {
Fwrite* __imp_fwrite = &decltype(fwriteSeam)::call;
}
__asm__(".text\n.globl fwrite\nfwrite:\n  jmp *__imp_fwrite(%rip)\n");

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

std::string readAll(const std::filesystem::path& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

class WriteJobFileTest : public testing::Test {
 protected:
  WriteJobFileTest() {
    std::filesystem::create_directories(m_folder);
    m_job.settings = {1, 2, 3, 2};
    m_job.postScriptPath = m_path.c_str();
  }
  ~WriteJobFileTest() override { std::filesystem::remove_all(m_folder); }

  int write(const std::string& text) {
    return m_stream.WriteJob(&m_job, reinterpret_cast<const unsigned char*>(text.data()),
                             static_cast<int>(text.size()));
  }

  ImportSeams m_seams;
  RecordingScope m_records;
  std::filesystem::path m_folder = std::filesystem::temp_directory_path() / L"write_job_file_test";
  std::filesystem::path m_path = m_folder / L"job.ps";
  // Without an owner: collecting data needs no connection.
  PrintServer m_stream;
  ClientPrintJob m_job;
};

TEST_F(WriteJobFileTest, DataToBeConvertedAreAppendedAsTheyAre) {
  EXPECT_EQ(write("%!PS-Adobe\n"), 1);
  EXPECT_EQ(write("showpage\r\n"), 1);
  EXPECT_EQ(readAll(m_path), "%!PS-Adobe\nshowpage\r\n");
  EXPECT_THAT(m_records.lines(), IsEmpty());
}

TEST_F(WriteJobFileTest, AnyModeThatIsNotDirectCollects) {
  m_job.settings[3] = 0;
  EXPECT_EQ(write("a"), 1);
  EXPECT_EQ(readAll(m_path), "a");
}

TEST_F(WriteJobFileTest, DataOfNoLengthMakeTheFileAndWriteNothing) {
  EXPECT_EQ(write(""), 1);
  EXPECT_TRUE(std::filesystem::exists(m_path));
  EXPECT_EQ(readAll(m_path), "");
}

TEST_F(WriteJobFileTest, AFileThatCannotBeOpenedIsRecordedWithItsErrno) {
  m_job.postScriptPath = (m_folder / L"missing" / L"job.ps").c_str();
  EXPECT_EQ(write("a"), 0);
  EXPECT_THAT(m_records.lines(),
              ElementsAre("0x4000000a: Failed to open print job's postscript file for writing: " +
                          corvane::toUtf8(m_job.postScriptPath.wide()) + ", Error: " + std::to_string(ENOENT)));
}

TEST_F(WriteJobFileTest, APathOutsideTheCodePageIsRecordedWhole) {
  m_job.postScriptPath = (m_folder / L"\u4e2d\xD800.ps").c_str();
  EXPECT_EQ(write("a"), 0);
  ASSERT_EQ(m_records.lines().size(), 1u);
  EXPECT_THAT(m_records.lines()[0], testing::HasSubstr(corvane::toUtf8(m_job.postScriptPath.wide()) + ", Error: "));
}

TEST_F(WriteJobFileTest, DataThatADiskDoesNotTakeAreNotTakenForWritten) {
  m_job.postScriptPath = L"Z:\\dev\\full";
  EXPECT_EQ(write("a"), 0);
}

TEST_F(WriteJobFileTest, MoreDataThanTheRuntimeHoldsBackAreRefusedByTheWriteItself) {
  m_job.postScriptPath = L"Z:\\dev\\full";
  EXPECT_EQ(write(std::string(100000, 'x')), 0);
  EXPECT_TRUE(m_job.dataLost);
  EXPECT_EQ(m_job.report.fault(), JobFault::kCollect);
  EXPECT_STREQ(m_job.report.cause(), L"The print job's postscript file did not take all data: Z:\\dev\\full");
}

TEST_F(WriteJobFileTest, AShortWriteIsNotTakenForAWholeOneThoughNothingElseFails) {
  fwriteSeam.replacement = [](const void* data, size_t size, size_t count, std::FILE* file) {
    return fwriteSeam.real(data, size, count - 1, file);
  };
  EXPECT_EQ(write("abc"), 0);
  fwriteSeam.restore();
  EXPECT_TRUE(m_job.dataLost);
  EXPECT_EQ(readAll(m_path), "ab");
}

TEST_F(WriteJobFileTest, AFileThatCannotBeClosedHasNotTakenItsData) {
  fcloseSeam.whenChosen = [](std::FILE* file) { fcloseSeam.real(file); };
  m_job.postScriptPath.narrow();  // converted before, so that nothing but the file's own calls has a seam
  m_seams.failNth(1);
  EXPECT_EQ(write("a"), 0);
  EXPECT_TRUE(m_seams.hasFailed());
  EXPECT_TRUE(m_job.dataLost);
  EXPECT_EQ(m_job.report.cause(), L"The print job's postscript file did not take all data: " + m_path.wstring());
}

TEST_F(WriteJobFileTest, WithoutMemoryForItsPathTheJobIsLostForAnUnexpectedException) {
  {
    const FailingNew failing(1);
    EXPECT_EQ(m_stream.WriteJob(&m_job, reinterpret_cast<const unsigned char*>("a"), 1), 0);
    EXPECT_TRUE(failing.hasFailed());
  }
  EXPECT_TRUE(m_job.dataLost);
  EXPECT_STREQ(m_job.report.cause(), L"Failed to send print job data: An unexpected exception was caught.");
  EXPECT_EQ(write("b"), 0);
  EXPECT_FALSE(std::filesystem::exists(m_path));
  EXPECT_THAT(m_records.lines(), IsEmpty());
}

TEST_F(WriteJobFileTest, AfterALostWriteNothingMoreOfTheJobIsTakenOrEnded) {
  m_job.postScriptPath = L"Z:\\dev\\full";
  EXPECT_EQ(write("a"), 0);
  m_job.postScriptPath = m_path.c_str();
  EXPECT_EQ(write("b"), 0);
  EXPECT_FALSE(std::filesystem::exists(m_path));
  EXPECT_EQ(m_stream.WriteJob(&m_job, nullptr, 0), 0);
  EXPECT_EQ(m_stream.EndJob(&m_job), 0);
  EXPECT_THAT(m_records.lines(), IsEmpty());
}

}  // namespace
