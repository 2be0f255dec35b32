#include "session/port_monitor_server.h"
#include "tests/support/import_seam.h"
#include "tests/support/monitor_world.h"
#include "util/mutex.h"

#include <algorithm>
#include <functional>
#include <gtest/gtest.h>

MG_IMPORT_SEAM(L"kernel32.dll", WaitForSingleObject, WAIT_FAILED)

namespace {

// How long a request is ready to wait, as Windows is told: the peer answers only once the caller waits.
class ReplyTimeoutTest : public testing::Test {
 protected:
  DWORD longestWaitOf(const char* className, int number, const std::function<void()>& request) {
    m_world.peer().whenAsked(className, number, [this] { m_waits.wait(); });
    m_world.peer().answer(className, number, [](corvane::ValueWriter& reply) { reply.writeBoolean(false); });
    m_waits.reset();
    m_longest = 0;
    request();
    return m_longest;
  }
  // A whole minute may pass between the start of a request and its wait before this says no.
  static void expectAbout(DWORD wanted, DWORD waited) {
    EXPECT_LE(waited, wanted);
    EXPECT_GT(waited, wanted - 60000);
  }

 private:
  bool watchWaits() {
    WaitForSingleObjectSeam.watch = [this, caller = GetCurrentThreadId()](HANDLE, DWORD milliseconds) {
      if (GetCurrentThreadId() != caller || milliseconds < 1000 || milliseconds == INFINITE) return;
      m_longest = std::max(m_longest, milliseconds);
      m_waits.set();
    };
    return true;
  }

  ImportSeams m_seams;
  DWORD m_longest = 0;
  Signal m_waits;
  bool m_watches = watchWaits();  // before the peer's threads come and after they are gone

 protected:
  MonitorWorld m_world;
};

TEST_F(ReplyTimeoutTest, RequestsToThePortMonitorWaitTwoMinutes) {
  EXPECT_EQ(PortMonitorServer::kReplyTimeout, 120000u);  // exactly; below, that they wait so long
  const CS_RCPtr<PortMonitorServer> server = m_world.portMonitor();
  ClientPrinter printer;
  TObjectMap<UTL_String, void*> names;
  PortMonitorServer bridge;
  const std::function<void()> requests[] = {
      [&] { server->AttachPrintJobToSession(L"Laser", &bridge); }, [&] { server->GetPrinterInfo(L"Laser", printer); },
      [&] { server->GetPrinterList(5, &names); }, [&] { server->LaunchApplication(L"a", L"b", nullptr); }};
  for (int number = 4; number <= 7; ++number) {
    expectAbout(120000, longestWaitOf("PortMonitorClient", number, requests[number - 4]));
  }
}

TEST_F(ReplyTimeoutTest, TheEndOfAJobWaitsTenMinutes) {
  const CS_RCPtr<PrintServer> stream = m_world.printServer();
  ClientPrintJob job;
  expectAbout(600000, longestWaitOf("PrintClient", 3, [&] { stream->EndJob(&job); }));
}

}  // namespace
