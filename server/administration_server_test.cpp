#include "server/administration_server.h"

#include "corvane/base/process.h"
#include "corvane/base/text.h"
#include "corvane/components/component_server.h"
#include "corvane/components/in_request.h"
#include "corvane/components/out_request.h"
#include "corvane/records/exception.h"
#include "corvane/records/messages.h"
#include "programs/text.h"
#include "protocol/administration.h"
#include "protocol/names.h"
#include "server/application.h"
#include "tests/support/connection_pair.h"

#include <cstdio>
#include <filesystem>
#include <future>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace aps {
namespace {

using ::testing::ElementsAre;
using ::testing::EndsWith;
using ::testing::MatchesRegex;
using ::testing::SizeIs;
using ::testing::StartsWith;

constexpr unsigned kReplyMilliseconds = 60000;

// The reply as readable text, one value a line, as its layout in docs/protocol.md says.
std::string text(CS_InRequest& reply) {
  return corvane::toUtf8(reply.readUTF());
}

// Times as "T", so that replies can be compared.
std::string time(CS_InRequest& reply) {
  const std::string value = text(reply);
  EXPECT_THAT(value, MatchesRegex("....-..-..T..:..:..Z"));
  return "T";
}

class AdministrationServerTest : public ::testing::Test {
 protected:
  AdministrationServerTest() {
    CS_ComponentServer::initialize(0, 0);
    m_application = std::make_shared<Application>(std::make_shared<Log>(m_logFile), SessionTable::Limits{256, 64},
                                                  Launcher::Settings{});
    registerClasses(m_application);
    CS_ComponentServer::getServer()->registerClass(protocol::kAdministrationClientClass,
                                                   new corvane::ComponentClass<CS_Component>(protocol::kVersion));
    m_pair = std::make_unique<ConnectionPair>();
    m_tool =
        makeComponent(m_pair->dialed(), protocol::kAdministrationClientClass, protocol::kAdministrationServerClass);
  }
  ~AdministrationServerTest() override {
    m_tool = nullptr;
    m_pair.reset();
    m_application.reset();
    std::error_code ignored;
    std::filesystem::remove(m_logFile, ignored);
  }

  // Number, connected, since, then each printer with its texts.
  std::vector<std::string> status() {
    CS_OutRequest request(m_tool, 30);
    CS_InRequest reply(request);
    request.execute(reply, kReplyMilliseconds);
    return sessionsOf(reply);
  }
  // The page that begins there, with a line that says where the next one does.
  std::vector<std::string> page(int session, int printer) {
    CS_OutRequest request(m_tool, 33);
    request.writeInt(session);
    request.writeInt(printer);
    CS_InRequest reply(request);
    request.execute(reply, kReplyMilliseconds);
    std::vector<std::string> lines = sessionsOf(reply);
    std::string next = "end";
    if (reply.readBoolean()) {
      next = "next " + std::to_string(reply.readInt()) + ".";
      next += std::to_string(reply.readInt());
    }
    lines.push_back(next);
    return lines;
  }
  std::vector<std::string> sessionsOf(CS_InRequest& reply) {
    std::vector<std::string> lines;
    m_version = text(reply);
    m_process = reply.readInt();
    m_since = time(reply);
    for (int sessions = reply.readInt(); sessions > 0; --sessions) {
      std::string line = std::to_string(reply.readInt());
      line += reply.readBoolean() ? " connected " : " away ";
      line += time(reply);
      for (int printers = reply.readInt(); printers > 0; --printers) {
        line += "; " + text(reply);
        for (std::size_t i = 0; i < protocol::Printer::kTexts; ++i)
          line += reply.readBoolean() ? "," + text(reply) : ",-";
        line += reply.readBoolean() ? " default " : " ";
        line += std::to_string(reply.readInt()) + " ";
        line += std::to_string(reply.readInt());
      }
      lines.push_back(line);
    }
    return lines;
  }

  std::vector<std::string> records(int count) {
    CS_OutRequest request(m_tool, 31);
    request.writeInt(count);
    CS_InRequest reply(request);
    request.execute(reply, kReplyMilliseconds);
    std::vector<std::string> lines;
    while (reply.readBoolean())
      lines.push_back(text(reply));
    return lines;
  }

  std::vector<std::string> notices(int after, int wait) {
    CS_OutRequest request(m_tool, 32);
    request.writeInt(after);
    request.writeInt(wait);
    CS_InRequest reply(request);
    request.execute(reply, kReplyMilliseconds);
    std::vector<std::string> lines = {"latest " + std::to_string(reply.readInt())};
    while (reply.readBoolean()) {
      std::string line = std::to_string(reply.readInt()) + " ";
      line += time(reply) + " ";
      line += text(reply) + ": ";
      line += text(reply);
      for (int values = reply.readInt(); values > 0; --values) {
        line += " " + text(reply);
        line += "=" + text(reply);
      }
      lines.push_back(line);
    }
    return lines;
  }

  static Printer printer(const std::wstring& name) {
    Printer made;
    made.texts[0] = name;
    made.format = protocol::DataFormat::kRaw;
    return made;
  }

  const std::filesystem::path m_logFile =
      std::filesystem::temp_directory_path() / ("aps_administration_" + std::to_string(corvane::processId()) + ".log");
  std::shared_ptr<Application> m_application;
  std::unique_ptr<ConnectionPair> m_pair;
  CS_RCPtr<CS_Component> m_tool;
  std::string m_version, m_since;
  int m_process = 0;
};

TEST_F(AdministrationServerTest, TellsItsVersionItsProcessAndSinceWhenItRuns) {
  EXPECT_THAT(status(), SizeIs(0));
  EXPECT_EQ(m_version, "4.0.1.0");
  EXPECT_EQ(m_process, static_cast<int>(corvane::processId()));
  EXPECT_EQ(m_since, "T");
}

TEST_F(AdministrationServerTest, TellsEachSessionWithAllThatItsClientBrought) {
  Printer laser = printer(L"Laser-2");
  for (int i = 1; i < 8; ++i)
    laser.texts[static_cast<std::size_t>(i)] = L"t" + std::to_wstring(i);
  laser.isDefault = true;
  laser.format = protocol::DataFormat::kPdf;
  laser.resolution = 600;
  m_application->sessions.enter(7, {printer(L"Plotter")}, CS_ClassVersionMap(), m_pair->accepted());
  m_application->sessions.enter(5, {laser, printer(L"Ink")}, CS_ClassVersionMap(), m_pair->accepted());
  m_application->sessions.leave(7, m_pair->accepted().get());
  EXPECT_THAT(status(),
              ElementsAre("5 connected T; Laser-2 (session 5),Laser-2,t1,t2,t3,t4,t5,t6,t7 default 3 600; Ink "
                          "(session 5),Ink,-,-,-,-,-,-,- 1 0",
                          "7 away T; Plotter (session 7),Plotter,-,-,-,-,-,-,- 1 0"));
  m_application->sessions.leave(5, m_pair->accepted().get());
}

TEST_F(AdministrationServerTest, LeavesTextsOutThatOneAnswerCannotHold) {
  std::vector<Printer> wordy(8, printer(L""));
  for (std::size_t i = 0; i < wordy.size(); ++i) {
    wordy[i].texts[0] = std::to_wstring(i);
    wordy[i].texts[1] = std::wstring(1000, L'x');
    wordy[i].texts[2] = std::wstring(1000, L'x');
    wordy[i].texts[3] = L"driver";
  }
  for (int session = 1; session <= 240; ++session)
    m_application->sessions.enter(session, wordy, CS_ClassVersionMap(), m_pair->accepted());
  EXPECT_THAT(status().at(239), StartsWith("240 connected T; 0 (session 240),0,-,-,driver,-,-,-,- 1 0; 1 "));
  for (Printer& each : wordy)
    std::swap(each.texts[2], each.texts[3]);
  for (int session = 1; session <= 240; ++session) {
    m_application->sessions.leave(session, m_pair->accepted().get());
    m_application->sessions.enter(session, wordy, CS_ClassVersionMap(), m_pair->accepted());
  }
  try {
    status();
    FAIL() << "an answer of any size";
  } catch (const CS_Exception& failure) {
    EXPECT_EQ(failure.number(), corvane::kRequestRefused);
    EXPECT_STREQ(failure.detail(),
                 L"the printers of 240 sessions are too many for one answer; a newer tool asks for pages");
  }
  EXPECT_TRUE(m_pair->dialed().isConnected());
  for (int session = 1; session <= 240; ++session)
    m_application->sessions.leave(session, m_pair->accepted().get());
}

TEST_F(AdministrationServerTest, APageTellsWhatTheStatusTellsAndWhereTheNextOneBegins) {
  m_application->sessions.enter(7, {printer(L"Plotter")}, CS_ClassVersionMap(), m_pair->accepted());
  m_application->sessions.enter(5, {printer(L"Laser-2"), printer(L"Ink")}, CS_ClassVersionMap(), m_pair->accepted());
  auto all = status();
  all.push_back("end");
  EXPECT_EQ(page(0, 0), all);
  EXPECT_EQ(page(-3, -3), all);
  EXPECT_THAT(page(5, 1), ElementsAre("5 connected T; Ink (session 5),Ink,-,-,-,-,-,-,- 1 0",
                                      "7 connected T; Plotter (session 7),Plotter,-,-,-,-,-,-,- 1 0", "end"));
  for (const int session : {5, 7})
    m_application->sessions.leave(session, m_pair->accepted().get());
}

TEST_F(AdministrationServerTest, TheMostThatSessionsCanBringIsToldInPagesThatEachFit) {
  std::vector<Printer> wordy(64, printer(L""));
  std::size_t left = SessionTable::Limits{}.texts();
  for (std::size_t i = 0; i < wordy.size(); ++i) {
    wordy[i].texts[0] = std::to_wstring(i);
    left -= wordy[i].texts[0]->size();
  }
  for (std::size_t i = 0; left > 0; ++i) {
    wordy[i].texts[1] = std::wstring(std::min<std::size_t>(left, 1024), L'x');
    left -= wordy[i].texts[1]->size();
  }
  for (int session = 1; session <= 256; ++session) {
    ASSERT_TRUE(m_application->sessions.enter(session, wordy, CS_ClassVersionMap(), m_pair->accepted()).accepted());
  }
  int pages = 0;
  std::size_t printers = 0;
  for (int session = 0, at = 0; session >= 0; ++pages) {
    const std::vector<std::string> lines = page(session, at);
    session = -1;
    for (const std::string& line : lines) {
      for (std::size_t found = line.find("; "); found != std::string::npos; found = line.find("; ", found + 1))
        ++printers;
      std::sscanf(line.c_str(), "next %d.%d", &session, &at);
    }
  }
  EXPECT_EQ(printers, 256u * 64u);
  EXPECT_GT(pages, 8);
  for (int session = 1; session <= 256; ++session)
    m_application->sessions.leave(session, m_pair->accepted().get());
}

TEST_F(AdministrationServerTest, GivesTheLatestLinesThatTellOfAFailure) {
  m_application->log->failure("first");
  m_application->log->line("a job ended well");
  m_application->log->failure("second");
  EXPECT_THAT(records(10), ElementsAre(EndsWith(" first"), EndsWith(" second")));
  EXPECT_THAT(records(1), ElementsAre(EndsWith(" second")));
  EXPECT_THAT(records(0), SizeIs(0));
  EXPECT_THAT(records(-1), SizeIs(0));
  EXPECT_THAT(records(10)[0], MatchesRegex("....-..-.. ..:..:...... ..... first"));
}

TEST_F(AdministrationServerTest, GivesNoticesAfterANumberWithTheirValues) {
  EXPECT_THAT(notices(-1, 5000), ElementsAre("latest 0"));
  m_application->notices.add({L"job", L"one", {{L"result", L"failed"}, {L"cause", L"no paper"}}});
  m_application->notices.add({L"job", L"two", {}});
  EXPECT_THAT(notices(0, 5000), ElementsAre("latest 2", "1 T job: one result=failed cause=no paper", "2 T job: two"));
  EXPECT_THAT(notices(1, 5000), ElementsAre("latest 2", "2 T job: two"));
  EXPECT_THAT(notices(2, -7), ElementsAre("latest 2"));
  EXPECT_THAT(notices(-1, 5000), ElementsAre("latest 2"));
}

TEST_F(AdministrationServerTest, TheLargestListOfNoticesFitsIntoOneReply) {
  CS_Notice largest{std::wstring(2048, L'k'), std::wstring(2048, L'l'), {}};
  largest.values.assign(CS_Notice::kMaxValues, {std::wstring(2048, L'n'), std::wstring(2048, L'v')});
  CS_Notice manyValues{L"job", std::wstring(1200, L'l'), {}};
  manyValues.values.assign(CS_Notice::kMaxValues, {L"n", L"v"});
  for (const CS_Notice& notice : {largest, manyValues}) {
    for (int i = 0; i < protocol::Notices::kKept; ++i)
      m_application->notices.add(notice);
    EXPECT_GT(notices(0, 0).size(), 1u);
  }
}

TEST_F(AdministrationServerTest, TheLargestListOfRecordsFitsIntoOneReply) {
  for (int i = 0; i < 1000; ++i)
    m_application->log->failure(std::string(20000, 'x'));
  EXPECT_GT(records(1000).size(), 1u);
}

TEST_F(AdministrationServerTest, AWaitingToolIsAnsweredWhenANoticeArrives) {
  auto answer = std::async(std::launch::async, [this] {
    std::vector<std::string> lines;
    // The longest wait may pass before the notice comes on a machine that is busy.
    while (lines.size() < 2)
      lines = notices(0, 5000);
    return lines;
  });
  m_application->notices.add({L"job", L"one", {}});
  EXPECT_THAT(answer.get(), ElementsAre("latest 1", "1 T job: one"));
}

TEST_F(AdministrationServerTest, NobodyWaitsLongerThanTheServerAllows) {
  m_application->longestNoticeWait = std::chrono::milliseconds(0);
  EXPECT_THAT(notices(0, 24 * 3600 * 1000), ElementsAre("latest 0"));
}

TEST_F(AdministrationServerTest, AWaitEndsWithItsConnection) {
  m_application->longestNoticeWait = std::chrono::hours(1);
  auto ended = std::async(std::launch::async, [this] {
    try {
      notices(0, 3600 * 1000);
      return 0;
    } catch (const CS_Exception& failure) {
      return failure.number();
    }
  });
  CS_Connection::destroy(m_pair->accepted(), true);
  EXPECT_EQ(ended.get(), corvane::kConnectionLost);
}

}  // namespace
}  // namespace aps
