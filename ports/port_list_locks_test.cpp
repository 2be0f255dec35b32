#include "ports/port_list.h"
#include "tests/support/import_seam.h"
#include "tests/support/local_log.h"
#include "tests/support/ports_registry.h"
#include "tests/support/recording_monitor.h"

#include <windows.h>

#include <atomic>
#include <gtest/gtest.h>
#include <map>
#include <string>
#include <thread>
#include <vector>

// Which locks the port list holds while it does what.

MG_IMPORT_SEAM(L"kernel32.dll", EnterCriticalSection, 0)
MG_IMPORT_SEAM(L"kernel32.dll", LeaveCriticalSection, 0)
MG_IMPORT_SEAM(L"kernel32.dll", DeleteCriticalSection, 0)

namespace {

using Lines = std::vector<std::string>;

class PortListLocksTest : public testing::Test {
 protected:
  PortListLocksTest() {
    // Finding a port enters the list's lock, the map's, and the port's.
    std::vector<CRITICAL_SECTION*> entered;
    EnterCriticalSectionSeam.watch = [&](CRITICAL_SECTION* section) { entered.push_back(section); };
    list.AddNewPort(L"CPP7");
    entered.clear();
    list.FindPort(L"CPP7")->lock->unlock();
    names[entered.front()] = "list";
    names[entered.at(1)] = "map";
    names[entered.at(2)] = "port";
    portSection = entered.at(2);
    EnterCriticalSectionSeam.watch = nullptr;
  }

  ~PortListLocksTest() override {
    EnterCriticalSectionSeam.restore();
    LeaveCriticalSectionSeam.restore();
    DeleteCriticalSectionSeam.restore();
  }

  // Writes down, from here on, what happens to the locks, and between what calls of the registry and what operations.
  void watchLocks() {
    startOfCalls = seams.calls().size();
    log.trace();
    EnterCriticalSectionSeam.watch = [this](CRITICAL_SECTION* section) { note("enter ", section); };
    LeaveCriticalSectionSeam.watch = [this](CRITICAL_SECTION* section) { note("leave ", section); };
    DeleteCriticalSectionSeam.watch = [this](CRITICAL_SECTION* section) { note("delete ", section); };
  }
  Lines whatHappened() {
    catchUp();
    return happened;
  }

  void note(const char* what, CRITICAL_SECTION* section) {
    const auto name = names.find(section);
    if (name == names.end()) return;
    catchUp();
    happened.push_back(what + name->second);
  }
  void catchUp() {
    const Lines calls = seams.calls();
    for (; startOfCalls < calls.size(); ++startOfCalls)
      happened.push_back(calls[startOfCalls]);
    const Lines entered = log.entered();
    for (; startOfTraces < entered.size(); ++startOfTraces)
      happened.push_back(entered[startOfTraces].substr(11));
  }

  PortsRegistry registry;
  RecordingScope records;
  LocalLog log;
  ImportSeams seams;
  CPortList list;
  std::map<CRITICAL_SECTION*, std::string> names;
  CRITICAL_SECTION* portSection = nullptr;
  std::size_t startOfCalls = 0;
  std::size_t startOfTraces = 0;
  Lines happened;
};

}  // namespace

TEST_F(PortListLocksTest, LoadsUnderTheListsLockAndClosesTheKeyAfterIt) {
  watchLocks();
  list.Load();
  EXPECT_EQ(whatHappened(), (Lines{"Load()", "enter list", "RegCreateKeyExW", "RegQueryInfoKeyA", "RegEnumValueW",
                                   "AddPort()", "enter map", "leave map", "leave list", "RegCloseKey"}));
}

TEST_F(PortListLocksTest, AddsToListAndRegistryUnderTheListsLock) {
  watchLocks();
  list.AddNewPort(L"CPP8");
  EXPECT_EQ(whatHappened(), (Lines{"AddNewPort()", "enter list", "AddPort()", "enter map", "leave map",
                                   "RegCreateKeyExW", "RegSetValueExW", "leave list", "RegCloseKey"}));
}

TEST_F(PortListLocksTest, EntersAFoundPortsLockBeforeItLeavesTheLists) {
  watchLocks();
  tagPort* const port = list.FindPort(L"CPP7");
  EXPECT_EQ(whatHappened(), (Lines{"FindPort()", "enter list", "enter map", "leave map", "enter port", "leave list"}));
  port->lock->unlock();
  EXPECT_EQ(whatHappened().back(), "leave port");
}

TEST_F(PortListLocksTest, LeavesAndDestroysTheLockOfADeletedPortLast) {
  watchLocks();
  list.DeletePort(L"CPP7");
  EXPECT_EQ(whatHappened(),
            (Lines{"DeletePort()", "enter list", "enter map", "leave map", "enter port", "RegOpenKeyExW",
                   "RegDeleteValueW", "leave list", "RegCloseKey", "leave port", "delete port"}));
}

// Telling may wait for a network.
TEST_F(PortListLocksTest, TellsOfTheJobOfADeletedPortWithoutALockAndBeforeTheRecordGoes) {
  static decltype(this) test;
  test = this;
  watchLocks();
  list.DeletePort(L"CPP7", [](tagPort&) noexcept {
    test->catchUp();
    test->happened.push_back("the job ends");
  });
  const Lines all = whatHappened();
  ASSERT_GE(all.size(), 5u);
  EXPECT_EQ(Lines(all.end() - 5, all.end()),
            (Lines{"leave list", "RegCloseKey", "leave port", "the job ends", "delete port"}));
}

TEST_F(PortListLocksTest, EnumeratesUnderTheListsLock) {
  watchLocks();
  BYTE buffer[100];
  DWORD needed = 0;
  DWORD returned = 0;
  list.EnumPorts(nullptr, 1, buffer, sizeof buffer, &needed, &returned);
  EXPECT_EQ(whatHappened(), (Lines{"EnumPorts()", "enter list", "enter map", "leave map", "GetPortSize()",
                                   "CopyPortToBuffer()", "leave list"}));
}

TEST_F(PortListLocksTest, EndsUnderTheListsLock) {
  auto* const other = new CPortList;
  CRITICAL_SECTION* first = nullptr;
  EnterCriticalSectionSeam.watch = [&](CRITICAL_SECTION* section) { first = first == nullptr ? section : first; };
  other->FindPort(L"nobody");
  names[first] = "other list";
  watchLocks();
  delete other;
  EXPECT_EQ(whatHappened(), (Lines{"~CPortList()", "enter other list", "leave other list", "delete other list"}));
}

TEST_F(PortListLocksTest, WaitsForThePortToBeLeftBeforeItFreesIt) {
  tagPort* const port = list.FindPort(L"CPP7");
  const std::size_t before = seams.calls().size();
  // Deleting must come to the port's lock, and stop there, before it comes to the registry or to its end.
  const HANDLE atTheLock = CreateEventA(nullptr, TRUE, FALSE, nullptr);
  const HANDLE atTheEnd = CreateEventA(nullptr, TRUE, FALSE, nullptr);
  EnterCriticalSectionSeam.watch = [&](CRITICAL_SECTION* section) {
    if (section == portSection) SetEvent(atTheLock);
  };
  DWORD result = 0;
  std::jthread deleting([&] {
    result = list.DeletePort(L"CPP7");
    SetEvent(atTheEnd);
  });
  const HANDLE either[] = {atTheLock, atTheEnd};
  EXPECT_EQ(WaitForMultipleObjects(2, either, FALSE, INFINITE), WAIT_OBJECT_0);
  EXPECT_EQ(seams.calls().size(), before);
  EXPECT_STREQ(port->portName, L"CPP7");
  port->lock->unlock();
  deleting.join();
  EXPECT_EQ(result, 1U);
  CloseHandle(atTheLock);
  CloseHandle(atTheEnd);
}

TEST_F(PortListLocksTest, ServesSeveralThreadsAtOnce) {
  const auto work = [&](const wchar_t* name) {
    for (int round = 0; round < 50; ++round) {
      list.AddNewPort(name);
      if (tagPort* const port = list.FindPort(name)) port->lock->unlock();
      BYTE buffer[1000];
      DWORD needed = 0;
      DWORD returned = 0;
      list.EnumPorts(nullptr, 2, buffer, sizeof buffer, &needed, &returned);
      list.DeletePort(name);
    }
  };
  std::jthread other(work, L"CPP1");
  work(L"CPP2");
  other.join();
  EXPECT_EQ(list.FindPort(L"CPP1"), nullptr);
  EXPECT_EQ(list.FindPort(L"CPP2"), nullptr);
  EXPECT_EQ(PortsRegistry::values().size(), 1U);
  EXPECT_EQ(records.lines(), Lines{});
}
