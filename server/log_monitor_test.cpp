#include "server/log_monitor.h"

#include "corvane/base/process.h"
#include "corvane/records/messages.h"

#include <filesystem>
#include <fstream>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace aps {
namespace {

using ::testing::ElementsAre;
using ::testing::EndsWith;
using ::testing::IsEmpty;

class LogMonitorTest : public ::testing::Test {
 protected:
  ~LogMonitorTest() override {
    std::error_code ignored;
    std::filesystem::remove(m_file, ignored);
  }

  std::vector<std::string> lines() const {
    EXPECT_TRUE(m_log->flush());
    std::ifstream file(m_file);
    std::vector<std::string> all;
    for (std::string line; std::getline(file, line);)
      all.push_back(line);
    return all;
  }

  const std::filesystem::path m_file =
      std::filesystem::temp_directory_path() / ("aps_own_" + std::to_string(corvane::processId()) + ".log");
  const std::shared_ptr<Log> m_log = std::make_shared<Log>(m_file);
  const CS_RCPtr<CS_ProgramMonitor> m_monitor{new LogMonitor(m_log)};
};

TEST_F(LogMonitorTest, ARecordIsALineWithItsLevel) {
  m_monitor->recordText(corvane::kLevelFailure, corvane::kCategory, L"no %s", L"paper");
  m_monitor->recordText(corvane::kLevelCleanupNote, corvane::kCategory, L"two\nlines");
  m_monitor->recordText(77, corvane::kCategory, L"what");
  EXPECT_THAT(lines(), ElementsAre(EndsWith(" aps: failure: no paper"), EndsWith(" aps: note: two lines"),
                                   EndsWith(" aps: level 77: what")));
  EXPECT_THAT(m_log->failures().latest(10), ElementsAre(EndsWith(" aps: failure: no paper")));
}

TEST_F(LogMonitorTest, ANoticeIsALineWithItsKindAndNoFailure) {
  m_monitor->notify({L"job", L"Job 17 was delivered", {{L"result", L"delivered"}}});
  EXPECT_THAT(lines(), ElementsAre(EndsWith(" aps: job: Job 17 was delivered")));
  EXPECT_THAT(m_log->failures().latest(10), IsEmpty());
}

}  // namespace
}  // namespace aps
