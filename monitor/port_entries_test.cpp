#include "monitor/entries.h"
#include "ports/port_list.h"
#include "tests/support/failing_new.h"
#include "tests/support/import_seam.h"
#include "tests/support/local_log.h"
#include "tests/support/monitor/message_box_seam.h"
#include "tests/support/ports_registry.h"
#include "tests/support/recording_monitor.h"

#include <algorithm>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

MG_IMPORT_SEAM(L"kernel32.dll", EnterCriticalSection, 0)
MG_IMPORT_SEAM(L"kernel32.dll", LeaveCriticalSection, 0)

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

const HWND kUntouched = reinterpret_cast<HWND>(77);

std::string closing(const std::string& name) {
  return "0x40000008: Stack Trace: MgPrintMon - " + name + "()";
}

class PortEntriesTest : public testing::Test {
 protected:
  PortEntriesTest() {
    CPortList::setInstance(&m_list);
    m_list.AddPort(L"CPP5", 0);
  }
  ~PortEntriesTest() override { CPortList::setInstance(nullptr); }

  static wchar_t* name(const wchar_t* text) { return const_cast<wchar_t*>(text); }
  tagPort* open() {
    HANDLE handle = nullptr;
    EXPECT_EQ(MGOpenPort(nullptr, name(L"CPP5"), &handle), TRUE);
    return static_cast<tagPort*>(handle);
  }

  PortsRegistry m_registry;
  ImportSeams m_seams;
  std::vector<std::wstring>& m_boxes = watchMessageBoxes();
  RecordingScope m_records;
  CPortList m_list;
};

TEST_F(PortEntriesTest, OpeningGivesThePortsAddressMarksItAndLeavesItsLock) {
  tagPort* port = open();
  EXPECT_STREQ(port->portName, L"CPP5");
  EXPECT_EQ(port->flags, kPortIsOpen);
  EXPECT_EQ(port->lock->unlock(), 0);
  EXPECT_THAT(m_records.lines(), IsEmpty());
}

TEST_F(PortEntriesTest, OpensAreNotCounted) {
  tagPort* port = open();
  open();
  EXPECT_EQ(MGClosePort(port), TRUE);
  EXPECT_EQ(port->flags, 0u);
}

TEST_F(PortEntriesTest, ClosingLeavesTheJobAndTheDocumentBit) {
  tagPort* port = open();
  port->flags |= kPortHasDocument;
  port->jobId = 9;
  EXPECT_EQ(MGClosePort(port), TRUE);
  EXPECT_EQ(port->flags, kPortHasDocument);
  EXPECT_EQ(port->jobId, 9u);
  EXPECT_EQ(port->lock->unlock(), 0);
}

TEST_F(PortEntriesTest, OpeningLeavesTheDocumentInProgress) {
  tagPort* port = open();
  port->flags = kPortHasDocument;
  open();
  EXPECT_EQ(port->flags, kPortHasDocument | kPortIsOpen);
}

TEST_F(PortEntriesTest, OpeningAnUnknownPortLeavesTheHandle) {
  HANDLE handle = kUntouched;
  EXPECT_EQ(MGOpenPort(nullptr, name(L"CPP6"), &handle), FALSE);
  EXPECT_EQ(handle, kUntouched);
  EXPECT_THAT(m_records.lines(), ElementsAre("0x4000000a: MgPrintMon - MGOpenPort: port not found",
                                             "10: MgPrintMon - MGOpenPort: port not found", closing("MGOpenPort")));
  EXPECT_EQ(m_records.reports(), 1);
}

TEST_F(PortEntriesTest, OpeningWithoutANameIsABadArgument) {
  HANDLE handle = nullptr;
  EXPECT_EQ(MGOpenPort(nullptr, nullptr, &handle), FALSE);
  EXPECT_THAT(m_records.lines(), ElementsAre("10: number 3015", closing("MGOpenPort")));
}

TEST_F(PortEntriesTest, OpeningBeforeInitialisationMissesTheList) {
  CPortList::setInstance(nullptr);
  HANDLE handle = nullptr;
  EXPECT_EQ(MGOpenPort(nullptr, nullptr, &handle), FALSE);
  EXPECT_THAT(m_records.lines(), ElementsAre("10: number 3014", closing("MGOpenPort")));
}

TEST_F(PortEntriesTest, ClosingNothingIsABadArgument) {
  EXPECT_EQ(MGClosePort(nullptr), FALSE);
  EXPECT_THAT(m_records.lines(), ElementsAre("10: number 3015", closing("MGClosePort")));
}

TEST_F(PortEntriesTest, ClosingAnInvalidHandleIsABadArgument) {
  EXPECT_EQ(MGClosePort(INVALID_HANDLE_VALUE), FALSE);
  EXPECT_THAT(m_records.lines(), ElementsAre("10: number 3015", closing("MGClosePort")));
}

TEST_F(PortEntriesTest, TheMarkIsSetAndTakenBackUnderThePortsLock) {
  CRITICAL_SECTION* last = nullptr;
  EnterCriticalSectionSeam.watch = [&](CRITICAL_SECTION* section) { last = section; };
  tagPort* port = m_list.FindPort(L"CPP5");
  const CRITICAL_SECTION* const section = last;
  port->lock->unlock();
  std::vector<std::string> seen;
  EnterCriticalSectionSeam.watch = [&](CRITICAL_SECTION* entered) {
    if (entered == section) seen.push_back("enter " + std::to_string(port->flags));
  };
  LeaveCriticalSectionSeam.watch = [&](CRITICAL_SECTION* left) {
    if (left == section) seen.push_back("leave " + std::to_string(port->flags));
  };
  open();
  EXPECT_THAT(seen, ElementsAre("enter 0", "leave 2"));
  seen.clear();
  EXPECT_EQ(MGClosePort(port), TRUE);
  EXPECT_THAT(seen, ElementsAre("enter 2", "leave 0"));
  EnterCriticalSectionSeam.restore();
  LeaveCriticalSectionSeam.restore();
}

TEST_F(PortEntriesTest, OpeningWithoutRoomForTheHandleIsABadArgument) {
  EXPECT_EQ(MGOpenPort(nullptr, name(L"CPP5"), nullptr), FALSE);
  EXPECT_THAT(m_records.lines(), ElementsAre("10: number 3015", closing("MGOpenPort")));
}

TEST_F(PortEntriesTest, OpeningWithoutMemoryIsOpeningAnUnknownPort) {
  HANDLE handle = kUntouched;
  BOOL opened = TRUE;
  {
    const FailingNew first(1);
    opened = MGOpenPort(nullptr, name(L"CPP5"), &handle);
  }
  EXPECT_EQ(opened, FALSE);
  EXPECT_EQ(handle, kUntouched);
  const std::string missing = "MgPrintMon - MGOpenPort: port not found";
  EXPECT_THAT(m_records.lines(), ElementsAre("10: number 3012", "0x40000008: Stack Trace: CPortList::FindPort()",
                                             "0x4000000a: " + missing, "10: " + missing, closing("MGOpenPort")));
}

TEST_F(PortEntriesTest, EnumerationAnswersWithTheListsResultAndError) {
  DWORD needed = 0;
  DWORD returned = 55;
  SetLastError(0);
  EXPECT_EQ(MGEnumPorts(nullptr, nullptr, 2, nullptr, 0, &needed, &returned), FALSE);
  EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_INSUFFICIENT_BUFFER));
  EXPECT_EQ(needed, 142u);
  EXPECT_EQ(returned, 55u);

  std::vector<BYTE> buffer(needed);
  EXPECT_EQ(MGEnumPorts(nullptr, name(L"server"), 2, buffer.data(), needed, &needed, &returned), TRUE);
  EXPECT_EQ(returned, 1u);
  EXPECT_STREQ(reinterpret_cast<const PORT_INFO_2W*>(buffer.data())->pPortName, L"CPP5");
  EXPECT_STREQ(reinterpret_cast<const PORT_INFO_2W*>(buffer.data())->pMonitorName, L"Client Printer Port");
  EXPECT_THAT(m_records.lines(), IsEmpty());
}

TEST_F(PortEntriesTest, EnumerationWithoutAListClearsTheLastError) {
  CPortList::setInstance(nullptr);
  DWORD needed = 0;
  DWORD returned = 0;
  SetLastError(5);
  EXPECT_EQ(MGEnumPorts(nullptr, nullptr, 1, nullptr, 0, &needed, &returned), FALSE);
  EXPECT_EQ(GetLastError(), 0u);
  EXPECT_THAT(m_records.lines(), ElementsAre("10: number 3014", closing("MGEnumPorts")));
}

TEST_F(PortEntriesTest, DeletingAPortSaysSo) {
  m_registry.set(L"CPP5");
  EXPECT_EQ(MGDeletePort(nullptr, name(L"server"), kUntouched, name(L"CPP5")), TRUE);
  EXPECT_THAT(m_boxes, ElementsAre(L"77|Port \"CPP5\" successfully removed.|Port removed|0"));
  EXPECT_EQ(m_list.FindPort(L"CPP5"), nullptr);
  EXPECT_THAT(m_records.lines(), IsEmpty());
}

TEST_F(PortEntriesTest, AVeryLongNameIsCutInTheBox) {
  const std::wstring longName(600, L'x');
  m_list.AddPort(longName.c_str(), 0);
  m_registry.set(longName.c_str());
  EXPECT_EQ(MGDeletePort(nullptr, nullptr, nullptr, name(longName.c_str())), TRUE);
  EXPECT_THAT(m_boxes, ElementsAre(L"0|Port \"" + longName.substr(0, 505) + L"|Port removed|0"));
}

TEST_F(PortEntriesTest, DeletingAMissingPortSaysSoAndRecordsTheServersName) {
  m_registry.set(L"CPP6");
  EXPECT_EQ(MGDeletePort(nullptr, name(L"server"), kUntouched, name(L"CPP6")), FALSE);
  EXPECT_THAT(m_boxes, ElementsAre(L"77|An error has occurred\n\nCouldn't remove the port.|Error|0"));
  const auto lines = m_records.lines();
  ASSERT_GE(lines.size(), 3u);
  EXPECT_THAT(std::vector(lines.end() - 3, lines.end()),
              ElementsAre("0x4000000a: failed to remove port server", "10: failed to remove port server",
                          closing("MGDeletePort")));
}

TEST_F(PortEntriesTest, DeletingAMissingPortWithoutAServersNameRecordsThat) {
  m_registry.set(L"another");
  EXPECT_EQ(MGDeletePort(nullptr, nullptr, nullptr, name(L"CPP6")), FALSE);
  EXPECT_EQ(MGDeletePort(nullptr, nullptr, nullptr, nullptr), FALSE);
  const std::wstring box = L"0|An error has occurred\n\nCouldn't remove the port.|Error|0";
  EXPECT_THAT(m_boxes, ElementsAre(box, box));
  const auto lines = m_records.lines();
  EXPECT_EQ(std::count(lines.begin(), lines.end(), "0x4000000a: failed to remove port (null)"), 2);
  EXPECT_EQ(lines.back(), closing("MGDeletePort"));
}

TEST_F(PortEntriesTest, TheBoxIsShownBeforeTheFailureIsRecorded) {
  m_registry.set(L"CPP6");
  std::vector<std::string> before{"no box"};
  whenBoxIsShown([&] { before = m_records.lines(); });
  EXPECT_EQ(MGDeletePort(nullptr, name(L"server"), kUntouched, name(L"CPP6")), FALSE);
  EXPECT_EQ(std::count(before.begin(), before.end(), "0x4000000a: failed to remove port server"), 0);
  EXPECT_THAT(before, testing::Not(testing::Contains("no box")));
}

// Nobody but the list looks the port up, and it does so once.
TEST_F(PortEntriesTest, DeletingGoesStraightToTheList) {
  LocalLog log;
  log.trace();
  m_registry.set(L"CPP5");
  MGDeletePort(nullptr, name(L"server"), kUntouched, name(L"CPP5"));
  m_list.AddPort(L"CPP5", 0);
  m_registry.set(L"CPP5");
  log.clear();
  MGXcvDataPort(nullptr, L"DeletePort", reinterpret_cast<PBYTE>(name(L"CPP5")), 10, nullptr, 0, nullptr);
  EXPECT_THAT(log.entered(), ElementsAre("MGXcvDataPort (pInputData = CPP5)", "CPortList::DeletePort()"));
  log.clear();
  MGDeletePort(nullptr, name(L"server"), kUntouched, name(L"CPP5"));
  EXPECT_THAT(log.entered(), ElementsAre("MGDeletePort (pName = server)", "CPortList::DeletePort()"));
}

TEST_F(PortEntriesTest, DeletingBeforeInitialisationShowsNothing) {
  CPortList::setInstance(nullptr);
  EXPECT_EQ(MGDeletePort(nullptr, nullptr, kUntouched, name(L"CPP5")), FALSE);
  EXPECT_THAT(m_boxes, IsEmpty());
  EXPECT_THAT(m_records.lines(), ElementsAre("10: number 3014", closing("MGDeletePort")));
}

}  // namespace
