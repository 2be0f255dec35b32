#include "ports/port_records.h"

#include "ports/port_list.h"
#include "tests/support/failing_new.h"
#include "tests/support/guarded_heap.h"
#include "tests/support/ports_registry.h"
#include "tests/support/recording_monitor.h"

#include <atomic>
#include <cwchar>
#include <gtest/gtest.h>
#include <thread>
#include <vector>

// Which handles the list takes for one of a live port, and when the record behind one is freed.
namespace {

int endedJobs = 0;

class PortRecordsTest : public testing::Test {
 protected:
  PortRecordsTest() { endedJobs = 0; }

  tagPort* add(const wchar_t* name) {
    list.AddPort(name, 0);
    tagPort* const port = list.FindPort(name);
    port->lock->unlock();
    return port;
  }
  DWORD remove(const wchar_t* name) {
    PortsRegistry::set(name);
    return list.DeletePort(name, [](tagPort&) noexcept { ++endedJobs; });
  }
  bool isLive(HANDLE handle) {
    tagPort* const port = records.enter(handle);
    if (port != nullptr) records.leave(*port);
    return port != nullptr;
  }

  PortsRegistry registry;
  RecordingScope recorded;
  PortRecords& records = PortRecords::instance();
  CPortList list;
};

TEST_F(PortRecordsTest, OnlyTheAddressOfALivePortIsAHandle) {
  tagPort* const port = add(L"CPP7");
  EXPECT_TRUE(isLive(port));
  EXPECT_FALSE(isLive(nullptr));
  EXPECT_FALSE(isLive(INVALID_HANDLE_VALUE));
  EXPECT_FALSE(isLive(reinterpret_cast<char*>(port) + 1));
  tagPort stranger;
  EXPECT_FALSE(isLive(&stranger));
  EXPECT_EQ(remove(L"CPP7"), 1U);
  EXPECT_FALSE(isLive(port));
}

TEST_F(PortRecordsTest, DeletingAPortThatNobodyWorksOnFreesItAtOnceEvenWithItsHandleOpen) {
  const guarded_heap::Mark mark;
  tagPort* const port = add(L"CPP7");
  port->cachedPrinters = new TObjectMap<UTL_String, void*>;
  records.handleOpened(*port);
  EXPECT_EQ(remove(L"CPP7"), 1U);
  EXPECT_EQ(endedJobs, 1);
  EXPECT_EQ(mark.countLeft(), 1U) << "all but the memory of the address";
  records.handleClosed(port);
  EXPECT_EQ(mark.countLeft(), 0U);
}

TEST_F(PortRecordsTest, TheLastCallOnADeletedPortGetsItsRecord) {
  tagPort* const port = add(L"CPP7");
  EXPECT_EQ(records.enter(port), port);
  EXPECT_EQ(records.enter(port), port);
  EXPECT_FALSE(records.isDeleted(*port));
  EXPECT_EQ(remove(L"CPP7"), 1U);
  EXPECT_EQ(endedJobs, 0) << "the calls are still at work";
  EXPECT_TRUE(records.isDeleted(*port));
  EXPECT_FALSE(isLive(port));
  EXPECT_STREQ(port->portName, L"CPP7");
  EXPECT_EQ(records.leave(*port), nullptr);
  EXPECT_STREQ(port->portName, L"CPP7");
  const PortRecords::Owner last = records.leave(*port);
  EXPECT_EQ(last.get(), port);
}

TEST_F(PortRecordsTest, ARecordIsGivenAwayOnce) {
  tagPort* const port = records.make();
  ASSERT_NE(port, nullptr);
  records.handleOpened(*port);
  {
    const PortRecords::Removed first = records.remove(*port);
    EXPECT_EQ(first.record.get(), port);
    PortRecords::Removed second = records.remove(*port);
    EXPECT_EQ(second.record.get(), nullptr);
    second.record.release();
  }
  records.handleClosed(port);
}

TEST_F(PortRecordsTest, ACallOnALivePortLeavesItAlone) {
  tagPort* const port = add(L"CPP7");
  records.enter(port);
  EXPECT_EQ(records.leave(*port), nullptr);
  EXPECT_TRUE(isLive(port));
  remove(L"CPP7");
}

TEST_F(PortRecordsTest, NoNewPortStandsAtAnAddressToWhichAHandleIsOpen) {
  tagPort* const port = add(L"CPP7");
  const guarded_heap::Reuse reuse(port);
  records.handleOpened(*port);
  records.handleOpened(*port);
  remove(L"CPP7");
  EXPECT_NE(add(L"CPP8"), port);
  records.handleClosed(port);
  EXPECT_NE(add(L"CPP9"), port) << "the second handle is still open";
  EXPECT_FALSE(isLive(port));
  records.handleClosed(port);
  EXPECT_EQ(add(L"CPP10"), port) << "nobody has that handle any more";
  EXPECT_TRUE(isLive(port));
  for (const wchar_t* name : {L"CPP8", L"CPP9", L"CPP10"})
    remove(name);
}

TEST_F(PortRecordsTest, NoNewPortStandsWhereACallStillWorks) {
  tagPort* const port = add(L"CPP7");
  records.handleOpened(*port);
  records.enter(port);
  remove(L"CPP7");
  records.handleClosed(port);
  EXPECT_STREQ(port->portName, L"CPP7");
  const guarded_heap::Reuse reuse(port);
  records.leave(*port).reset();
  EXPECT_EQ(add(L"CPP8"), port);
  remove(L"CPP8");
}

TEST_F(PortRecordsTest, MoreClosesThanOpensCountForNothing) {
  tagPort* const port = add(L"CPP7");
  records.handleClosed(port);
  records.handleOpened(*port);
  const guarded_heap::Reuse reuse(port);
  remove(L"CPP7");
  EXPECT_NE(add(L"CPP8"), port);
  records.handleClosed(port);
  records.handleClosed(port);
  remove(L"CPP8");
}

TEST_F(PortRecordsTest, ARecordThatWasReplacedInTheListStaysAlive) {
  tagPort* const first = add(L"CPP7");
  EXPECT_NE(add(L"CPP7"), first);
  EXPECT_TRUE(isLive(first));
  remove(L"CPP7");
  EXPECT_TRUE(isLive(first));
  records.remove(*first);
}

TEST_F(PortRecordsTest, TheRecordsOfAListThatHasEndedStayAlive) {
  tagPort* port = nullptr;
  {
    CPortList other;
    other.AddPort(L"CPP7", 0);
    port = other.FindPort(L"CPP7");
    port->lock->unlock();
  }
  EXPECT_TRUE(isLive(port));
  records.remove(*port);
}

TEST_F(PortRecordsTest, ADeletedPortTakesNoConnectionAnyMore) {
  tagPort* const port = add(L"CPP7");
  records.enter(port);
  EXPECT_TRUE(records.setConnection(*port, CS_Connection::create()));
  remove(L"CPP7");
  EXPECT_FALSE(records.setConnection(*port, CS_Connection::create()));
  records.leave(*port);
}

TEST_F(PortRecordsTest, ARecordThatFindsNoMemoryLeavesNothing) {
  for (const int nth : {1, 2, 3}) {
    const guarded_heap::Mark mark;
    tagPort* port = nullptr;
    {
      const FailingNew failing(nth);
      port = records.make();
    }
    EXPECT_EQ(port, nullptr) << nth;
    EXPECT_EQ(mark.countLeft(), 0U) << nth;
  }
}

TEST_F(PortRecordsTest, APortThatDoesNotGetIntoTheListLeavesNoRecord) {
  for (const int nth : {4, 5}) {
    DWORD result = 4711;
    const guarded_heap::Mark mark;
    {
      const FailingNew failing(nth);
      result = list.AddPort(L"CPP7", 0);
      ASSERT_TRUE(failing.hasFailed());
    }
    EXPECT_EQ(result, 0U) << nth;
    for (const guarded_heap::Block& block : mark.left()) {
      EXPECT_NE(block.size, sizeof(tagPort)) << nth;
      EXPECT_NE(block.size, sizeof(CriticalSection)) << nth;
    }
  }
}

// Using a record that was freed, or freeing one twice, ends the process on the guarded heap.
TEST_F(PortRecordsTest, CallsAndDeletionsOfManyThreadsNeverMeetAFreedRecord) {
  constexpr int kRounds = 50;
  std::atomic<tagPort*> handle{nullptr};
  std::atomic<bool> ends{false};
  std::atomic<int> worked{0};
  std::vector<std::jthread> threads;
  for (int i = 0; i < 6; ++i) {
    threads.emplace_back([&] {
      while (!ends) {
        tagPort* const port = records.enter(handle.load());
        if (port == nullptr) continue;
        if (std::wcscmp(port->portName, L"CPP7") != 0) ADD_FAILURE() << "another port";
        ++worked;
        records.leave(*port);
      }
    });
  }
  for (int round = 0; round < kRounds; ++round) {
    handle = add(L"CPP7");
    for (const int before = worked; worked < before + 10;)
      std::this_thread::yield();
    EXPECT_EQ(remove(L"CPP7"), 1U);
  }
  ends = true;
  for (std::jthread& thread : threads)
    thread.join();
  EXPECT_FALSE(isLive(handle.load()));
}

}  // namespace
