#include "jobs/conversion.h"
#include "jobs/job_settings.h"
#include "jobs/spool_file.h"
#include "jobs/spooler_calls.h"
#include "session/port_monitor_server.h"
#include "session/session_printers.h"
#include "tests/support/local_log.h"
#include "tests/support/recording_monitor.h"

#include <gtest/gtest.h>

// What each operation of this folder says about itself in the trace. The calls have nothing to work on: the operation
// speaks before it looks.
namespace {

class JobTraceTest : public testing::Test {
 protected:
  JobTraceTest() { m_log.trace(); }

  // What was entered first and left last.
  std::string outermost() {
    const auto lines = m_log.lines();
    m_log.clear();
    if (lines.size() < 2) return "";
    EXPECT_EQ(lines.front().substr(0, 6), "enter ");
    EXPECT_EQ(lines.back(), "leave " + lines.front().substr(6));
    return lines.front().substr(6);
  }

  RecordingScope m_records;
  LocalLog m_log;
  ClientPrintJob m_job;
};

TEST_F(JobTraceTest, TheStepsOfAConversionNameThemselves) {
  ConvertJob(nullptr, L"Laser");
  EXPECT_EQ(outermost(), "ConvertJob (printerName = Laser)");
  m_job.postScriptPath = L"no\\such\\folder";
  IsPostScriptData(m_job);
  EXPECT_EQ(outermost(), "IsPostScriptData()");
  ReadDataIntoFinalBuffer(m_job);
  EXPECT_EQ(outermost(), "ReadDataIntoFinalBuffer()");
}

TEST_F(JobTraceTest, TheStepsOfPlainTextNameThemselves) {
  m_job.jobName = L"no\\such\\folder";
  PrintRawDataViaNotepad(m_job, L"Preview PDF");
  EXPECT_EQ(outermost(), "PrintRawDataViaNotepad (printerName = Preview PDF)");
  StripEscapeChars(nullptr, 0);
  EXPECT_EQ(outermost(), "StripEscapeChars()");
}

TEST_F(JobTraceTest, TheSettingsOfAJobNameThemselves) {
  ConfigurePrintJobSettings(nullptr, ClientPrinter());
  EXPECT_EQ(outermost(), "ConfigurePrintJobSettings()");
  GetNumCopies(nullptr, 17);
  EXPECT_EQ(outermost(), "GetNumCopies (printerName = (null), jobId = 17)");
}

TEST_F(JobTraceTest, ShowingAPrinterNamesItself) {
  ShowPrinter(0, L"Laser");
  EXPECT_EQ(outermost(), "ShowPrinter (sessionId = 0, printerName = Laser)");
}

}  // namespace
