#include "monitor/entries.h"
#include "tests/support/import_seam.h"
#include "tests/support/monitor/message_box_seam.h"
#include "tests/support/recording_monitor.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class UnsupportedEntriesTest : public testing::Test {
 protected:
  ImportSeams m_seams;
  std::vector<std::wstring>& m_boxes = watchMessageBoxes();
  RecordingScope m_records;
  HWND m_window = reinterpret_cast<HWND>(77);
};

TEST_F(UnsupportedEntriesTest, AddingAPortIsAnsweredWithABox) {
  EXPECT_EQ(MGAddPort(nullptr, nullptr, m_window, nullptr), TRUE);
  EXPECT_EQ(MGAddPortEx(nullptr, nullptr, 1, nullptr, nullptr), TRUE);
  EXPECT_THAT(m_boxes, ElementsAre(L"77|The specified action is not supported.|Client Printer Port|0",
                                   L"0|The specified action is not supported.|Client Printer Port|0"));
  EXPECT_THAT(m_records.lines(), IsEmpty());
}

TEST_F(UnsupportedEntriesTest, ConfiguringAPortIsAnsweredWithABox) {
  EXPECT_EQ(MGConfigurePort(nullptr, nullptr, m_window, nullptr), TRUE);
  EXPECT_THAT(m_boxes, ElementsAre(L"77|This port cannot be configured.|Client Printer Port|0"));
}

TEST_F(UnsupportedEntriesTest, ReadingAndTimeOutsAreRefusedAndWriteNothing) {
  BYTE buffer[2] = {7, 8};
  DWORD read = 99;
  EXPECT_EQ(MGReadPort(nullptr, buffer, 2, &read), FALSE);
  EXPECT_EQ(read, 99u);
  EXPECT_EQ(buffer[0], 7);
  COMMTIMEOUTS timeouts{};
  EXPECT_EQ(MGSetPortTimeOuts(nullptr, &timeouts, 0), FALSE);
  EXPECT_THAT(m_records.lines(), IsEmpty());
}

TEST_F(UnsupportedEntriesTest, TheConfigurationChannelOpensWithoutAHandle) {
  HANDLE handle = m_window;
  EXPECT_EQ(MGXcvOpenPort(nullptr, L"CPP5", 1, &handle), TRUE);
  EXPECT_EQ(handle, m_window);
  EXPECT_EQ(MGXcvClosePort(handle), TRUE);
}

}  // namespace
