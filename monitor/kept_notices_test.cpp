#include "monitor/kept_notices.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string>
#include <vector>

namespace mg {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;
using testing::StartsWith;

class Listener : public CS_ProgramMonitor {
 public:
  void notify(const CS_Notice& notice) noexcept override { heard.push_back(notice); }

  std::vector<CS_Notice> heard;

 protected:
  void write(const CS_Record&) noexcept override {}
};

class KeptNoticesTest : public testing::Test {
 protected:
  ~KeptNoticesTest() override { m_kept.clear(); }

  std::vector<std::wstring> told() {
    m_listener.heard.clear();
    m_kept.tellAll(m_listener);
    std::vector<std::wstring> lines;
    for (const CS_Notice& notice : m_listener.heard)
      lines.push_back(notice.line);
    return lines;
  }

  KeptNotices& m_kept = KeptNotices::instance();
  Listener m_listener;
};

TEST_F(KeptNoticesTest, AreToldOnceInTheirOrderWithTheTimeAtWhichTheyWere) {
  m_kept.keep({L"job", L"one", {{L"result", L"failed"}}});
  m_kept.keep({L"job", L"two", {}});
  EXPECT_THAT(told(), ElementsAre(StartsWith(L"one (Told late: it ended at 2"), StartsWith(L"two (Told late: ")));
  EXPECT_EQ(m_listener.heard[0].kind, L"job");
  EXPECT_THAT(m_listener.heard[0].values, ElementsAre(std::pair<std::wstring, std::wstring>(L"result", L"failed")));
  EXPECT_THAT(told(), IsEmpty());
}

TEST_F(KeptNoticesTest, TheOldestMakesRoomAndLongTextsAreCut) {
  for (std::size_t i = 0; i <= KeptNotices::kMost; ++i)
    m_kept.keep({L"job", std::to_wstring(i) + L".", {{L"document", std::wstring(5000, L'x')}}});
  const auto lines = told();
  ASSERT_THAT(lines, SizeIs(KeptNotices::kMost));
  EXPECT_THAT(lines.front(), StartsWith(L"1."));
  EXPECT_THAT(lines.back(), StartsWith(L"32."));
  EXPECT_THAT(m_listener.heard[0].values[0].second, SizeIs(KeptNotices::kMostText));
}

}  // namespace
}  // namespace mg
