#include "ports/port_list.h"
#include "tests/support/recording_monitor.h"

#include <windows.h>
#include <winspool.h>

#include <cstring>
#include <cwchar>
#include <gtest/gtest.h>
#include <string>
#include <vector>

namespace {

using Lines = std::vector<std::string>;

constexpr BYTE kUntouched = 0xAA;
constexpr std::size_t kMargin = 64;

// What EnumPorts does to a buffer of the given size, with a margin on both sides that it must not touch.
struct Enumeration {
  Enumeration(CPortList& list, DWORD level, DWORD size) : bytes(size + 2 * kMargin, kUntouched) {
    SetLastError(1234);
    result = list.EnumPorts(L"server", level, bytes.data() + kMargin, size, &needed, &returned);
    error = GetLastError();
  }

  bool marginsAreUntouched() const {
    for (std::size_t at = 0; at < kMargin; ++at) {
      if (bytes[at] != kUntouched || bytes[bytes.size() - 1 - at] != kUntouched) return false;
    }
    return true;
  }
  bool isUntouched() const {
    for (const BYTE byte : bytes) {
      if (byte != kUntouched) return false;
    }
    return true;
  }
  const BYTE* begin() const { return bytes.data() + kMargin; }
  const BYTE* end() const { return bytes.data() + bytes.size() - kMargin; }
  template <typename Info>
  Info entry(std::size_t index) const {
    Info info;
    std::memcpy(&info, begin() + index * sizeof(Info), sizeof info);
    return info;
  }
  std::ptrdiff_t offsetFromEnd(const wchar_t* text) const { return end() - reinterpret_cast<const BYTE*>(text); }

  std::vector<BYTE> bytes;
  DWORD needed = 4711;
  DWORD returned = 4711;
  BOOL result = -1;
  DWORD error = 0;
};

class PortEnumerationTest : public testing::Test {
 protected:
  RecordingScope records;
  CPortList list;
};

}  // namespace

TEST_F(PortEnumerationTest, ReservesAFixedNumberOfBytesPerPort) {
  EXPECT_EQ(list.GetPortSize(1), 38U);
  EXPECT_EQ(list.GetPortSize(2), 142U);
  EXPECT_EQ(list.GetPortSize(0), 0U);
  EXPECT_EQ(list.GetPortSize(3), 0U);
  CPortList other(L"ab", L"cde");
  EXPECT_EQ(other.GetPortSize(2), 2U * (2 + 3 + 17) + 32);
}

TEST_F(PortEnumerationTest, SucceedsWithoutPortsAtAnyLevelAndLeavesTheLastErrorAlone) {
  for (const DWORD level : {0, 1, 2, 3}) {
    const Enumeration got(list, level, 0);
    EXPECT_EQ(got.result, TRUE);
    EXPECT_EQ(got.needed, 0U);
    EXPECT_EQ(got.returned, 0U);
    EXPECT_EQ(got.error, 1234U);
  }
}

TEST_F(PortEnumerationTest, SaysWhatItNeedsAndLeavesTheRestAloneWhenTheBufferIsTooSmall) {
  for (const wchar_t* name : {L"CPP1", L"CPP2", L"CPP3"})
    list.AddPort(name, 0);
  for (const DWORD level : {1, 2}) {
    const DWORD expected = level == 1 ? 3 * 38 : 3 * 142;
    for (const DWORD size : {DWORD{0}, expected - 1}) {
      const Enumeration got(list, level, size);
      EXPECT_EQ(got.result, FALSE);
      EXPECT_EQ(got.error, 122U);
      EXPECT_EQ(got.needed, expected);
      EXPECT_EQ(got.returned, 4711U);
      EXPECT_TRUE(got.isUntouched());
    }
    EXPECT_EQ(Enumeration(list, level, expected).result, TRUE);
  }
  EXPECT_EQ(records.lines(), Lines{});
}

TEST_F(PortEnumerationTest, PacksLevelOneNamesDownFromTheEndInTheOrderOfTheMap) {
  for (const wchar_t* name : {L"CPP12", L"CPP1", L"CPP2"})
    list.AddPort(name, 0);
  const Enumeration got(list, 1, 200);
  EXPECT_EQ(got.result, TRUE);
  EXPECT_EQ(got.error, 1234U);
  EXPECT_EQ(got.needed, 3U * 38);
  ASSERT_EQ(got.returned, 3U);
  EXPECT_STREQ(got.entry<PORT_INFO_1W>(0).pName, L"CPP1");
  EXPECT_STREQ(got.entry<PORT_INFO_1W>(1).pName, L"CPP2");
  EXPECT_STREQ(got.entry<PORT_INFO_1W>(2).pName, L"CPP12");
  EXPECT_EQ(got.offsetFromEnd(got.entry<PORT_INFO_1W>(0).pName), 10);
  EXPECT_EQ(got.offsetFromEnd(got.entry<PORT_INFO_1W>(1).pName), 20);
  EXPECT_EQ(got.offsetFromEnd(got.entry<PORT_INFO_1W>(2).pName), 32);
  EXPECT_TRUE(got.marginsAreUntouched());
}

// The table has 32 places, and a name stands at that of its length.
TEST_F(PortEnumerationTest, ListsThePortsByThePlaceOfTheirNamesLength) {
  const std::wstring twenty(20, L't');
  const std::wstring thirtySix(36, L's');
  for (const wchar_t* name : {twenty.c_str(), thirtySix.c_str(), L"CPP1"})
    list.AddPort(name, 0);
  const Enumeration got(list, 1, 200);
  ASSERT_EQ(got.returned, 3U);
  EXPECT_EQ(got.entry<PORT_INFO_1W>(0).pName, thirtySix);
  EXPECT_STREQ(got.entry<PORT_INFO_1W>(1).pName, L"CPP1");
  EXPECT_EQ(got.entry<PORT_INFO_1W>(2).pName, twenty);
}

TEST_F(PortEnumerationTest, PacksLevelTwoTextsInTheOrderMonitorDescriptionPort) {
  CPortList named(L"the monitor", L"the description");
  named.AddPort(L"CPP1", 0);
  named.AddPort(L"CPP2", 0);
  const Enumeration got(named, 2, 2 * named.GetPortSize(2));
  EXPECT_EQ(got.result, TRUE);
  ASSERT_EQ(got.returned, 2U);
  const auto first = got.entry<PORT_INFO_2W>(0);
  EXPECT_STREQ(first.pPortName, L"CPP1");
  EXPECT_STREQ(first.pMonitorName, L"the monitor");
  EXPECT_STREQ(first.pDescription, L"the description");
  EXPECT_EQ(first.fPortType, 0U);
  EXPECT_EQ(first.Reserved, 0U);
  EXPECT_EQ(got.offsetFromEnd(first.pMonitorName), 24);
  EXPECT_EQ(got.offsetFromEnd(first.pDescription), 24 + 32);
  EXPECT_EQ(got.offsetFromEnd(first.pPortName), 24 + 32 + 10);
  const auto second = got.entry<PORT_INFO_2W>(1);
  EXPECT_STREQ(second.pPortName, L"CPP2");
  EXPECT_EQ(got.offsetFromEnd(second.pPortName), 2 * (24 + 32 + 10));
  EXPECT_TRUE(got.marginsAreUntouched());
}

TEST_F(PortEnumerationTest, TellsTheNamesOfTheMonitorByDefault) {
  list.AddPort(L"CPP1", 0);
  const Enumeration got(list, 2, 142);
  EXPECT_STREQ(got.entry<PORT_INFO_2W>(0).pMonitorName, L"Client Printer Port");
  EXPECT_STREQ(got.entry<PORT_INFO_2W>(0).pDescription, L"Client Printer Port");
}

TEST_F(PortEnumerationTest, FillsItsReservationExactlyWithNamesOfFourteenCharacters) {
  list.AddPort(L"12345678901234", 0);
  list.AddPort(L"abcdefghijklmn", 0);
  for (const DWORD level : {1, 2}) {
    const DWORD size = 2 * list.GetPortSize(level);
    EXPECT_EQ(Enumeration(list, level, size - 1).needed, size);
    const Enumeration got(list, level, size);
    EXPECT_EQ(got.result, TRUE);
    EXPECT_EQ(got.returned, 2U);
    EXPECT_TRUE(got.marginsAreUntouched());
  }
}

TEST_F(PortEnumerationTest, AsksForTheRoomThatLongNamesTakeAndSucceedsWithIt) {
  list.AddPort(L"123456789012345", 0);
  list.AddPort(std::wstring(300, L'p').c_str(), 0);
  list.AddPort(L"CPP1", 0);
  for (const DWORD level : {1, 2}) {
    const DWORD fixed = list.GetPortSize(level) - 30;
    const DWORD expected = 3 * fixed + 2 * (16 + 260 + 5);
    for (const DWORD size : {DWORD{0}, 3 * list.GetPortSize(level), expected - 1}) {
      const Enumeration got(list, level, size);
      EXPECT_EQ(got.result, FALSE);
      EXPECT_EQ(got.error, 122U);
      EXPECT_EQ(got.needed, expected);
      EXPECT_EQ(got.returned, 4711U);
      EXPECT_TRUE(got.isUntouched());
    }
    const Enumeration got(list, level, expected);
    EXPECT_EQ(got.result, TRUE);
    EXPECT_EQ(got.returned, 3U);
    EXPECT_TRUE(got.marginsAreUntouched());
  }
  EXPECT_EQ(records.lines(), Lines{});
}

TEST_F(PortEnumerationTest, LetsShortNamesPayForLongOnes) {
  list.AddPort(L"12345678901234567890", 0);
  list.AddPort(L"CPP1", 0);
  const Enumeration got(list, 1, 2 * 38);
  EXPECT_EQ(got.result, TRUE);
  EXPECT_EQ(got.needed, 2U * 38);
  EXPECT_TRUE(got.marginsAreUntouched());
}

TEST_F(PortEnumerationTest, NeverLeavesABufferOfAnySize) {
  list.AddPort(std::wstring(40, L'p').c_str(), 0);
  list.AddPort(L"CPP1", 0);
  for (DWORD size = 0; size < 500; ++size) {
    for (const DWORD level : {1, 2}) {
      const Enumeration got(list, level, size);
      EXPECT_EQ(got.result, got.needed <= size ? TRUE : FALSE);
      EXPECT_TRUE(got.marginsAreUntouched()) << "level " << level << ", size " << size;
    }
  }
}

TEST_F(PortEnumerationTest, CountsThePortsAndFailsAtAnotherLevel) {
  list.AddPort(L"CPP1", 0);
  list.AddPort(L"CPP2", 0);
  const Enumeration got(list, 3, 100);
  EXPECT_EQ(got.result, FALSE);
  EXPECT_EQ(got.error, 124U);
  EXPECT_EQ(got.needed, 0U);
  EXPECT_EQ(got.returned, 2U);
  EXPECT_TRUE(got.isUntouched());
  EXPECT_EQ(records.lines(),
            (Lines{"0x4000000a: Invalid level found: 3.", "0x40000008: Stack Trace: CPortList::CopyPortToBuffer()",
                   "0x4000000a: Invalid level found: 3.", "0x40000008: Stack Trace: CPortList::CopyPortToBuffer()"}));
  EXPECT_EQ(records.reports(), 2);
}

TEST_F(PortEnumerationTest, ReturnsTheLowestAddressThatItWrote) {
  tagPort port;
  std::wcscpy(port.portName, L"CPP1");
  BYTE buffer[200];
  EXPECT_EQ(list.CopyPortToBuffer(&port, 1, buffer, buffer + 200), buffer + 190);
  EXPECT_EQ(list.CopyPortToBuffer(&port, 2, buffer, buffer + 200), buffer + 200 - 40 - 40 - 10);
  EXPECT_EQ(list.CopyPortToBuffer(&port, 7, buffer, buffer + 200), buffer + 200);
}

TEST_F(PortEnumerationTest, RefusesMissingArguments) {
  list.AddPort(L"CPP1", 0);
  DWORD needed = 4711;
  DWORD returned = 4711;
  BYTE buffer[100];
  EXPECT_EQ(list.EnumPorts(nullptr, 1, buffer, 100, nullptr, &returned), FALSE);
  EXPECT_EQ(list.EnumPorts(nullptr, 1, buffer, 100, &needed, nullptr), FALSE);
  EXPECT_EQ(list.EnumPorts(nullptr, 1, nullptr, 100, &needed, &returned), FALSE);
  EXPECT_EQ(GetLastError(), 87U);
  EXPECT_EQ(records.lines().at(0), "10: number 3015");
  EXPECT_EQ(records.lines().at(1), "0x40000008: Stack Trace: CPortList::EnumPorts()");
  EXPECT_EQ(records.lines().size(), 6U);
}
