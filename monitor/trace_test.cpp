#include "corvane/components/component_server.h"
#include "monitor/entries.h"
#include "ports/port_list.h"
#include "session/port_monitor_server.h"
#include "tests/support/import_seam.h"
#include "tests/support/local_log.h"
#include "tests/support/monitor/message_box_seam.h"
#include "tests/support/recording_monitor.h"

#include <algorithm>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

// What each entry says about itself in the trace. The calls have no port to work on: the entry speaks before it looks.
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class TraceTest : public testing::Test {
 protected:
  TraceTest() { m_log.trace(); }

  static wchar_t* text(const wchar_t* constant) { return const_cast<wchar_t*>(constant); }
  // The entry lines of the monitor's own operations; the first and the last line belong to one operation.
  std::string onlyEntry() {
    const auto lines = m_log.lines();
    m_log.clear();
    EXPECT_GE(lines.size(), 2u);
    if (lines.size() < 2) return "";
    EXPECT_EQ(lines.front().substr(0, 6), "enter ");
    EXPECT_EQ(lines.back(), "leave " + lines.front().substr(6));
    return lines.front().substr(6);
  }

  ImportSeams m_seams;
  std::vector<std::wstring>& m_boxes = watchMessageBoxes();
  RecordingScope m_records;
  LocalLog m_log;
};

TEST_F(TraceTest, PortEntriesNameTheirArguments) {
  DWORD needed = 0;
  DWORD returned = 0;
  HANDLE handle = nullptr;
  MGEnumPorts(nullptr, text(L"server"), 1, nullptr, 0, &needed, &returned);
  EXPECT_EQ(onlyEntry(), "MGEnumPorts (pName = server)");
  MGOpenPort(nullptr, text(L"CPP5"), &handle);
  EXPECT_EQ(onlyEntry(), "MGOpenPort (pName = CPP5)");
  MGClosePort(nullptr);
  EXPECT_EQ(onlyEntry(), "MGClosePort ()");
  MGDeletePort(nullptr, text(L"server"), nullptr, text(L"CPP5"));
  EXPECT_EQ(onlyEntry(), "MGDeletePort (pName = server)");
  MGDeletePort(nullptr, nullptr, nullptr, text(L"CPP5"));
  EXPECT_EQ(onlyEntry(), "MGDeletePort (pName = (null))");
}

TEST_F(TraceTest, JobEntriesNameTheirArguments) {
  DWORD written = 0;
  MGStartDocPort(nullptr, text(L"Laser"), 17, 1, nullptr);
  EXPECT_EQ(onlyEntry(), "MGStartDocPort (pPrinterName = Laser, JobId = 17)");
  MGWritePort(nullptr, nullptr, 0, &written);
  EXPECT_EQ(onlyEntry(), "MGWritePort ()");
  MGEndDocPort(nullptr);
  EXPECT_EQ(onlyEntry(), "MGEndDocPort ()");
}

TEST_F(TraceTest, TheConfigurationChannelNamesItsInput) {
  HANDLE handle = nullptr;
  MGXcvOpenPort(nullptr, L"CPP5", 1, &handle);
  EXPECT_EQ(onlyEntry(), "MGXcvOpenPort");
  MGXcvDataPort(nullptr, L"AddPort", reinterpret_cast<PBYTE>(text(L"CPP9")), 0, nullptr, 0, nullptr);
  EXPECT_EQ(onlyEntry(), "MGXcvDataPort (pInputData = CPP9)");
  MGXcvDataPort(nullptr, nullptr, nullptr, 0, nullptr, 0, nullptr);
  EXPECT_EQ(onlyEntry(), "MGXcvDataPort (pInputData = (null))");
  MGXcvClosePort(nullptr);
  EXPECT_EQ(onlyEntry(), "MGXcvClosePort");
}

TEST_F(TraceTest, EntriesThatDoNothingSayTheirNames) {
  MGReadPort(nullptr, nullptr, 0, nullptr);
  EXPECT_EQ(onlyEntry(), "MGReadPort");
  MGSetPortTimeOuts(nullptr, nullptr, 0);
  EXPECT_EQ(onlyEntry(), "MGSetPortTimeOuts");
  MGShutdown(nullptr);
  EXPECT_EQ(onlyEntry(), "MGShutdown");
  EXPECT_THAT(m_records.lines(), IsEmpty());
}

TEST_F(TraceTest, EntriesThatShowABoxSayNothing) {
  MGAddPort(nullptr, nullptr, nullptr, nullptr);
  MGAddPortEx(nullptr, nullptr, 1, nullptr, nullptr);
  MGConfigurePort(nullptr, nullptr, nullptr, nullptr);
  EXPECT_EQ(m_boxes.size(), 3u);
  EXPECT_THAT(m_log.lines(), IsEmpty());
  EXPECT_THAT(m_records.lines(), IsEmpty());
}

TEST_F(TraceTest, TracingLeavesTheErrorOfAnEnumeration) {
  CPortList list;
  CPortList::setInstance(&list);
  list.AddPort(L"CPP5", 0);
  DWORD needed = 0;
  DWORD returned = 0;
  SetLastError(0);
  EXPECT_EQ(MGEnumPorts(nullptr, nullptr, 1, nullptr, 0, &needed, &returned), FALSE);
  EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_INSUFFICIENT_BUFFER));
  CPortList::setInstance(nullptr);
}

}  // namespace
