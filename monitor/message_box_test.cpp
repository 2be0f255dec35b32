#include "monitor/entries.h"
#include "ports/port_list.h"
#include "tests/support/import_seam.h"
#include "tests/support/local_log.h"
#include "tests/support/monitor/message_box_seam.h"
#include "tests/support/ports_registry.h"
#include "tests/support/recording_monitor.h"

#include <gmock/gmock.h>

MG_IMPORT_SEAM(L"kernel32.dll", ProcessIdToSessionId, FALSE)
MG_IMPORT_SEAM(L"user32.dll", GetUserObjectInformationW, FALSE)

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

const HWND kWindow = reinterpret_cast<HWND>(77);

class MessageBoxTest : public testing::Test {
 protected:
  MessageBoxTest() { runIn(1, true); }

  static void runIn(DWORD session, bool visible) {
    ProcessIdToSessionIdSeam.replacement = [session](DWORD process, DWORD* answer) -> WINBOOL {
      EXPECT_EQ(process, GetCurrentProcessId());
      *answer = session;
      return TRUE;
    };
    GetUserObjectInformationWSeam.replacement = [visible](HANDLE station, int what, PVOID data, DWORD size,
                                                          LPDWORD) -> WINBOOL {
      EXPECT_EQ(station, GetProcessWindowStation());
      EXPECT_EQ(what, UOI_FLAGS);
      EXPECT_EQ(size, sizeof(USEROBJECTFLAGS));
      static_cast<USEROBJECTFLAGS*>(data)->dwFlags = visible ? WSF_VISIBLE : 0;
      return TRUE;
    };
  }
  static wchar_t* text(const wchar_t* constant) { return const_cast<wchar_t*>(constant); }

  ImportSeams m_seams;
  std::vector<std::wstring>& m_boxes = watchMessageBoxes();
  LocalLog m_log;
};

TEST_F(MessageBoxTest, IsShownToAPersonAndNotWritten) {
  mg::showMessageBox(kWindow, L"text", L"title");
  EXPECT_THAT(m_boxes, ElementsAre(L"77|text|title|0"));
  EXPECT_THAT(m_log.lines(), IsEmpty());
}

TEST_F(MessageBoxTest, IsALineOfTheLogWhereServicesRun) {
  runIn(0, true);
  mg::showMessageBox(nullptr, L"An error\n\nhas occurred.", L"Error");
  EXPECT_THAT(m_boxes, IsEmpty());
  EXPECT_THAT(m_log.lines(), ElementsAre("message box: Error: An error  has occurred. (not shown, because this process "
                                         "has no desktop that anybody sees)"));
}

TEST_F(MessageBoxTest, IsALineOfTheLogOnAWindowStationThatNobodySees) {
  runIn(1, false);
  mg::showMessageBox(nullptr, L"text", L"title");
  EXPECT_THAT(m_boxes, IsEmpty());
  EXPECT_EQ(m_log.lines().size(), 1u);
}

TEST_F(MessageBoxTest, IsShownWhereWindowsDoesNotTell) {
  ProcessIdToSessionIdSeam.fail(1, FALSE, ERROR_ACCESS_DENIED);
  GetUserObjectInformationWSeam.fail(1, FALSE, ERROR_ACCESS_DENIED);
  mg::showMessageBox(nullptr, L"text", L"title");
  EXPECT_EQ(m_boxes.size(), 1u);
}

// This process has one, as every program that a person starts.
TEST_F(MessageBoxTest, IsShownInAProgramOfASession) {
  ProcessIdToSessionIdSeam.restore();
  GetUserObjectInformationWSeam.restore();
  mg::showMessageBox(nullptr, L"text", L"title");
  EXPECT_EQ(m_boxes.size(), 1u);
}

TEST_F(MessageBoxTest, NoEntryWaitsForAPersonWhoCannotBeThere) {
  runIn(0, false);
  const PortsRegistry registry;
  RecordingScope records;
  CPortList list;
  CPortList::setInstance(&list);
  list.AddNewPort(L"CPP5");
  EXPECT_EQ(MGAddPort(nullptr, nullptr, kWindow, nullptr), TRUE);
  EXPECT_EQ(MGAddPortEx(nullptr, nullptr, 1, nullptr, nullptr), TRUE);
  EXPECT_EQ(MGConfigurePort(nullptr, nullptr, kWindow, nullptr), TRUE);
  EXPECT_EQ(MGDeletePort(nullptr, nullptr, kWindow, text(L"CPP5")), TRUE);
  EXPECT_EQ(MGDeletePort(nullptr, nullptr, kWindow, text(L"CPP5")), FALSE);
  CPortList::setInstance(nullptr);
  EXPECT_THAT(m_boxes, IsEmpty());
  const std::string end = " (not shown, because this process has no desktop that anybody sees)";
  EXPECT_THAT(m_log.lines(),
              ElementsAre("message box: Client Printer Port: The specified action is not supported." + end,
                          "message box: Client Printer Port: The specified action is not supported." + end,
                          "message box: Client Printer Port: This port cannot be configured." + end,
                          "message box: Port removed: Port \"CPP5\" successfully removed." + end,
                          "message box: Error: An error has occurred  Couldn't remove the port." + end));
}

}  // namespace
