#include "ports/port_list.h"

#include "tests/support/local_log.h"
#include "tests/support/ports_registry.h"
#include "tests/support/recording_monitor.h"

#include <gtest/gtest.h>
#include <string>
#include <vector>

namespace {

using Lines = std::vector<std::string>;

class PortListTest : public testing::Test {
 protected:
  // Whether the port is there; leaves the lock that finding it takes.
  bool has(const wchar_t* name) {
    tagPort* const port = list.FindPort(name);
    if (port != nullptr) port->lock->unlock();
    return port != nullptr;
  }

  DWORD count() {
    DWORD needed = 0;
    DWORD returned = 0;
    list.EnumPorts(nullptr, 1, nullptr, 0, &needed, &returned);
    return needed / list.GetPortSize(1);
  }

  PortsRegistry registry;
  RecordingScope records;
  CPortList list;
};

}  // namespace

TEST_F(PortListTest, CreatesAMissingKeyAndLoadsNothingFromIt) {
  ASSERT_FALSE(PortsRegistry::exists());
  list.Load();
  EXPECT_TRUE(PortsRegistry::exists());
  EXPECT_TRUE(PortsRegistry::values().empty());
  EXPECT_EQ(count(), 0U);
  EXPECT_EQ(records.lines(), Lines{});
}

TEST_F(PortListTest, LoadsThePortOfEachValueByItsNameWhateverItHolds) {
  PortsRegistry::set(L"CPP1", REG_SZ, L"CPP1");
  PortsRegistry::set(L"CPP2", REG_SZ, L"another text");
  PortsRegistry::set(L"CPP3", REG_BINARY);
  PortsRegistry::addSubkey(L"CPP4");
  list.Load();
  EXPECT_EQ(count(), 3U);
  for (const wchar_t* name : {L"CPP1", L"CPP2", L"CPP3"})
    EXPECT_TRUE(has(name));
  EXPECT_EQ(records.lines(), Lines{});
}

TEST_F(PortListTest, LoadsNamesThatPeopleHavePlanted) {
  const std::wstring halfPair(L"half \xD800 pair");
  for (const wchar_t* name : {L"", L"a\\b/c", halfPair.c_str(), L"\u4E2D\u6587"})
    PortsRegistry::set(name, REG_MULTI_SZ, std::wstring(5000, L'x'));
  list.Load();
  EXPECT_EQ(count(), 4U);
  for (const wchar_t* name : {L"", L"a\\b/c", halfPair.c_str(), L"\u4E2D\u6587"}) {
    tagPort* const port = list.FindPort(name);
    ASSERT_NE(port, nullptr);
    EXPECT_STREQ(port->portName, name);
    port->lock->unlock();
  }
  EXPECT_EQ(records.lines(), Lines{});
}

// Keys are compared as the code page writes them; the registry compares them as they are.
TEST_F(PortListTest, TakesNamesThatTheCodePageCannotTellApartForOnePort) {
  const wchar_t first[] = L"CPP\xD800";
  const wchar_t second[] = L"CPP\xD801";
  list.AddNewPort(first);
  tagPort* const replaced = list.FindPort(first);
  replaced->lock->unlock();
  list.AddNewPort(second);
  EXPECT_EQ(count(), 1U);
  tagPort* const port = list.FindPort(first);
  ASSERT_NE(port, nullptr);
  EXPECT_STREQ(port->portName, second);
  port->lock->unlock();
  EXPECT_EQ(PortsRegistry::values().size(), 2U);
  delete replaced->lock;
  delete replaced;
}

TEST_F(PortListTest, PassesOverValuesWhoseNameIsTooLongForAPort) {
  PortsRegistry::set(std::wstring(260, L'a').c_str());
  PortsRegistry::set(std::wstring(259, L'b').c_str());
  PortsRegistry::set(L"CPP1");
  list.Load();
  EXPECT_FALSE(has(std::wstring(260, L'a').c_str()));
  EXPECT_TRUE(has(std::wstring(259, L'b').c_str()));
  EXPECT_TRUE(has(L"CPP1"));
  EXPECT_EQ(records.lines(), Lines{});
}

TEST_F(PortListTest, GivesANewPortItsInitialFields) {
  EXPECT_EQ(list.AddNewPort(L"CPP7"), 1U);
  tagPort* const port = list.FindPort(L"CPP7");
  ASSERT_NE(port, nullptr);
  EXPECT_FALSE(port->printServer);
  EXPECT_EQ(port->job, nullptr);
  EXPECT_STREQ(port->portName, L"CPP7");
  EXPECT_STREQ(port->secondName, L"");
  EXPECT_EQ(port->flags, 0U);
  EXPECT_EQ(port->reserved, 0U);
  EXPECT_STREQ(port->printerName, L"");
  EXPECT_EQ(port->jobId, 0U);
  EXPECT_EQ(port->tickCount, 0U);
  EXPECT_EQ(port->cachedPrinters, nullptr);
  EXPECT_EQ(port->listRequestSucceeded, 1);
  EXPECT_EQ(port->lock->unlock(), 1) << "found with its lock held";
  EXPECT_EQ(port->lock->unlock(), 0) << "and held once";
}

TEST_F(PortListTest, KeepsANewPortAsAStringThatHoldsItsNameAndTerminator) {
  EXPECT_EQ(list.AddNewPort(L"CPP7"), 1U);
  const auto values = PortsRegistry::values();
  ASSERT_EQ(values.size(), 1U);
  const PortsRegistry::Value& value = values.at(L"CPP7");
  EXPECT_EQ(value.type, static_cast<DWORD>(REG_SZ));
  EXPECT_EQ(value.data, (std::vector<BYTE>{'C', 0, 'P', 0, 'P', 0, '7', 0, 0, 0}));
  EXPECT_EQ(records.lines(), Lines{});
}

TEST_F(PortListTest, GivesAnotherListTheSamePortsFromTheRegistry) {
  list.AddNewPort(L"CPP7");
  list.AddNewPort(L"CPP12");
  CPortList other;
  other.Load();
  tagPort* const port = other.FindPort(L"CPP12");
  ASSERT_NE(port, nullptr);
  EXPECT_EQ(port->lock->unlock(), 1);
}

TEST_F(PortListTest, AddsToTheListAloneWithoutTouchingTheRegistry) {
  EXPECT_EQ(list.AddPort(L"CPP7", 0), 1U);
  EXPECT_TRUE(has(L"CPP7"));
  EXPECT_FALSE(PortsRegistry::exists());
}

TEST_F(PortListTest, ReplacesTheRecordOfANameThatExistsAndWritesItsValueAgain) {
  list.AddNewPort(L"CPP7");
  tagPort* const first = list.FindPort(L"CPP7");
  first->lock->unlock();
  PortsRegistry::set(L"CPP7", REG_SZ, L"changed");
  EXPECT_EQ(list.AddNewPort(L"CPP7"), 1U);
  tagPort* const second = list.FindPort(L"CPP7");
  second->lock->unlock();
  EXPECT_NE(first, second);
  EXPECT_EQ(count(), 1U);
  EXPECT_EQ(PortsRegistry::values().at(L"CPP7").data.size(), 10U);
  // The list has forgotten the first record; the test is its only owner now.
  delete first->lock;
  delete first;
}

TEST_F(PortListTest, TellsNamesApartByCaseAndLength) {
  list.AddNewPort(L"CPP1");
  EXPECT_FALSE(has(L"cpp1"));
  EXPECT_FALSE(has(L"CPP1 "));
  EXPECT_FALSE(has(L""));
  EXPECT_FALSE(has(nullptr));
  EXPECT_EQ(records.lines(), Lines{});
}

TEST_F(PortListTest, CutsTheNameInTheRecordOfALongPortAndStillFindsItByItsWholeName) {
  const std::wstring whole(300, L'p');
  EXPECT_EQ(list.AddNewPort(whole.c_str()), 1U);
  tagPort* const port = list.FindPort(whole.c_str());
  ASSERT_NE(port, nullptr);
  EXPECT_EQ(std::wstring(port->portName), std::wstring(259, L'p'));
  EXPECT_STREQ(port->secondName, L"");
  EXPECT_EQ(port->lock->unlock(), 1);
  EXPECT_FALSE(has(std::wstring(259, L'p').c_str()));
  EXPECT_EQ(PortsRegistry::values().at(whole).data.size(), 602U);
  EXPECT_EQ(list.DeletePort(whole.c_str()), 1U);
  EXPECT_TRUE(PortsRegistry::values().empty());
}

TEST_F(PortListTest, DeletesAPortFromTheListAndTheRegistry) {
  list.AddNewPort(L"CPP7");
  list.AddNewPort(L"CPP8");
  tagPort* const port = list.FindPort(L"CPP7");
  port->cachedPrinters = new TObjectMap<UTL_String, void*>(20);
  port->lock->unlock();
  EXPECT_EQ(list.DeletePort(L"CPP7"), 1U);
  EXPECT_FALSE(has(L"CPP7"));
  EXPECT_TRUE(has(L"CPP8"));
  EXPECT_EQ(PortsRegistry::values().size(), 1U);
  EXPECT_EQ(records.lines(), Lines{});
}

TEST_F(PortListTest, FreesWhatAPortKeepsAboutItsSession) {
  struct Printers : TObjectMap<UTL_String, void*> {
    explicit Printers(bool& gone) : m_gone(gone) {}
    ~Printers() override { m_gone = true; }
    bool& m_gone;
  };
  bool gone = false;
  list.AddNewPort(L"CPP7");
  tagPort* const port = list.FindPort(L"CPP7");
  port->cachedPrinters = new Printers(gone);
  port->lock->unlock();
  list.DeletePort(L"CPP7");
  EXPECT_TRUE(gone);
}

TEST_F(PortListTest, AnswersZeroForAnUnknownPortAndStillDeletesItsValue) {
  PortsRegistry::set(L"CPP9");
  EXPECT_EQ(list.DeletePort(L"CPP9"), 0U);
  EXPECT_TRUE(PortsRegistry::values().empty());
  EXPECT_EQ(records.lines(), (Lines{"0x4000000a: Failed to remove the printer port CPP9",
                                    "0x40000008: Stack Trace: CPortList::DeletePort()"}));
  EXPECT_EQ(records.reports(), 1);
}

TEST_F(PortListTest, DeletesAPortFromTheListWhenItsValueIsMissing) {
  PortsRegistry::set(L"another");
  list.AddPort(L"CPP7", 0);
  EXPECT_EQ(list.DeletePort(L"CPP7"), 1U);
  EXPECT_EQ(records.lines(), (Lines{"0x4000000a: Failed to delete the printer port registry value: CPP7.",
                                    "0x40000008: Stack Trace: CPortList::DeletePort()"}));
}

TEST_F(PortListTest, RecordsBothFailuresWhenNeitherListNorRegistryKnowsThePort) {
  EXPECT_EQ(list.DeletePort(L"CPP7"), 0U);
  EXPECT_EQ(records.lines(), (Lines{"0x4000000a: Failed to remove the printer port CPP7",
                                    "0x4000000a: Failed to find the printer ports registry key.",
                                    "0x40000008: Stack Trace: CPortList::DeletePort()"}));
  EXPECT_EQ(records.reports(), 1);
}

TEST_F(PortListTest, TakesANullNameForTheEmptyOne) {
  EXPECT_EQ(list.AddNewPort(nullptr), 1U);
  EXPECT_TRUE(has(L""));
  EXPECT_TRUE(has(nullptr));
  EXPECT_EQ(list.DeletePort(nullptr), 1U);
  EXPECT_EQ(records.lines(), Lines{});
  EXPECT_EQ(list.DeletePort(nullptr), 0U);
  EXPECT_EQ(records.lines().at(0), "0x4000000a: Failed to remove the printer port ");
}

TEST_F(PortListTest, TracesWhenItIsMade) {
  LocalLog log;
  log.trace();
  const CPortList another;
  EXPECT_EQ(log.entered(), Lines{"CPortList::CPortList()"});
}

TEST_F(PortListTest, IsReachedThroughTheInstanceOfTheModule) {
  EXPECT_EQ(CPortList::instance(), nullptr);
  CPortList::setInstance(&list);
  EXPECT_EQ(CPortList::instance(), &list);
  CPortList::setInstance(nullptr);
  EXPECT_EQ(CPortList::instance(), nullptr);
}
