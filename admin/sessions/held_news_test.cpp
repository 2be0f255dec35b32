#include "admin/sessions/held_news.h"

#include "programs/text.h"

#include <gmock/gmock.h>
#include <sstream>

namespace admin {
namespace {

using ::testing::ElementsAre;

protocol::Notice held(int number, const wchar_t* state, const wchar_t* cause = L"", const wchar_t* remedy = L"") {
  protocol::Notice notice;
  notice.number = number;
  notice.kind = L"held";
  notice.values = {{L"job", L"17"},
                   {L"printer", L"Laser-2 (session 5)"},
                   {L"document", L"A secret"},
                   {L"session", L"5"},
                   {L"state", state}};
  if (*cause != L'\0') notice.values.emplace_back(L"cause", cause);
  if (*remedy != L'\0') notice.values.emplace_back(L"remedy", remedy);
  return notice;
}

class HeldNewsTest : public testing::Test {
 protected:
  // What is said when the server has these notices, the last one of which has that number.
  std::string see(std::vector<protocol::Notice> notices, int latest) {
    return see(notices, latest, {}, m_output, m_out);
  }
  std::string see(const std::vector<protocol::Notice>& notices, int latest,
                  const std::vector<protocol::HeldForSession>& present, Output& output, std::ostringstream& out) {
    protocol::ServerStatus facts;
    facts.process = m_process;
    facts.since = L"2026-01-31T23:59:59Z";
    facts.held.emplace().list = present;
    HeldNews& news = &output == &m_output ? m_news : m_jsonNews;
    news.see(facts, [&](int after) {
      m_asked.push_back(after);
      return protocol::Notices::Answer{latest, after < 0 ? std::vector<protocol::Notice>() : notices};
    });
    std::string said = out.str();
    out.str("");
    return said;
  }

  int m_process = 77;
  std::vector<int> m_asked;
  std::ostringstream m_out, m_json;
  Output m_output{m_out, m_out, false}, m_jsonOutput{m_json, m_json, true};
  HeldNews m_news{m_output}, m_jsonNews{m_jsonOutput};
};

TEST_F(HeldNewsTest, EachChangeIsALineWithoutTheDocument) {
  EXPECT_EQ(see({}, 3), "");
  EXPECT_EQ(see({held(4, L"held"), held(5, L"delivered"),
                 held(6, L"held", L"The printer \"Ink\" is not there any more.", L"Bring it back."),
                 held(7, L"canceled", L"It was canceled by PC\\anna."),
                 held(8, L"failed", L"It is too old.", L"Print again.")},
                8),
            "session 5: job 17 on \"Laser-2 (session 5)\" is held until its print client is back\n"
            "session 5: job 17 on \"Laser-2 (session 5)\" was held, and has been delivered\n"
            "session 5: job 17 on \"Laser-2 (session 5)\" is held: The printer \"Ink\" is not there any more. Bring it "
            "back.\n"
            "session 5: job 17 on \"Laser-2 (session 5)\" was held, and is canceled: It was canceled by PC\\anna.\n"
            "session 5: job 17 on \"Laser-2 (session 5)\" was held, and is not printed: It is too old. Print again.\n");
  EXPECT_EQ(see({}, 8), "");
  EXPECT_THAT(m_asked, ElementsAre(-1, 3, 8));
}

TEST_F(HeldNewsTest, OtherNoticesAreNotSaid) {
  see({}, 3);
  protocol::Notice paper = held(4, L"printed");
  paper.kind = L"paper";
  EXPECT_EQ(see({paper}, 4), "");
}

TEST_F(HeldNewsTest, WhatIsHeldAlreadyIsSaidOnce) {
  const std::string since = programs::localTime(L"2026-01-31T12:00:00Z");
  const std::vector<protocol::HeldForSession> present = {{5, 2, 11, L"2026-01-31T12:00:00Z"},
                                                         {6, 1, 10000, L"2026-01-31T12:00:00Z"}};
  EXPECT_EQ(see({}, 0, present, m_output, m_out), "");
  EXPECT_EQ(see({}, 0, present, m_output, m_out), "session 5: 2 jobs are held, 11 B, the oldest since " + since +
                                                      "\nsession 6: 1 job is held, 10 kB, since " + since + "\n");
  EXPECT_EQ(see({}, 0, present, m_output, m_out), "");
}

TEST_F(HeldNewsTest, AnotherServerBeginsItsNumbersAgainAndAllOfItIsNew) {
  see({}, 30);
  see({}, 30);
  m_process = 78;
  EXPECT_EQ(see({held(1, L"delivered")}, 1),
            "session 5: job 17 on \"Laser-2 (session 5)\" was held, and has been delivered\n");
  EXPECT_THAT(m_asked, ElementsAre(-1, 30, 0));
}

TEST_F(HeldNewsTest, NoticesThatWereGoneAreCounted) {
  see({}, 3);
  EXPECT_EQ(see({held(6, L"held")}, 6),
            "2 of the server's notices were gone before this looked: mgprintmon jobs says what became of all jobs\n"
            "session 5: job 17 on \"Laser-2 (session 5)\" is held until its print client is back\n");
  EXPECT_EQ(see({}, 7),
            "1 of the server's notices was gone before this looked: mgprintmon jobs says what became of all jobs\n");
}

TEST_F(HeldNewsTest, AsJsonEachIsALine) {
  see({}, 1, {}, m_jsonOutput, m_json);
  const std::string expected =
      "{\"event\":\"holding\",\"session\":5,\"jobs\":2,\"bytes\":11,\"since\":\"2026-01-31T12:00:00Z\"}\n"
      "{\"event\":\"missed\",\"notices\":1}\n"
      "{\"event\":\"held job\",\"session\":5,\"job\":\"17\",\"printer\":\"Laser-2 (session 5)\","
      "\"state\":\"held\",\"cause\":\"A cause.\",\"remedy\":\"Do that.\"}\n";
  EXPECT_EQ(
      see({held(3, L"held", L"A cause.", L"Do that.")}, 3, {{5, 2, 11, L"2026-01-31T12:00:00Z"}}, m_jsonOutput, m_json),
      expected);
}

}  // namespace
}  // namespace admin
