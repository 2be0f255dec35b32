#include "admin/sessions/outcome_watch.h"

#include "corvane/components/component_server.h"
#include "corvane/records/program_monitor.h"
#include "programs/main.h"
#include "protocol/exchange.h"
#include "tests/support/scripted_peer.h"

#include <gmock/gmock.h>
#include <regex>
#include <utility>

namespace admin {
namespace {

using ::testing::Each;
using ::testing::IsEmpty;
using ::testing::Le;
using ::testing::Not;

constexpr char kServerClass[] = "AdministrationServer";
constexpr int kNotices = 32;
constexpr int kJobs = 35;

protocol::JobRecord record(int number, protocol::JobState state, const wchar_t* job, const wchar_t* printer,
                           int process) {
  protocol::JobRecord made;
  made.number = number;
  made.state = state;
  made.spoolerJob = job;
  made.printer = printer;
  made.process = process;
  return made;
}

class OutcomeWatchTest : public testing::Test {
 protected:
  OutcomeWatchTest() {
    CS_ComponentServer::initialize(0, 0);
    programs::silenceLocalLog();
  }
  ~OutcomeWatchTest() override { corvane::LocalMonitor::instance().setSink(nullptr); }

  // For how long the server was asked to wait for a notice, behind the first question, which waits for none.
  std::vector<int> waits() const {
    std::vector<int> found;
    const std::regex asked("request 32.* int (-?[0-9]+), int ([0-9]+)");
    for (const std::string& line : m_peer.lines()) {
      std::smatch numbers;
      if (std::regex_search(line, numbers, asked) && numbers[1] != "-1") found.push_back(std::stoi(numbers[2]));
    }
    return found;
  }

  // A notice of an answer, behind "another follows".
  static void writeNotice(corvane::ValueWriter& reply, int number, const wchar_t* kind,
                          const std::vector<const wchar_t*>& values) {
    reply.writeBoolean(true);
    reply.writeInt(number);
    for (const wchar_t* text : {L"2026-01-31T23:59:59Z", kind, L"a line"})
      reply.writeText(text);
    reply.writeInt(static_cast<int>(values.size() / 2));
    for (const wchar_t* text : values)
      reply.writeText(text);
  }
  void answerWithoutNotices() {
    m_peer.answer(kServerClass, kNotices, [](corvane::ValueWriter& reply) {
      reply.writeInt(3);
      reply.writeBoolean(false);
    });
  }
  static void writePaper(corvane::ValueWriter& reply, int number, const wchar_t* state, const wchar_t* job = L"17") {
    writeNotice(reply, number, L"paper", {L"job", job, L"printer", L"Laser", L"state", state});
  }
  // The states that were told until the deadline, and the last one in brackets.
  std::string paperOf(OutcomeWatch& watch, OutcomeWatch::Clock::time_point deadline) const {
    std::string told;
    const auto last =
        watch.waitForPaper(m_job, deadline, [&told](const JobPaper& paper) { told += paper.text() + ", "; });
    return told + (last ? "[" + last->text() + "]" : "[nothing]");
  }

  const AwaitedJob m_job{17, L"Laser", 0};
  ScriptedPeer m_peer;
};

// The server would otherwise answer long after the time that somebody wanted to wait.
TEST_F(OutcomeWatchTest, TheServerIsNeverAskedToWaitForLongerThanIsLeft) {
  answerWithoutNotices();
  OutcomeWatch watch(m_peer.port());
  ASSERT_TRUE(watch.isThere());
  EXPECT_EQ(watch.wait(m_job, OutcomeWatch::Clock::now() + std::chrono::milliseconds(200)), std::nullopt);
  EXPECT_EQ(watch.why(), "the time for it is over");
  const std::vector<int> asked = waits();
  EXPECT_THAT(asked, Not(IsEmpty()));
  EXPECT_THAT(asked, Each(Le(200)));
  EXPECT_EQ(asked.back(), 0) << "it is asked once more when the time is over";
}

TEST_F(OutcomeWatchTest, ALongTimeIsAskedForInPieces) {
  m_peer.answer(kServerClass, kNotices, [](corvane::ValueWriter& reply) {
    reply.writeInt(18);
    reply.writeBoolean(true);
    reply.writeInt(18);
    reply.writeText(L"2026-01-31T23:59:59Z");
    reply.writeText(L"job");
    reply.writeText(L"job 17 was delivered");
    reply.writeInt(3);
    for (const wchar_t* text : {L"job", L"17", L"printer", L"Laser", L"result", L"delivered"})
      reply.writeText(text);
    reply.writeBoolean(false);
  });
  OutcomeWatch watch(m_peer.port());
  const auto outcome = watch.wait(m_job, OutcomeWatch::Clock::now() + std::chrono::hours(24));
  ASSERT_TRUE(outcome.has_value());
  EXPECT_TRUE(outcome->isPrinted);
  EXPECT_THAT(waits(), testing::ElementsAre(static_cast<int>(OutcomeWatch::kLongestWait)));
}

TEST_F(OutcomeWatchTest, WhatBecomesOfAJobIsToldInOrderThoughItBeginsBeforeTheOutcome) {
  int asked = 0;
  m_peer.answer(kServerClass, kNotices, [&asked](corvane::ValueWriter& reply) {
    const int turn = asked++;
    reply.writeInt(turn == 0 ? 3 : 10 + turn);
    if (turn == 1) {
      writePaper(reply, 4, L"printing", L"18");
      writePaper(reply, 5, L"printing");
    }
    if (turn == 2) {
      writeNotice(reply, 6, L"job", {L"job", L"17", L"printer", L"Laser", L"result", L"delivered"});
      writePaper(reply, 7, L"printing");
      writePaper(reply, 8, L"stopped");
    }
    if (turn == 3) {
      writePaper(reply, 9, L"printing");
      writePaper(reply, 10, L"printed");
    }
    reply.writeBoolean(false);
  });
  OutcomeWatch watch(m_peer.port());
  const auto deadline = OutcomeWatch::Clock::now() + std::chrono::hours(1);
  ASSERT_TRUE(watch.wait(m_job, deadline).has_value());
  EXPECT_EQ(paperOf(watch, deadline), "is being printed, is held up, is being printed, was printed, [was printed]");
}

TEST_F(OutcomeWatchTest, WhenTheTimeIsOverTheLatestIsKnownAndWhenNobodyTellsNothing) {
  bool isTold = false;
  m_peer.answer(kServerClass, kNotices, [&isTold](corvane::ValueWriter& reply) {
    reply.writeInt(3);
    if (std::exchange(isTold, false)) writePaper(reply, 3, L"stopped");
    reply.writeBoolean(false);
  });
  OutcomeWatch watch(m_peer.port());
  EXPECT_EQ(paperOf(watch, OutcomeWatch::Clock::now() + std::chrono::milliseconds(100)), "[nothing]");
  isTold = true;
  EXPECT_EQ(paperOf(watch, OutcomeWatch::Clock::now() + std::chrono::milliseconds(100)), "is held up, [is held up]");
}

TEST_F(OutcomeWatchTest, AJobIsHeldWhenTheLatestRecordOfThatNumberPrinterAndProcessSaysSo) {
  using protocol::JobState;
  answerWithoutNotices();
  m_peer.answer(kServerClass, kJobs, [](corvane::ValueWriter& reply) {
    protocol::Jobs::Answer answer;
    answer.jobs = {
        record(9, JobState::kDelivered, L"18", L"Laser", 77), record(8, JobState::kDelivered, L"17", L"Desk", 77),
        record(7, JobState::kDelivered, L"17", L"Laser", 78), record(6, JobState::kHeld, L"17", L"Laser", 77),
        record(5, JobState::kDelivered, L"17", L"Laser", 77)};
    protocol::write(reply, answer);
  });
  OutcomeWatch watch(m_peer.port());
  EXPECT_TRUE(watch.isHeld({17, L"Laser", 77}, 5));
  EXPECT_FALSE(watch.isHeld({17, L"Laser", 78}, 5));
  EXPECT_FALSE(watch.isHeld({17, L"Laser", 0}, 5));  // of any process the latest counts
  EXPECT_FALSE(watch.isHeld({17, L"Desk", 77}, 5));
  EXPECT_FALSE(watch.isHeld({19, L"Laser", 77}, 5));
}

TEST_F(OutcomeWatchTest, OfAServerThatSaysNothingNoJobIsHeld) {
  answerWithoutNotices();
  OutcomeWatch watch(m_peer.port());
  ASSERT_TRUE(watch.isThere());
  m_peer.hangUpAt(kServerClass, kJobs);
  EXPECT_FALSE(watch.isHeld(m_job, 5));
  EXPECT_FALSE(watch.isThere());
  EXPECT_FALSE(watch.isHeld(m_job, 5));
}

TEST_F(OutcomeWatchTest, AServerThatHangsUpIsDialledAgainUntilTheTimeIsOver) {
  OutcomeWatch watch(m_peer.port());
  m_peer.hangUpAt(kServerClass, kNotices);
  EXPECT_EQ(watch.wait(m_job, OutcomeWatch::Clock::now() + std::chrono::milliseconds(200)), std::nullopt);
  EXPECT_FALSE(watch.isThere());
  EXPECT_NE(watch.why(), "");
}

}  // namespace
}  // namespace admin
