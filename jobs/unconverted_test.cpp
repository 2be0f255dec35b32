#include "jobs/spool_file.h"
#include "tests/support/jobs/convert_job_fixture.h"
#include "tests/support/jobs/file_read_seam.h"
#include "tests/support/local_log.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string>

namespace mg {
namespace {

std::wstring why(const std::string& data) {
  return whyUnconverted(reinterpret_cast<const unsigned char*>(data.data()), data.size());
}

TEST(WhyUnconverted, PrinterCommandsInFrontAreNamedWithTheSettingToChange) {
  const std::wstring text =
      L"sent as it came: not recognised as PostScript; printer commands (PJL) stand in front of it. Turn them off in "
      L"the driver's settings, or give the printer a driver without them.";
  EXPECT_EQ(why("\x1b%-12345X@PJL JOB\r\n@PJL ENTER LANGUAGE=POSTSCRIPT\r\n%!PS-Adobe-3.0\n"), text);
  EXPECT_EQ(why("@PJL ENTER LANGUAGE=POSTSCRIPT\r\n%!PS-Adobe-3.0\n"), text);
  EXPECT_EQ(why("\x1b"
                "E%!PS-Adobe-3.0\n"),
            text);
}

TEST(WhyUnconverted, ACtrlDInFrontIsNamedWithTheSettingToChange) {
  EXPECT_EQ(why("\x04%!PS-Adobe-3.0\n"),
            L"sent as it came: not recognised as PostScript; a Ctrl-D stands in front of it. Turn \"Send CTRL-D before "
            L"each job\" off in the driver's settings.");
}

TEST(WhyUnconverted, AFirstLineWithoutTheSignIsNamed) {
  for (const char* data : {"%!\nshowpage\n", "%!PS\nshowpage\n"}) {
    EXPECT_EQ(why(data),
              L"sent as it came: not recognised as PostScript; its first line does not begin with \"%!PS-\". Let the "
              L"application or driver write PostScript with structuring comments (\"%!PS-Adobe-3.0\").");
  }
}

TEST(WhyUnconverted, WhateverElseStandsInFrontIsNamed) {
  for (const char* data : {"\n%!PS-Adobe-3.0\n", "\xEF\xBB\xBF%!PS-Adobe-3.0\n", "x %!PS-Adobe-3.0\n"})
    EXPECT_NE(why(data).find(L"something stands in front of its \"%!PS\"."), std::wstring::npos) << data;
}

TEST(WhyUnconverted, OtherDataAreNamedForWhatTheyAre) {
  EXPECT_EQ(why("%PDF-1.7\n"), L"sent as it came: it is a PDF already.");
  const std::wstring other =
      L"sent as it came: not recognised as PostScript. To get a PDF, give the printer a PostScript driver.";
  EXPECT_EQ(why("plain text"), other);
  EXPECT_EQ(why("\x1b%-12345X@PJL ENTER LANGUAGE=PCL\r\n"), other);
  EXPECT_EQ(why(std::string(5000, ' ') + "%!PS-Adobe-3.0\n"), other);
  EXPECT_EQ(whyUnconverted(nullptr, 7), other);
}

}  // namespace
}  // namespace mg

TEST_F(ConvertJobTest, DataThatAreSentAsTheyCameHaveALineInTheModulesOwnLog) {
  const LocalLog log;
  TemporaryFolder::write(m_pdf, "");
  TemporaryFolder::write(m_log, "");
  TemporaryFolder::write(m_ps, "\x1b%-12345X@PJL\r\n%!PS-Adobe-3.0\nshowpage\n");
  EXPECT_EQ(convert(), 0);
  EXPECT_EQ(finalData(), "\x1b%-12345X@PJL\r\n%!PS-Adobe-3.0\nshowpage\n");
  ASSERT_EQ(log.lines().size(), 1u);
  EXPECT_THAT(
      log.lines()[0],
      testing::EndsWith("\"Laser - Job #1\" is sent as it came: not recognised as PostScript; printer commands "
                        "(PJL) stand in front of it. Turn them off in the driver's settings, or give the printer "
                        "a driver without them."));
  ASSERT_NE(m_job.report.remark, nullptr);
  EXPECT_EQ(std::wstring(m_job.report.remark).find(L"sent as it came: "), 0u);
  EXPECT_THAT(m_records.lines(), testing::IsEmpty());
  EXPECT_FALSE(m_job.report.hasFailed());
}

TEST_F(ConvertJobTest, AJobThatWasConvertedOrCouldNotBeReadHasNoSuchLine) {
  const LocalLog log;
  convert();
  EXPECT_EQ(m_job.report.remark, nullptr);
  TemporaryFolder::write(m_ps, "plain text");
  int reads = 0;
  file_read_seam::replace([&](void* to, std::size_t size, std::size_t count, std::FILE* file) -> std::size_t {
    if (++reads == 1) return file_read_seam::real(to, size, count, file);
    return 0;
  });
  convert();
  EXPECT_EQ(m_job.report.remark, nullptr);
  EXPECT_THAT(log.lines(), testing::IsEmpty());
}
