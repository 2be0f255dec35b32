#include "tests/support/monitor/job_end_fixture.h"

#include "corvane/base/text.h"
#include "tests/support/failing_new.h"

#include <cstdio>
#include <gmock/gmock.h>

MG_IMPORT_SEAM(L"advapi32.dll", RegisterEventSourceW, nullptr)
MG_IMPORT_SEAM(L"advapi32.dll", ReportEventW, FALSE)
MG_IMPORT_SEAM(L"advapi32.dll", DeregisterEventSource, FALSE)

namespace {

const HANDLE kEventLog = reinterpret_cast<HANDLE>(0x7770002);

}  // namespace

JobEndTest::JobEndTest() {
  RegisterEventSourceWSeam.replacement = [this](LPCWSTR server, LPCWSTR source) -> HANDLE {
    const FailingNew::Pause pause;
    EXPECT_EQ(server, nullptr);
    m_events.push_back("register " + corvane::toUtf8(source));
    return kEventLog;
  };
  ReportEventWSeam.replacement = [this](HANDLE log, WORD type, WORD category, DWORD event, PSID user, WORD strings,
                                        DWORD size, LPCWSTR* texts, LPVOID data) -> WINBOOL {
    const FailingNew::Pause pause;
    EXPECT_EQ(log, kEventLog);
    EXPECT_EQ(type, EVENTLOG_ERROR_TYPE);
    EXPECT_EQ(user, nullptr);
    EXPECT_EQ(strings, 1);
    EXPECT_EQ(size, 0u);
    EXPECT_EQ(data, nullptr);
    char head[64];
    std::snprintf(head, sizeof head, "error 0x%lx category %d: ", event, category);
    m_events.push_back(head + corvane::toUtf8(texts[0]));
    return TRUE;
  };
  DeregisterEventSourceSeam.replacement = [this](HANDLE log) -> WINBOOL {
    const FailingNew::Pause pause;
    EXPECT_EQ(log, kEventLog);
    m_events.push_back("deregister");
    return TRUE;
  };
}

std::vector<std::string> JobEndTest::told() const {
  std::vector<std::string> lines;
  for (const CS_Notice& notice : m_world.records().notices()) {
    EXPECT_EQ(notice.kind, L"job");
    lines.push_back(corvane::toUtf8(notice.line.c_str()));
  }
  return lines;
}

std::vector<std::string> JobEndTest::values() const {
  std::vector<std::string> values;
  const std::vector<CS_Notice> notices = m_world.records().notices();
  if (notices.empty()) return values;
  for (const auto& [name, value] : notices.back().values)
    values.push_back(corvane::toUtf8(name.c_str()) + "=" + corvane::toUtf8(value.c_str()));
  return values;
}

void JobEndTest::expectFailure(const std::string& rest, const std::string& job) {
  const std::string line = job + " (session 5) failed: " + rest;
  EXPECT_THAT(told(), testing::ElementsAre(line));
  EXPECT_THAT(m_events,
              testing::ElementsAre("register MgPrintMon", "error 0xc0000001 category 0: " + line, "deregister"));
}

void JobEndTest::breakConnection() {
  CS_Connection::destroy(m_port->printServer->getConnection(), true);
}

void JobEndTest::refuseAttach() {
  m_peer.answer("PortMonitorClient", 4, [](corvane::ValueWriter& reply) { reply.writeBoolean(false); });
}

void JobEndTest::failEventLog(const std::string& call) {
  if (call == "register") RegisterEventSourceWSeam.fail(1, nullptr, ERROR_ACCESS_DENIED);
  if (call == "report") ReportEventWSeam.fail(1, FALSE, ERROR_ACCESS_DENIED);
  if (call == "deregister") DeregisterEventSourceSeam.fail(1, FALSE, ERROR_ACCESS_DENIED);
}
