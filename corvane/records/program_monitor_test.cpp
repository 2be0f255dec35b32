#include "corvane/components/channel.h"
#include "corvane/components/component.h"
#include "corvane/components/component_server.h"
#include "corvane/components/in_request.h"
#include "corvane/components/program_monitor_c.h"
#include "corvane/records/messages.h"
#include "tests/support/connection_pair.h"
#include "tests/support/local_log.h"
#include "tests/support/recording_monitor.h"
#ifdef _WIN32
#include "tests/support/failing_new.h"
#endif

#include <cerrno>
#include <condition_variable>
#include <gtest/gtest.h>
#include <mutex>

namespace {

using Lines = std::vector<std::string>;

CS_Notice jobNotice() {
  return {L"job", L"\"Report\" was\nprinted", {{L"result", L"delivered"}, {L"bytes", L"17"}}};
}

// What the peer of a program monitor received, value by value.
struct Received {
  std::mutex lock;
  std::condition_variable changed;
  std::vector<CS_Notice> notices;
};
Received* received = nullptr;

class Peer : public CS_Component {
 public:
  bool processRequest(CS_InRequest& request) override {
    if (request.number() != CS_ProgramMonitor_c::kNotify) return false;
    CS_Notice notice;
    notice.kind = request.readUTF();
    notice.line = request.readUTF();
    for (int left = request.readInt(); left > 0; --left) {
      std::wstring name = request.readUTF();
      notice.values.emplace_back(std::move(name), request.readUTF());
    }
    const std::lock_guard guard(received->lock);
    received->notices.push_back(notice);
    received->changed.notify_all();
    return true;
  }
};

class NoticeTest : public ::testing::Test {
 protected:
  NoticeTest() {
    received = &m_received;
    CS_ComponentServer::initialize(0, 0);
    CS_ComponentServer::getServer()->registerClass(L"NoticePeer",
                                                   new corvane::ComponentClass<Peer>(CS_Version{1, 0, 0, 0}));
    CS_ComponentServer::getServer()->offerClass(L"NoticePeer");
  }
  CS_RCPtr<CS_ProgramMonitor_c> monitorOn(ConnectionPair& pair) {
    const auto component = makeComponent(pair.dialed(), CS_ProgramMonitor_c::m_className, L"NoticePeer");
    return dynamic_cast<CS_ProgramMonitor_c*>(component.get());
  }
  CS_Notice firstReceived() {
    std::unique_lock guard(m_received.lock);
    m_received.changed.wait_for(guard, std::chrono::seconds(20), [this] { return !m_received.notices.empty(); });
    return m_received.notices.empty() ? CS_Notice() : m_received.notices.front();
  }

  Received m_received;
};

TEST_F(NoticeTest, IsALineOfTheLocalLogWithoutItsValues) {
  LocalLog log;
  CS_ProgramMonitor::getLocalMonitor()->notify(jobNotice());
  EXPECT_EQ((Lines{"job: \"Report\" was printed"}), log.lines());
}

TEST_F(NoticeTest, WhatCannotStandInALineIsAQuestionMarkInItsKind) {
  LocalLog log;
  CS_ProgramMonitor::getLocalMonitor()->notify({L"j\n\x1b\x7f\u00e4~ b", L"text", {}});
  EXPECT_EQ((Lines{"j????~ b: text"}), log.lines());
}

TEST(Report, ItsRecordsHaveANumberThatNoOtherReportHas) {
  LocalLog log;
  const auto local = CS_ProgramMonitor::getLocalMonitor();
  const auto one = local->recordText(corvane::kLevelFailure, corvane::kCategory, L"no port");
  const auto other = local->recordText(corvane::kLevelFailure, corvane::kCategory, L"no paper");
  one->recordText(corvane::kLevelFailure, corvane::kCategory, L"no printer");
  const Lines lines = log.lines();
  ASSERT_EQ(3u, lines.size());
  const auto numberOf = [](const std::string& line) { return line.substr(0, line.find(' ')); };
  EXPECT_EQ(numberOf(lines[0]), numberOf(lines[2]));
  EXPECT_NE(numberOf(lines[0]), numberOf(lines[1]));
}

TEST_F(NoticeTest, GoesToTheRootOfAReportAndIsNoRecord) {
  RecordingScope records;
  const auto report =
      CS_ProgramMonitor::getDefaultMonitor()->recordText(corvane::kLevelFailure, corvane::kCategory, L"no port");
  report->notify(jobNotice());
  EXPECT_EQ((Lines{"0x4000000a: no port"}), records.lines());
  EXPECT_STREQ(L"no port", report->lastText());
  ASSERT_EQ(1u, records.notices().size());
  EXPECT_EQ(L"\"Report\" was\nprinted", records.notices()[0].line);
}

TEST_F(NoticeTest, ReachesThePeerWithItsValuesAndTheOwnLog) {
  LocalLog log;
  ConnectionPair pair;
  const auto monitor = monitorOn(pair);
  ASSERT_TRUE(monitor);
  monitor->notify(jobNotice());
  const CS_Notice seen = firstReceived();
  EXPECT_EQ(L"job", seen.kind);
  EXPECT_EQ(jobNotice().line, seen.line);
  EXPECT_EQ(jobNotice().values, seen.values);
  EXPECT_EQ((Lines{"job: \"Report\" was printed"}), log.lines());
}

TEST_F(NoticeTest, AMonitorWaitsAsLongForTheAnswerToItsIntroductionAsOthersForTheirs) {
  EXPECT_EQ(120000u, CS_ProgramMonitor_c::kReplyMilliseconds);
}

TEST_F(NoticeTest, ThatIsTooLongForOneRequestIsCutOnTheWayAndEndsNoConnection) {
  LocalLog log;
  ConnectionPair pair;
  const auto monitor = monitorOn(pair);
  CS_Notice notice;
  notice.kind = notice.line = std::wstring(100000, L'x');
  notice.values.assign(CS_Notice::kMaxValues + 1, {std::wstring(40000, L'n'), std::wstring(40000, L'v')});
  monitor->notify(notice);
  const CS_Notice seen = firstReceived();
  EXPECT_EQ(std::wstring(CS_ProgramMonitor_c::kMaxNoticeText, L'x'), seen.line);
  ASSERT_EQ(static_cast<std::size_t>(CS_Notice::kMaxValues), seen.values.size());
  EXPECT_EQ(std::wstring(CS_ProgramMonitor_c::kMaxNoticeText, L'v'), seen.values.back().second);
  EXPECT_TRUE(pair.dialed().isConnected());
  EXPECT_GT(log.lines().at(0).size(), 100000u);
}

TEST_F(NoticeTest, IsInTheOwnLogWhenThePeerIsAway) {
  LocalLog log;
  ConnectionPair pair;
  const auto monitor = monitorOn(pair);
  CS_Connection::destroy(pair.dialedPointer(), true);
  errno = 42;
  monitor->notify(jobNotice());
  EXPECT_EQ(42, errno);
  EXPECT_EQ((Lines{"job: \"Report\" was printed"}), log.lines());
}

TEST_F(NoticeTest, ARecordThatTravelsIsInTheOwnLogAsWellConnectedOrNot) {
  LocalLog log;
  ConnectionPair pair;
  const auto monitor = monitorOn(pair);
  monitor->recordText(corvane::kLevelFailure, corvane::kCategory, L"no port")->report(true);
  CS_Connection::destroy(pair.dialedPointer(), true);
  monitor->recordText(corvane::kLevelFailure, corvane::kCategory, L"no paper")->report(true);
  EXPECT_EQ((Lines{"failure: no port", "failure: no paper"}), log.records());
}

TEST_F(NoticeTest, AReportThatIsClosedWithAFlushFlushesTheOwnLog) {
  class Flushed : public corvane::LogSink {
   public:
    explicit Flushed(int& count) : m_count(count) {}
    void write(std::string_view) noexcept override {}
    void flush() noexcept override { ++m_count; }

   private:
    int& m_count;
  };
  int flushed = 0;
  ConnectionPair pair;
  const auto monitor = monitorOn(pair);
  corvane::LocalMonitor::instance().setSink(std::make_unique<Flushed>(flushed));
  const auto report = monitor->recordText(corvane::kLevelFailure, corvane::kCategory, L"no port");
  report->report(false);
  EXPECT_EQ(0, flushed);
  report->report(true);
  EXPECT_EQ(1, flushed);
  CS_ProgramMonitor::getLocalMonitor()->report(true);
  EXPECT_EQ(2, flushed);
  corvane::LocalMonitor::instance().setSink(nullptr);
}

TEST_F(NoticeTest, AMonitorWhoseConnectionHasEndedIsNoLongerTheDefaultOne) {
  ConnectionPair pair;
  const auto monitor = monitorOn(pair);
  CS_ProgramMonitor::setDefaultMonitor(monitor);
  EXPECT_EQ(monitor.get(), CS_ProgramMonitor::getDefaultMonitor().get());
  CS_Connection::destroy(pair.dialedPointer(), true);
  EXPECT_EQ(CS_ProgramMonitor::getLocalMonitor().get(), CS_ProgramMonitor::getDefaultMonitor().get());
  CS_ProgramMonitor::setDefaultMonitor(nullptr);
}

#ifdef _WIN32
TEST_F(NoticeTest, NeedsNoMemoryToReachTheOwnLog) {
  LocalLog log;
  const CS_Notice notice = jobNotice();
  bool failed = true;
  for (int n = 1; failed; ++n) {
    log.forgetLast();
    {
      FailingNew failing(n);
      CS_ProgramMonitor::getLocalMonitor()->notify(notice);
      failed = failing.hasFailed();
    }
    EXPECT_EQ(0u, log.last().find("job: \"Report\" was")) << n << ": " << log.last();
    ASSERT_LT(n, 100);
  }
}
#endif

}  // namespace
