#include "server/session_host.h"

#include "corvane/base/process.h"
#include "corvane/base/text.h"
#include "protocol/exchange.h"
#include "protocol/session.h"
#include "server/application.h"
#include "tests/support/connection_pair.h"

#include <atomic>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>

namespace aps {
namespace {

class SessionHostTest : public ::testing::Test {
 protected:
  SessionHostTest() {
    CS_ComponentServer::initialize(0, 0);
    m_application =
        std::make_shared<Application>(std::make_shared<Log>(m_logFile), SessionTable::Limits{}, Launcher::Settings{});
    registerClasses(m_application);
    protocol::registerSessionClientClass();
  }
  ~SessionHostTest() override {
    m_application.reset();
    std::error_code ignored;
    std::filesystem::remove(m_logFile, ignored);
  }

  static protocol::Registration::Answer enter(const CS_RCPtr<CS_Component>& client, int session) {
    Printer laser;
    laser.texts[0] = L"Laser";
    laser.format = protocol::DataFormat::kRaw;
    return protocol::registerPrinters(client, session, {laser});
  }
  static protocol::Registration::Answer enter(ConnectionPair& pair, int session) {
    return enter(protocol::makeSessionClient(pair.dialedPointer()), session);
  }
  static protocol::PaperNews news(const wchar_t* printer) {
    return {printer, L"Laser (session 7) - Job #17", L"letter", protocol::PaperState::kPrinted, L"", L""};
  }
  std::vector<NoticeList::Entry> notices() { return m_application->notices.after(0, {}, m_cancelled).entries; }
  std::string log() const {
    std::ifstream in(m_logFile, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
  }
  bool isConnected(int session) const {
    for (const SessionTable::Status& status : m_application->sessions.status()) {
      if (status.number == session) return status.connected;
    }
    return false;
  }

  const std::filesystem::path m_logFile =
      std::filesystem::temp_directory_path() / ("aps_host_" + std::to_string(corvane::processId()) + ".log");
  std::shared_ptr<Application> m_application;
  const std::atomic<bool> m_cancelled{false};
};

TEST_F(SessionHostTest, AnySessionLosesItsClientWithTheClientsConnection) {
  for (const int session : {1, 2, 5}) {
    {
      ConnectionPair pair;
      EXPECT_TRUE(enter(pair, session).isAccepted);
      EXPECT_TRUE(isConnected(session));
    }
    EXPECT_FALSE(isConnected(session)) << session;
  }
}

// Such as the one of protocol::registerSessionClientClass(), which knows of nothing but its registration.
TEST_F(SessionHostTest, AClientOfAnEarlierVersionCannotBeToldToCancelAtItsPrinterAndTheAnswerSaysSo) {
  ConnectionPair pair;
  const CS_RCPtr<CS_Component> client = protocol::makeSessionClient(pair.dialedPointer());
  ASSERT_TRUE(enter(client, 5).isAccepted);
  m_application->book.noticed({L"job",
                               L"",
                               {{L"job", L"17"},
                                {L"printer", L"Laser (session 5)"},
                                {L"process", L"1"},
                                {L"result", L"delivered"},
                                {L"session", L"5"}}});
  m_application->book.paperNews({L"Laser", L"Laser - Job #17", L"", protocol::PaperState::kPrinting, L"", L""}, 5,
                                L"Laser (session 5)");
  JoinedThread serving([&] { pair.dialed().serve(); }, [&] { CS_Connection::destroy(pair.dialedPointer(), true); });
  const auto answer = m_application->printerCancel.cancel({1, L"anna"});
  EXPECT_FALSE(answer.isDone);
  const std::wstring why =
      L"is at its printer: the print client of session 5 does not know how to, or does not answer (";
  EXPECT_NE(answer.text.find(why), std::wstring::npos) << corvane::toUtf8(answer.text);
  EXPECT_NE(answer.text.find(L"): cancel it at the printer, or install this version of the print client there"),
            std::wstring::npos);
  EXPECT_EQ(answer.text.find(L"time"), std::wstring::npos) << corvane::toUtf8(answer.text);
}

TEST_F(SessionHostTest, WhatAClientTellsOfItsJobsIsKeptAsANoticeOfItsOwnSession) {
  ConnectionPair pair;
  const CS_RCPtr<CS_Component> client = protocol::makeSessionClient(pair.dialedPointer());
  ASSERT_TRUE(enter(client, 5).isAccepted);
  protocol::tell(client, news(L"LASER"));
  ASSERT_TRUE(enter(client, 5).isAccepted);  // answered: what was sent before has been served
  const std::vector<NoticeList::Entry> kept = notices();
  ASSERT_EQ(kept.size(), 1u);
  EXPECT_EQ(kept[0].notice.kind, L"paper");
  EXPECT_EQ(kept[0].notice.line, L"Job 17 \"letter\" on \"Laser (session 5)\" (session 5) was printed.");
  m_application->log->flush();
  EXPECT_NE(log().find(" session 5: Job 17 \"letter\" on \"Laser (session 5)\" (session 5) was printed.\n"),
            std::string::npos)
      << log();
}

TEST_F(SessionHostTest, AClientTellsNothingOfOthersPrintersAndNothingBeforeItIsASessions) {
  ConnectionPair others;
  ASSERT_TRUE(enter(others, 7).isAccepted);
  ConnectionPair pair;
  const CS_RCPtr<CS_Component> client = protocol::makeSessionClient(pair.dialedPointer());
  protocol::tell(client, news(L"Laser"));
  ASSERT_TRUE(enter(client, 5).isAccepted);
  for (const wchar_t* printer : {L"Laser (session 7)", L"Ink", L""})
    protocol::tell(client, news(printer));
  ASSERT_TRUE(enter(client, 5).isAccepted);
  EXPECT_TRUE(notices().empty());
  m_application->log->finish();
  EXPECT_NE(log().find("session 5: its print client tells of a job for \"Laser (session 7)\", which it has not "
                       "registered; that is not kept"),
            std::string::npos)
      << log();
}

TEST_F(SessionHostTest, AClientThatTellsWithoutEndIsServedAndNotKept) {
  ConnectionPair pair;
  const CS_RCPtr<CS_Component> client = protocol::makeSessionClient(pair.dialedPointer());
  ASSERT_TRUE(enter(client, 5).isAccepted);
  const auto begin = std::chrono::steady_clock::now();
  for (int i = 0; i < 3000; ++i)
    protocol::tell(client, news(L"Laser"));
  ASSERT_TRUE(enter(client, 5).isAccepted);
  const std::chrono::duration<double> passed = std::chrono::steady_clock::now() - begin;
  EXPECT_LE(m_application->notices.after(-1, {}, m_cancelled).latest,
            SessionHost::kNewsAtOnce + SessionHost::kNewsPerSecond * (passed.count() + 1));
  EXPECT_EQ(notices().size(), static_cast<std::size_t>(NoticeList::kOfOneSession));
  m_application->log->finish();
  EXPECT_NE(log().find("session 5: its print client tells of more than 20 changes of its jobs in a second; what is "
                       "too much is not kept"),
            std::string::npos)
      << log();
}

}  // namespace
}  // namespace aps
