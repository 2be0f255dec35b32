#include "client/sinks/sink_table.h"

#include <gtest/gtest.h>

namespace printclient {
namespace {

class StubSink : public Sink {
 public:
  std::string take(const ArrivedJob&) override { return ""; }
  void stop() noexcept override { ++m_stops; }
  int m_stops = 0;
};

TEST(SinkTable, GivesEachPrinterItsSinkAndAllOthersTheCommonOne) {
  const auto own = std::make_shared<StubSink>();
  const auto later = std::make_shared<StubSink>();
  const auto others = std::make_shared<StubSink>();
  SinkTable sinks(others);
  sinks.set(L"A", own);
  EXPECT_EQ(sinks.of(L"A"), own);
  EXPECT_EQ(sinks.of(L"a"), others);
  EXPECT_EQ(sinks.of(L""), others);
  sinks.set(L"A", later);
  EXPECT_EQ(sinks.of(L"A"), later);
  sinks.stop();
  EXPECT_EQ(own->m_stops, 0);
  EXPECT_EQ(later->m_stops, 1);
  EXPECT_EQ(others->m_stops, 1);
}

TEST(SinkTable, RefusesAPrinterWithoutASink) {
  const SinkTable sinks;
  try {
    sinks.of(L"B\n");
    FAIL() << "there is one";
  } catch (const SinkRefusal& refusal) {
    EXPECT_STREQ(refusal.what(), "this print client has no printer \"B \"");
    EXPECT_EQ(refusal.remedy(), "see which printers it has registered, and print to one of them");
  }
}

}  // namespace
}  // namespace printclient
