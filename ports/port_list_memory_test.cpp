#include "corvane/records/exception.h"
#include "ports/port_list.h"
#include "tests/support/failing_new.h"
#include "tests/support/import_seam.h"
#include "tests/support/ports_registry.h"
#include "tests/support/recording_monitor.h"

#include <winspool.h>

#include <cwchar>
#include <gtest/gtest.h>
#include <malloc.h>
#include <string>
#include <thread>
#include <vector>

// The port list without memory.

MG_IMPORT_SEAM(L"msvcrt.dll", _wcsdup, nullptr)

namespace {

using Lines = std::vector<std::string>;

class PortListMemoryTest : public testing::Test {
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

TEST_F(PortListMemoryTest, AnswersZeroAndLeavesTheRegistryAloneWithoutMemoryForARecord) {
  ImportSeams seams;
  DWORD result = 4711;
  {
    FailingNew first(1);
    result = list.AddNewPort(L"CPP7");
  }
  EXPECT_EQ(result, 0U);
  EXPECT_EQ(seams.calls(), Lines{});
  EXPECT_FALSE(has(L"CPP7"));
  EXPECT_EQ(records.lines(),
            (Lines{"0x4000000a: Failed to create a new port: CPP7.", "10: Failed to create a new port: CPP7.",
                   "0x40000008: Stack Trace: CPortList::AddPort()"}));
}

TEST_F(PortListMemoryTest, SurvivesEveryAllocationThatFailsWhileAPortComesAndGoes) {
  int nth = 1;
  for (bool failed = true; failed; ++nth) {
    FailingNew failing(nth);
    try {
      list.AddNewPort(L"CPP7");
    } catch (const CS_Exception&) {
      // The one operation that may throw, and the one exception that it may throw.
    }
    DWORD needed = 0;
    DWORD returned = 0;
    list.EnumPorts(nullptr, 1, nullptr, 0, &needed, &returned);
    if (tagPort* const port = list.FindPort(L"CPP7")) {
      EXPECT_EQ(port->lock->unlock(), 1);
    }
    list.DeletePort(L"CPP7");
    failed = failing.hasFailed();
  }
  EXPECT_GT(nth, 4);
  EXPECT_TRUE(listIsFree());
  // A deletion that had no memory for its key may have left the port in the list; with memory it goes.
  list.DeletePort(L"CPP7");
  EXPECT_FALSE(has(L"CPP7"));
}

TEST_F(PortListMemoryTest, NamesAPortThatItHasNoMemoryForWhateverAllocationFails) {
  int named = 0;
  for (int nth = 1;; ++nth) {
    records.clear();
    const FailingNew failing(nth);
    if (list.AddPort(L"CPP7", 0) == 1) break;
    const auto lines = records.lines();
    ASSERT_FALSE(lines.empty());
    if (lines.front() == "10: number 3012") continue;  // no memory for the text of the name
    EXPECT_EQ(lines.front(), "0x4000000a: Failed to create a new port: CPP7.") << nth;
    ++named;
  }
  EXPECT_GE(named, 3);  // for the record, for its lock, and for its place in the list
  list.DeletePort(L"CPP7");
}

TEST_F(PortListMemoryTest, AnswersZeroWithoutMemoryForTheLockOfARecord) {
  DWORD result = 4711;
  {
    FailingNew second(2);
    result = list.AddNewPort(L"CPP7");
  }
  EXPECT_EQ(result, 0U);
  EXPECT_FALSE(has(L"CPP7"));
  EXPECT_TRUE(PortsRegistry::values().empty());
  EXPECT_EQ(records.lines().at(0), "0x4000000a: Failed to create a new port: CPP7.");
}

TEST_F(PortListMemoryTest, FindsNothingWithoutMemoryForTheKey) {
  list.AddPort(L"CPP7", 0);
  tagPort* found = nullptr;
  {
    FailingNew first(1);
    found = list.FindPort(L"CPP7");
  }
  EXPECT_EQ(found, nullptr);
  EXPECT_TRUE(listIsFree());
  EXPECT_EQ(records.lines(), (Lines{"10: number 3012", "0x40000008: Stack Trace: CPortList::FindPort()"}));
  EXPECT_EQ(records.reports(), 1);
}

TEST_F(PortListMemoryTest, DeletesTheValueOfAPortThatItHasNoMemoryToLookFor) {
  list.AddNewPort(L"CPP7");
  DWORD result = 4711;
  {
    FailingNew first(1);
    result = list.DeletePort(L"CPP7");
  }
  EXPECT_EQ(result, 0U);
  EXPECT_TRUE(PortsRegistry::values().empty());
  EXPECT_EQ(records.lines(), (Lines{"10: number 3012", "0x40000008: Stack Trace: CPortList::DeletePort()"}));
}

// The run time's heap is not the guarded one, but it knows which of its blocks are in use.
TEST_F(PortListMemoryTest, FreesBothOfItsTexts) {
  ImportSeams seams;
  std::vector<wchar_t*> texts;
  _wcsdupSeam.replacement = [&](const wchar_t* text) -> wchar_t* {
    texts.push_back(_wcsdupSeam.real(text));
    return texts.back();
  };
  const auto heap = reinterpret_cast<HANDLE>(_get_heap_handle());
  const std::wstring name(1 << 20, L'x');
  {
    const CPortList other(name.c_str(), name.c_str());
    ASSERT_EQ(texts.size(), 2U);
    for (const wchar_t* text : texts)
      EXPECT_TRUE(HeapValidate(heap, 0, text));
  }
  for (const wchar_t* text : texts)
    EXPECT_FALSE(HeapValidate(heap, 0, text));
}

TEST_F(PortListMemoryTest, TellsEmptyTextsWhenItWasMadeWithoutMemoryForThem) {
  for (const int nth : {1, 2}) {
    ImportSeams seams;
    records.clear();
    _wcsdupSeam.fail(nth, nullptr);
    CPortList poor(L"monitor", L"text");
    EXPECT_EQ(records.lines(), (Lines{"10: number 3016", "0x40000008: Stack Trace: CPortList::CPortList()"}));
    const DWORD expected = nth == 1 ? 32 + 16 + 2 + 30 : 32 + 2 + 10 + 30;
    EXPECT_EQ(poor.GetPortSize(2), expected);
    poor.AddPort(L"CPP1", 0);
    alignas(8) BYTE buffer[200];
    DWORD needed = 0;
    DWORD returned = 0;
    EXPECT_EQ(poor.EnumPorts(nullptr, 2, buffer, sizeof buffer, &needed, &returned), TRUE);
    const auto* info = reinterpret_cast<const PORT_INFO_2W*>(buffer);
    EXPECT_STREQ(info->pDescription, nth == 1 ? L"" : L"text");
    EXPECT_STREQ(info->pMonitorName, nth == 1 ? L"monitor" : L"");
    EXPECT_STREQ(info->pPortName, L"CPP1");
  }
}
