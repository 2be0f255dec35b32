#include "client/job_output.h"

#include <cstdio>
#include <gtest/gtest.h>

namespace printclient {
namespace {

class CountedSink : public Sink {
 public:
  TakenJob take(const ArrivedJob&) override { return {}; }
  void stop() noexcept override { ++m_stops; }
  int m_stops = 0;
};

class JobOutputTest : public ::testing::Test {
 protected:
  JobOutputTest() : m_reporter(m_lines, false) {}
  ~JobOutputTest() override { std::fclose(m_lines); }

  std::FILE* m_lines = std::tmpfile();
  Reporter m_reporter;
};

TEST_F(JobOutputTest, GivesEachPrinterItsSinkAndAllOthersTheCommonOne) {
  const auto own = std::make_shared<CountedSink>();
  const auto later = std::make_shared<CountedSink>();
  const auto others = std::make_shared<CountedSink>();
  JobOutput output("", 5, 42, m_reporter, others);
  output.setSink(L"A", own);
  EXPECT_EQ(output.sinkOf(L"A"), own);
  EXPECT_EQ(output.sinkOf(L"a"), others);
  EXPECT_EQ(output.sinkOf(L""), others);
  output.setSink(L"A", later);
  EXPECT_EQ(output.sinkOf(L"A"), later);
  output.stopSinks();
  EXPECT_EQ(own->m_stops, 0);
  EXPECT_EQ(later->m_stops, 1);
  EXPECT_EQ(others->m_stops, 1);
}

TEST_F(JobOutputTest, RefusesAPrinterWithoutASink) {
  const JobOutput output("", 5, 42, m_reporter, nullptr);
  try {
    output.sinkOf(L"B\n");
    FAIL() << "there is one";
  } catch (const SinkRefusal& refusal) {
    EXPECT_STREQ(refusal.what(), "this print client has no printer \"B \"");
    EXPECT_EQ(refusal.remedy(), "see which printers it has registered, and print to one of them");
  }
}

TEST_F(JobOutputTest, KnowsWhereWhatComesOnAConnectionIsFromUntilItIsForgotten) {
  JobOutput output("", 0, 42, m_reporter, nullptr);
  const auto* const one = reinterpret_cast<const CS_Connection*>(0x10);
  const auto* const other = reinterpret_cast<const CS_Connection*>(0x20);
  output.setOrigin(one, {1, 5, "a:1: "});
  output.setOrigin(other, {2, 7, "b:2: "});
  EXPECT_EQ(output.originOf(one).label, "a:1: ");
  EXPECT_EQ(output.originOf(one).sessionText(), "session 5");
  EXPECT_EQ(output.originOf(other).server, 2);
  output.forgetOrigin(one);
  EXPECT_EQ(output.originOf(one).sessionText(), "one of several sessions");
  EXPECT_EQ(output.originOf(nullptr).label, "");
}

}  // namespace
}  // namespace printclient
