#include "jobs/conversion.h"

#include "tests/sweeps/sweep.h"

#include <cstring>
#include <cwchar>
#include <fstream>
#include <gtest/gtest.h>
#include <string>

namespace {

constexpr char kPdf[] = "%PDF-1.4\nstand-in\n%%EOF\n";

// A conversion alone, with the job's record kept to look at. Of its files those may stay whose deletion is what fails.
class ConversionScenario : public Scenario {
 public:
  ConversionScenario(World& world, const char* document, bool givesPdf, int mayStay)
      : m_world(world), m_document(document), m_givesPdf(givesPdf), m_mayStay(mayStay) {
    const std::wstring base = world.temporaryFolder() + L"\\Laser - Job #17-90210";
    m_ps = base + L".ps";
    m_pdf = base + L".pdf";
    m_log = base + L".log";
    m_narrowPs.assign(m_ps.begin(), m_ps.end());
  }

  void prepare() override { renew(); }
  void run() override { m_result = ConvertJob(&m_job, L"Laser"); }
  void check() override {
    EXPECT_EQ(m_result, 0);
    std::wcscpy(m_cause, m_job.report.cause());
    // All of the PDF or nothing of it, unless reading it is what failed: then as many zeros.
    m_hasPdf = m_job.finalData != nullptr && std::memcmp(m_job.finalData, kPdf, sizeof kPdf - 1) == 0;
    if (m_job.finalData != nullptr) {
      EXPECT_EQ(m_job.finalDataLength, static_cast<int>(sizeof kPdf - 1));
    }
    if (m_job.finalData != nullptr && !m_hasPdf) {
      EXPECT_EQ(m_job.finalData[0], 0);
    }
    EXPECT_LE(m_world.takeTemporaryFiles(), m_mayStay);
    renew();
  }
  void checkWhole() override { EXPECT_EQ(m_hasPdf, m_givesPdf) << testing::PrintToString(std::wstring(m_cause)); }
  void tidy() override {
    m_world.takeTemporaryFiles();
    clear();
  }

 private:
  void clear() {
    m_job.~ClientPrintJob();
    new (&m_job) ClientPrintJob;
  }
  void renew() {
    clear();
    m_job.settings = {1, 2, 3, 2};
    m_job.postScriptPath = m_ps.c_str();
    m_job.pdfPath = m_pdf.c_str();
    m_job.logPath = m_log.c_str();
    std::ofstream(m_narrowPs, std::ios::binary) << m_document;
  }

  World& m_world;
  const char* m_document;
  bool m_givesPdf;
  int m_mayStay;
  std::wstring m_ps;
  std::wstring m_pdf;
  std::wstring m_log;
  std::string m_narrowPs;
  ClientPrintJob m_job;
  int m_result = -1;
  wchar_t m_cause[JobReport::kCauseSize] = {};  // of a conversion that failed
  bool m_hasPdf = false;
};

constexpr char kDocument[] = "%!PS-Adobe-3.0\nshowpage\n";
constexpr char kRefused[] = "%!PS-Ado refuse\n";

class ConversionSweep : public testing::Test {
 protected:
  World m_world;
};

TEST_F(ConversionSweep, AConversionSurvivesEveryFailingAllocation) {
  ConversionScenario scenario(m_world, kDocument, true, 0);
  EXPECT_GT(sweepAllocations(m_world, scenario), 10);
}

// Its records and the converter's own words need memory as well.
TEST_F(ConversionSweep, AConversionThatFailsSurvivesEveryFailingAllocation) {
  ConversionScenario scenario(m_world, kRefused, false, 0);
  EXPECT_GT(sweepAllocations(m_world, scenario), 10);
}

TEST_F(ConversionSweep, AConversionSurvivesEveryFailingCall) {
  ConversionScenario scenario(m_world, kDocument, true, 1);
  EXPECT_GT(sweepCalls(m_world, scenario), 40);
}

}  // namespace
