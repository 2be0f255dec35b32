#include "server/program_monitor_server.h"

#include "corvane/base/process.h"
#include "corvane/components/out_request.h"
#include "corvane/components/program_monitor_c.h"
#include "corvane/records/messages.h"
#include "server/application.h"
#include "tests/support/connection_pair.h"

#include <atomic>
#include <filesystem>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace aps {
namespace {

using ::testing::ElementsAre;
using ::testing::EndsWith;
using ::testing::HasSubstr;
using ::testing::SizeIs;

class ProgramMonitorServerTest : public ::testing::Test {
 protected:
  ProgramMonitorServerTest() {
    CS_ComponentServer::initialize(0, 0);
    m_application =
        std::make_shared<Application>(std::make_shared<Log>(m_logFile), SessionTable::Limits{}, Launcher::Settings{});
    registerClasses(m_application);
    m_pair = std::make_unique<ConnectionPair>();
    m_peer = makeComponent(m_pair->dialed(), CS_ProgramMonitor_c::m_className,
                           L"Quillfern::ComponentServer::ProgramMonitor_s");
  }
  ~ProgramMonitorServerTest() override {
    m_peer = nullptr;
    m_pair.reset();
    m_application.reset();
    std::error_code ignored;
    std::filesystem::remove(m_logFile, ignored);
  }

  // Introduces the process, which has a reply: what was sent before has been served when it is there.
  void introduce() {
    const CS_RCPtr<CS_ProgramMonitor_c> monitor(dynamic_cast<CS_ProgramMonitor_c*>(m_peer.get()));
    ASSERT_TRUE(monitor->setProcessInfo(77, L"spoolsv"));
  }
  void record(int level, int report, const wchar_t* text) {
    CS_OutRequest request(m_peer, CS_ProgramMonitor_c::kRecord);
    for (const int value : {level, 0, 0, report})
      request.writeInt(value);
    request.writeUTF(text);
    request.execute();
  }
  std::vector<std::string> failures() { return m_application->log->failures().latest(100); }

  const std::filesystem::path m_logFile =
      std::filesystem::temp_directory_path() / ("aps_monitor_" + std::to_string(corvane::processId()) + ".log");
  std::shared_ptr<Application> m_application;
  std::unique_ptr<ConnectionPair> m_pair;
  CS_RCPtr<CS_Component> m_peer;
};

TEST_F(ProgramMonitorServerTest, KeepsTheLevelsThatMeanFailure) {
  introduce();
  record(corvane::kLevelFailure, 1, L"a failure");
  record(corvane::kLevelCleanupNote, 1, L"a note");
  record(corvane::kLevelStackTrace, 1, L"a line");
  record(corvane::kLevelConnectionFailure, 2, L"a connection");
  record(corvane::kLevelException, 3, L"an exception");
  introduce();
  EXPECT_THAT(failures(), ElementsAre(EndsWith(" spoolsv 77 #1: failure: a failure"),
                                      EndsWith(" spoolsv 77 #2: connection: a connection"),
                                      EndsWith(" spoolsv 77 #3: exception: an exception")));
}

TEST_F(ProgramMonitorServerTest, AnExceptionIsKeptUnlessItRepeatsTheFailureOfItsReport) {
  introduce();
  record(corvane::kLevelFailure, 1, L"no port");
  record(corvane::kLevelException, 1, L"no port");
  record(corvane::kLevelException, 1, L"no memory");
  record(corvane::kLevelFailure, 2, L"no port");
  introduce();
  EXPECT_THAT(failures(), SizeIs(3));
}

TEST_F(ProgramMonitorServerTest, ANoticeBeforeAnIntroductionIsOfTheProcessThatItNames) {
  const auto notify = [this](const std::vector<std::pair<const wchar_t*, const wchar_t*>>& values) {
    CS_OutRequest request(m_peer, CS_ProgramMonitor_c::kNotify);
    request.writeUTF(L"job");
    request.writeUTF(L"it failed");
    request.writeInt(static_cast<int>(values.size()));
    for (const auto& [name, value] : values) {
      request.writeUTF(name);
      request.writeUTF(value);
    }
    request.execute();
  };
  notify({{L"result", L"failed"}});
  notify({{L"result", L"failed"}, {L"process", L"42"}});
  introduce();
  notify({{L"result", L"failed"}, {L"process", L"42"}});
  introduce();
  EXPECT_THAT(failures(),
              ElementsAre(EndsWith(" a process that did not introduce itself: job: it failed"),
                          EndsWith(" process 42: job: it failed"), EndsWith(" spoolsv 77: job: it failed")));
}

TEST_F(ProgramMonitorServerTest, ANoticeWithTooManyValuesIsRefusedWithALine) {
  introduce();
  for (const int count : {CS_Notice::kMaxValues + 1, -1}) {
    CS_OutRequest request(m_peer, CS_ProgramMonitor_c::kNotify);
    request.writeUTF(L"job");
    request.writeUTF(L"\"Report\" was printed");
    request.writeInt(count);
    request.execute();
  }
  introduce();
  EXPECT_THAT(failures(),
              ElementsAre(EndsWith(" spoolsv 77: a notice was refused: it has 33 values, the limit is 32; the "
                                   "sender has another version: \"Report\" was printed"),
                          HasSubstr("it has -1 values")));
  const std::atomic<bool> cancelled{false};
  EXPECT_EQ(m_application->notices.after(-1, std::chrono::milliseconds(0), cancelled).latest, 0);
}

TEST_F(ProgramMonitorServerTest, ARequestThatCannotBeReadLeavesALine) {
  introduce();
  CS_OutRequest request(m_peer, CS_ProgramMonitor_c::kNotify);
  request.writeInt(5);
  request.execute();
  introduce();
  ASSERT_THAT(failures(), SizeIs(1));
  EXPECT_THAT(failures()[0], HasSubstr(" spoolsv 77: request 3 was not served: "));
}

}  // namespace
}  // namespace aps
