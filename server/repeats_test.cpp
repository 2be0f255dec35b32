#include "server/log_lines.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace aps {
namespace {

using std::chrono::seconds;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

class RepeatsTest : public ::testing::Test {
 protected:
  bool take(const std::string& kind, const std::string& text, int atSecond) {
    return m_repeats.take(kind, {text, true}, m_begin + seconds(atSecond));
  }
  std::vector<std::string> due(int atSecond) {
    std::vector<std::string> texts;
    for (const Repeats::Line& line : m_repeats.due(m_begin + seconds(atSecond)))
      texts.push_back(line.text);
    return texts;
  }
  int dueSecond() const { return static_cast<int>((m_repeats.dueAt() - m_begin) / seconds(1)); }
  void fill(const std::string& kind, int atSecond) {
    for (int i = 0; i < Repeats::kFirst; ++i)
      EXPECT_TRUE(take(kind, "first", atSecond));
  }

  const Repeats::Clock::time_point m_begin = Repeats::Clock::now();
  Repeats m_repeats;
};

TEST_F(RepeatsTest, TheFirstOfAKindAreWrittenAndTheOthersBecomeOneLine) {
  fill("a", 0);
  EXPECT_FALSE(take("a", "eleventh", 1));
  EXPECT_FALSE(take("a", "twelfth", 2));
  EXPECT_THAT(due(59), IsEmpty());
  EXPECT_EQ(dueSecond(), 60);
  EXPECT_THAT(due(60), ElementsAre("2 more of these within 60 s, the latest: twelfth"));
}

TEST_F(RepeatsTest, OfWhatIsNoFailureMoreIsWritten) {
  int written = 0;
  for (int i = 0; i < 200; ++i)
    written += m_repeats.take("a", {"comes", false}, m_begin) ? 1 : 0;
  EXPECT_EQ(written, Repeats::kFirstOrdinary);
  const auto lines = m_repeats.all(m_begin);
  ASSERT_EQ(lines.size(), 1u);
  EXPECT_FALSE(lines[0].isFailure);
}

TEST_F(RepeatsTest, NothingIsDueBeforeTheFirst) {
  EXPECT_EQ(m_repeats.dueAt(), Repeats::Clock::time_point::max());
  EXPECT_THAT(due(1000), IsEmpty());
}

TEST_F(RepeatsTest, WhileTheyGoOnTheWindowsGrowToTheirBound) {
  fill("a", 0);
  std::vector<int> lengths;
  for (int at = 0; lengths.size() < 6; at += lengths.back()) {
    EXPECT_FALSE(take("a", "again", at));
    lengths.push_back(dueSecond() - at);
    EXPECT_THAT(due(at + lengths.back()),
                ElementsAre("1 more of these within " + std::to_string(lengths.back()) + " s, the latest: again"));
  }
  EXPECT_THAT(lengths, ElementsAre(60, 120, 240, 480, 600, 600));
}

TEST_F(RepeatsTest, AfterAWindowWithoutAnyAKindBeginsAnew) {
  fill("a", 0);
  take("a", "eleventh", 1);
  due(60);
  EXPECT_THAT(due(179), IsEmpty());
  EXPECT_FALSE(take("a", "again", 179));
  due(180);
  EXPECT_THAT(due(420), IsEmpty());
  EXPECT_EQ(m_repeats.dueAt(), Repeats::Clock::time_point::max());
  fill("a", 420);
  EXPECT_EQ(dueSecond(), 480);
}

TEST_F(RepeatsTest, OneKindDoesNotUseUpAnother) {
  fill("a", 0);
  take("a", "eleventh", 0);
  fill("b", 30);
  EXPECT_THAT(due(90), ElementsAre("1 more of these within 90 s, the latest: eleventh"));
}

TEST_F(RepeatsTest, PastItsBoundKindsShareOne) {
  for (std::size_t i = 0; i < Repeats::kKinds; ++i)
    fill("kind " + std::to_string(i), 0);
  int written = 0;
  for (int i = 0; i < 1000; ++i)
    written += take("other " + std::to_string(i), "other", 1) ? 1 : 0;
  EXPECT_EQ(written, Repeats::kFirst);
  EXPECT_THAT(due(61), ElementsAre("990 more of these within 60 s, the latest: other"));
}

TEST_F(RepeatsTest, AtTheEndEverythingCountedIsTold) {
  fill("a", 0);
  fill("b", 0);
  take("a", "eleventh", 1);
  const auto lines = m_repeats.all(m_begin + seconds(7));
  ASSERT_EQ(lines.size(), 1u);
  EXPECT_EQ(lines[0].text, "1 more of these within 7 s, the latest: eleventh");
  EXPECT_TRUE(lines[0].isFailure);
  EXPECT_THAT(due(1000), IsEmpty());
}

}  // namespace
}  // namespace aps
