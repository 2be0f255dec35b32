#include "corvane/records/exception.h"
#include "ports/port_list.h"
#include "tests/support/import_seam.h"
#include "tests/support/ports_registry.h"
#include "tests/support/recording_monitor.h"

#include <windows.h>

#include <gtest/gtest.h>
#include <string>
#include <thread>
#include <vector>

// What the port list asks of the registry, call by call, and what it makes of a refusal.

MG_IMPORT_SEAM(L"advapi32.dll", RegCreateKeyExW, ERROR_ACCESS_DENIED)
MG_IMPORT_SEAM(L"advapi32.dll", RegOpenKeyExW, ERROR_ACCESS_DENIED)
MG_IMPORT_SEAM(L"advapi32.dll", RegQueryInfoKeyA, ERROR_ACCESS_DENIED)
MG_IMPORT_SEAM(L"advapi32.dll", RegEnumValueW, ERROR_ACCESS_DENIED)
MG_IMPORT_SEAM(L"advapi32.dll", RegSetValueExW, ERROR_ACCESS_DENIED)
MG_IMPORT_SEAM(L"advapi32.dll", RegDeleteValueW, ERROR_ACCESS_DENIED)
MG_IMPORT_SEAM(L"advapi32.dll", RegCloseKey, ERROR_ACCESS_DENIED)

namespace {

using Lines = std::vector<std::string>;

class PortListRegistryTest : public testing::Test {
 protected:
  bool has(const wchar_t* name) {
    tagPort* const port = list.FindPort(name);
    if (port != nullptr) port->lock->unlock();
    return port != nullptr;
  }

  // Whether another thread can take the list's lock, shown by an operation that needs it.
  bool listIsFree() {
    bool free = false;
    std::thread([&] {
      list.FindPort(L"nobody");
      free = true;
    }).join();
    return free;
  }

  PortsRegistry registry;
  RecordingScope records;
  CPortList list;
};

}  // namespace

TEST_F(PortListRegistryTest, LoadsWithTheseCallsInThisOrder) {
  PortsRegistry::set(L"CPP1");
  PortsRegistry::set(L"CPP2");
  ImportSeams seams;
  RegCreateKeyExWSeam.watch = [](HKEY root, LPCWSTR subkey, DWORD reserved, LPWSTR type, DWORD options, REGSAM access,
                                 LPSECURITY_ATTRIBUTES security, PHKEY key, LPDWORD disposition) {
    EXPECT_EQ(root, HKEY_LOCAL_MACHINE);
    EXPECT_STREQ(subkey, L"SOFTWARE\\Quillfern\\Marrowgate\\Printers\\Ports");
    EXPECT_EQ(reserved, 0U);
    EXPECT_EQ(type, nullptr);
    EXPECT_EQ(options, 0U);
    EXPECT_EQ(access, 1U);
    EXPECT_EQ(security, nullptr);
    EXPECT_NE(key, nullptr);
    EXPECT_EQ(disposition, nullptr);
  };
  RegQueryInfoKeyASeam.watch = [](HKEY, LPSTR type, LPDWORD typeSize, LPDWORD reserved, LPDWORD subkeys,
                                  LPDWORD longestSubkey, LPDWORD longestClass, LPDWORD values, LPDWORD longestName,
                                  LPDWORD longestValue, LPDWORD security, PFILETIME written) {
    ASSERT_NE(values, nullptr);
    EXPECT_EQ(*values, 0U);
    EXPECT_EQ(type, nullptr);
    for (const LPDWORD unused :
         {typeSize, reserved, subkeys, longestSubkey, longestClass, longestName, longestValue, security})
      EXPECT_EQ(unused, nullptr);
    EXPECT_EQ(written, nullptr);
  };
  DWORD expectedIndex = 0;
  RegEnumValueWSeam.watch = [&](HKEY, DWORD index, LPWSTR, LPDWORD capacity, LPDWORD reserved, LPDWORD type,
                                LPBYTE data, LPDWORD size) {
    EXPECT_EQ(index, expectedIndex++);
    EXPECT_EQ(*capacity, 260U);
    EXPECT_EQ(reserved, nullptr);
    EXPECT_EQ(type, nullptr);
    EXPECT_EQ(data, nullptr);
    EXPECT_EQ(size, nullptr);
  };
  list.Load();
  EXPECT_EQ(seams.calls(),
            (Lines{"RegCreateKeyExW", "RegQueryInfoKeyA", "RegEnumValueW", "RegEnumValueW", "RegCloseKey"}));
}

TEST_F(PortListRegistryTest, AddsWithTheseCallsInThisOrder) {
  ImportSeams seams;
  RegCreateKeyExWSeam.watch = [](HKEY root, LPCWSTR subkey, DWORD reserved, LPWSTR type, DWORD options, REGSAM access,
                                 LPSECURITY_ATTRIBUTES security, PHKEY, LPDWORD disposition) {
    EXPECT_EQ(root, HKEY_LOCAL_MACHINE);
    EXPECT_STREQ(subkey, L"SOFTWARE\\Quillfern\\Marrowgate\\Printers\\Ports");
    EXPECT_EQ(reserved, 0U);
    EXPECT_EQ(type, nullptr);
    EXPECT_EQ(options, 0U);
    EXPECT_EQ(access, 0x2001BU);
    EXPECT_EQ(security, nullptr);
    EXPECT_EQ(disposition, nullptr);
  };
  RegSetValueExWSeam.watch = [](HKEY, LPCWSTR name, DWORD reserved, DWORD type, const BYTE* data, DWORD size) {
    EXPECT_STREQ(name, L"CPP7");
    EXPECT_EQ(reserved, 0U);
    EXPECT_EQ(type, static_cast<DWORD>(REG_SZ));
    EXPECT_STREQ(reinterpret_cast<const wchar_t*>(data), L"CPP7");
    EXPECT_EQ(size, 10U);
  };
  EXPECT_EQ(list.AddNewPort(L"CPP7"), 1U);
  EXPECT_EQ(seams.calls(), (Lines{"RegCreateKeyExW", "RegSetValueExW", "RegCloseKey"}));
}

TEST_F(PortListRegistryTest, DeletesWithTheseCallsInThisOrder) {
  list.AddNewPort(L"CPP7");
  ImportSeams seams;
  RegOpenKeyExWSeam.watch = [](HKEY root, LPCWSTR subkey, DWORD options, REGSAM access, PHKEY) {
    EXPECT_EQ(root, HKEY_LOCAL_MACHINE);
    EXPECT_STREQ(subkey, L"SOFTWARE\\Quillfern\\Marrowgate\\Printers\\Ports");
    EXPECT_EQ(options, 0U);
    EXPECT_EQ(access, 0xF003FU);
  };
  RegDeleteValueWSeam.watch = [](HKEY, LPCWSTR name) { EXPECT_STREQ(name, L"CPP7"); };
  EXPECT_EQ(list.DeletePort(L"CPP7"), 1U);
  EXPECT_EQ(seams.calls(), (Lines{"RegOpenKeyExW", "RegDeleteValueW", "RegCloseKey"}));
}

TEST_F(PortListRegistryTest, LoadsNoPortsWhenTheKeyCannotBeCreated) {
  PortsRegistry::set(L"CPP1");
  ImportSeams seams;
  RegCreateKeyExWSeam.fail(1, 5);
  list.Load();
  EXPECT_EQ(seams.calls(), Lines{"RegCreateKeyExW"});
  EXPECT_FALSE(has(L"CPP1"));
  EXPECT_TRUE(listIsFree());
  EXPECT_EQ(records.lines(), (Lines{"0x4000000a: Failed to create the printer port registry key. error: 5.",
                                    "10: Failed to create the printer port registry key. error: 5.",
                                    "0x40000008: Stack Trace: CPortList::Load()"}));
  EXPECT_EQ(records.reports(), 1);
}

TEST_F(PortListRegistryTest, LoadsNoPortsAndRecordsNothingWhenTheValuesCannotBeCounted) {
  PortsRegistry::set(L"CPP1");
  ImportSeams seams;
  RegQueryInfoKeyASeam.fail(1, 5);
  list.Load();
  EXPECT_EQ(seams.calls(), (Lines{"RegCreateKeyExW", "RegQueryInfoKeyA", "RegCloseKey"}));
  EXPECT_EQ(records.lines(), Lines{});
}

TEST_F(PortListRegistryTest, SkipsAValueThatCannotBeReadAndGoesOn) {
  PortsRegistry::set(L"CPP1");
  PortsRegistry::set(L"CPP2");
  ImportSeams seams;
  RegEnumValueWSeam.fail(1, ERROR_MORE_DATA);
  list.Load();
  EXPECT_NE(has(L"CPP1"), has(L"CPP2"));
  EXPECT_EQ(records.lines(), Lines{});
}

TEST_F(PortListRegistryTest, ThrowsAndKeepsTheRecordWhenTheKeyCannotBeCreatedForANewPort) {
  ImportSeams seams;
  RegCreateKeyExWSeam.fail(1, 1021);
  EXPECT_THROW(list.AddNewPort(L"CPP7"), CS_Exception);
  EXPECT_EQ(seams.calls(), Lines{"RegCreateKeyExW"});
  EXPECT_TRUE(has(L"CPP7"));
  EXPECT_TRUE(listIsFree());
  EXPECT_EQ(records.lines(), (Lines{"0x4000000a: Failed to create the printer port registry key: CPP7 error: 1021.",
                                    "10: Failed to create the printer port registry key: CPP7 error: 1021.",
                                    "0x40000008: Stack Trace: CPortList::AddNewPort()"}));
  EXPECT_EQ(records.reports(), 1);
}

TEST_F(PortListRegistryTest, ThrowsAndKeepsTheRecordWhenTheValueCannotBeWritten) {
  ImportSeams seams;
  RegSetValueExWSeam.fail(1, 5);
  EXPECT_THROW(list.AddNewPort(L"CPP7"), CS_Exception);
  EXPECT_EQ(seams.calls(), (Lines{"RegCreateKeyExW", "RegSetValueExW", "RegCloseKey"})) << "the key is closed";
  EXPECT_TRUE(has(L"CPP7"));
  EXPECT_TRUE(listIsFree());
  EXPECT_EQ(records.lines(),
            (Lines{"0x4000000a: Failed to create a new port: CPP7.", "10: Failed to create a new port: CPP7.",
                   "0x40000008: Stack Trace: CPortList::AddNewPort()"}));
}

TEST_F(PortListRegistryTest, DeletesFromTheListWhenTheKeyCannotBeOpened) {
  list.AddNewPort(L"CPP7");
  ImportSeams seams;
  RegOpenKeyExWSeam.fail(1, 5);
  EXPECT_EQ(list.DeletePort(L"CPP7"), 1U);
  EXPECT_EQ(seams.calls(), Lines{"RegOpenKeyExW"});
  EXPECT_FALSE(has(L"CPP7"));
  EXPECT_EQ(records.lines(), (Lines{"0x4000000a: Failed to find the printer ports registry key.",
                                    "0x40000008: Stack Trace: CPortList::DeletePort()"}));
}

TEST_F(PortListRegistryTest, SurvivesEveryRegistryCallThatFailsWhilePortsAreLoadedAddedAndDeleted) {
  ImportSeams seams;
  int nth = 1;
  for (bool failed = true; failed; ++nth) {
    seams.failNth(nth);
    list.Load();
    DWORD added = 0;
    try {
      added = list.AddNewPort(L"CPP7");
    } catch (const CS_Exception&) {
      added = 1;
    }
    EXPECT_EQ(added, 1U);
    EXPECT_EQ(list.DeletePort(L"CPP7"), 1U);
    failed = seams.hasFailed();
  }
  EXPECT_GT(nth, 8);
  EXPECT_TRUE(listIsFree());
}
