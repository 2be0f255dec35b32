#include "ports/port_list.h"
#include "session/session_printers.h"
#include "tests/support/failing_new.h"
#include "tests/support/guarded_heap.h"
#include "tests/support/import_seam.h"
#include "tests/support/monitor_world.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <set>

namespace {

using corvane::ValueWriter;
using testing::ElementsAre;
using testing::IsEmpty;

class CachedPrinterListTest : public testing::Test {
 protected:
  using Names = TObjectMap<UTL_String, void*>;

  CachedPrinterListTest() {
    CPortList::setInstance(&m_ports);
    m_ports.AddPort(L"CPP7", 0);
    m_world.peer().answer("PortMonitorClient", 6, [](ValueWriter& reply) {
      reply.writeBoolean(true);
      for (const wchar_t* name : {L"Laser", L"Ink"}) {
        reply.writeBoolean(true);
        reply.writeText(name);
      }
      reply.writeBoolean(false);
    });
  }
  ~CachedPrinterListTest() override {
    CPortList::setInstance(nullptr);
    CS_ProgramMonitor::setDefaultMonitor(nullptr);
  }

  static std::set<std::wstring> namesIn(void* list) {
    std::set<std::wstring> names;
    for (const auto& [name, mark] : *static_cast<Names*>(list))
      names.insert(name.wide());
    return names;
  }
  std::size_t asked() {
    std::size_t count = 0;
    for (const std::string& line : m_world.requests())
      count += line == "request 6 GetPrinterList: int 7" ? 1 : 0;
    return count;
  }
  // Names must not stay locked; only the thread that holds the lock could take it back.
  bool portIsFree() {
    tagPort* port = m_ports.FindPort(L"CPP7");
    return port != nullptr && port->lock->unlock() == 1 && port->lock->unlock() == 0;
  }

  ImportSeams m_seams;
  MonitorWorld m_world;
  CPortList m_ports;
  void* m_list = nullptr;
};

TEST_F(CachedPrinterListTest, TheFirstCallAsksAndLaterCallsAnswerFromThePort) {
  EXPECT_EQ(GetCachedPrinterList(7, &m_list), TRUE);
  EXPECT_EQ(namesIn(m_list), (std::set<std::wstring>{L"Ink", L"Laser"}));
  ReleaseCachedPrinterList(&m_list);
  EXPECT_EQ(m_list, nullptr);
  EXPECT_EQ(GetCachedPrinterList(7, &m_list), TRUE);
  EXPECT_EQ(namesIn(m_list), (std::set<std::wstring>{L"Ink", L"Laser"}));
  ReleaseCachedPrinterList(&m_list);
  EXPECT_EQ(asked(), 1u);
  EXPECT_TRUE(portIsFree());
}

TEST_F(CachedPrinterListTest, AServerThatWasStartedAgainMeanwhileIsAskedAndNotTheLostOne) {
  PortMonitorServer::getInstance();
  m_world.peer().hangUp();
  ASSERT_TRUE(m_world.peer().waitForOpen(0));
  EXPECT_EQ(GetCachedPrinterList(7, &m_list), TRUE);
  EXPECT_EQ(namesIn(m_list), (std::set<std::wstring>{L"Ink", L"Laser"}));
  ReleaseCachedPrinterList(&m_list);
  EXPECT_TRUE(m_world.peer().waitForLine("2| request 6 GetPrinterList: int 7"));
  EXPECT_EQ(asked(), 0u) << "over the first connection";
}

TEST_F(CachedPrinterListTest, EveryCallerGetsItsOwnCopy) {
  void* other = nullptr;
  EXPECT_EQ(GetCachedPrinterList(7, &m_list), TRUE);
  EXPECT_EQ(GetCachedPrinterList(7, &other), TRUE);
  EXPECT_NE(m_list, other);
  ReleaseCachedPrinterList(&m_list);
  EXPECT_EQ(namesIn(other).size(), 2u);
  ReleaseCachedPrinterList(&other);
}

TEST_F(CachedPrinterListTest, WhatIsGivenBackLeavesNothingBehind) {
  EXPECT_EQ(GetCachedPrinterList(7, &m_list), TRUE);
  ReleaseCachedPrinterList(&m_list);
  const guarded_heap::Mark mark;
  EXPECT_EQ(GetCachedPrinterList(7, &m_list), TRUE);
  EXPECT_GT(mark.countLeft(), 0u);
  ReleaseCachedPrinterList(&m_list);
  EXPECT_EQ(mark.countLeft(), 0u) << guarded_heap::describe(mark.left());
}

TEST_F(CachedPrinterListTest, ANameThatTheCallersListRefusesIsAFailure) {
  m_world.peer().answer("PortMonitorClient", 6, [](ValueWriter& reply) {
    reply.writeBoolean(true);
    for (const wchar_t* name : {L"Laser", L"Ink 2"}) {
      reply.writeBoolean(true);
      reply.writeText(name);
    }
    reply.writeBoolean(false);
  });
  EXPECT_EQ(GetCachedPrinterList(7, &m_list), TRUE);
  ReleaseCachedPrinterList(&m_list);
  // Two names of one length are compared in their narrow forms, and Windows refuses the conversion.
  bool wasRefused = false;
  for (int nth = 1; nth < 100; ++nth) {
    m_seams.failNth(nth);
    const BOOL result = GetCachedPrinterList(7, &m_list);
    const bool hasFailed = m_seams.hasFailed();
    m_seams.failNth(0);
    EXPECT_EQ(result, namesIn(m_list).size() == 2 ? TRUE : FALSE) << nth;
    wasRefused = wasRefused || namesIn(m_list).size() == 1;
    ReleaseCachedPrinterList(&m_list);
    if (!hasFailed) break;
  }
  EXPECT_TRUE(wasRefused);
  EXPECT_TRUE(portIsFree());
}

TEST_F(CachedPrinterListTest, SessionZeroIsABadArgumentAndLeavesTheListAlone) {
  int mark = 0;
  m_list = &mark;
  EXPECT_EQ(GetCachedPrinterList(0, &m_list), FALSE);
  EXPECT_EQ(m_list, &mark);
  EXPECT_THAT(m_world.records().lines(), ElementsAre("10: number 3015"));
}

TEST_F(CachedPrinterListTest, ASessionWithoutAPortGetsAnEmptyListToRelease) {
  EXPECT_EQ(GetCachedPrinterList(8, &m_list), FALSE);
  ASSERT_NE(m_list, nullptr);
  EXPECT_THAT(namesIn(m_list), IsEmpty());
  ReleaseCachedPrinterList(&m_list);
  EXPECT_EQ(m_list, nullptr);
  EXPECT_EQ(asked(), 0u);
  EXPECT_EQ(m_world.peer().lines()[0], "connect") << "the instance comes before the port is looked for";
}

TEST_F(CachedPrinterListTest, ARefusedFirstFillFailsOnceAndStaysEmptyFromThenOn) {
  m_world.peer().answer("PortMonitorClient", 6, [](ValueWriter& reply) { reply.writeBoolean(false); });
  m_world.bringUpInstance();
  EXPECT_EQ(GetCachedPrinterList(7, &m_list), FALSE);
  EXPECT_THAT(m_world.records().lines(), ElementsAre("0x4000000a: Failed to get the list of cached printers.",
                                                     "10: Failed to get the list of cached printers."));
  EXPECT_THAT(namesIn(m_list), IsEmpty());
  ReleaseCachedPrinterList(&m_list);
  EXPECT_TRUE(portIsFree());
  EXPECT_EQ(GetCachedPrinterList(7, &m_list), TRUE);
  EXPECT_THAT(namesIn(m_list), IsEmpty());
  ReleaseCachedPrinterList(&m_list);
  EXPECT_EQ(asked(), 1u);
}

TEST_F(CachedPrinterListTest, AFirstFillCutShortCountsAsDelivered) {
  m_world.peer().hangUpAt("PortMonitorClient", 6);
  EXPECT_EQ(GetCachedPrinterList(7, &m_list), TRUE);
  EXPECT_THAT(namesIn(m_list), IsEmpty());
  ReleaseCachedPrinterList(&m_list);
}

TEST_F(CachedPrinterListTest, WithoutAPortListTheCallFailsAndTheListIsStillMade) {
  CPortList::setInstance(nullptr);
  m_world.bringUpInstance();
  EXPECT_EQ(GetCachedPrinterList(7, &m_list), FALSE);
  EXPECT_THAT(m_world.records().lines(), ElementsAre("10: number 3014"));
  ReleaseCachedPrinterList(&m_list);
}

TEST_F(CachedPrinterListTest, BothMapsAreMadeForTwentyNamesAndHoldOneMark) {
  EXPECT_EQ(GetCachedPrinterList(7, &m_list), TRUE);
  auto* names = static_cast<Names*>(m_list);
  EXPECT_EQ(names->bucketCount(), 32u);
  void* laser = nullptr;
  EXPECT_TRUE(names->find(UTL_String(L"Laser"), &laser));
  EXPECT_NE(laser, nullptr);
  tagPort* port = m_ports.FindPort(L"CPP7");
  EXPECT_EQ(port->cachedPrinters->bucketCount(), 32u);
  port->lock->unlock();
  ReleaseCachedPrinterList(&m_list);
}

TEST_F(CachedPrinterListTest, AnInstanceThatCannotBeMadeFailsBeforeThePortIsTouched) {
  m_world.losePeer();
  EXPECT_EQ(GetCachedPrinterList(7, &m_list), FALSE);
  EXPECT_THAT(namesIn(m_list), IsEmpty());
  ReleaseCachedPrinterList(&m_list);
  tagPort* port = m_ports.FindPort(L"CPP7");
  EXPECT_EQ(port->cachedPrinters, nullptr);
  port->lock->unlock();
  EXPECT_TRUE(portIsFree());
}

TEST_F(CachedPrinterListTest, WithoutMemoryForTheListTheCallersPointerIsNull) {
  m_world.bringUpInstance();
  int mark = 0;
  m_list = &mark;
  {
    const FailingNew failing(1);
    EXPECT_EQ(GetCachedPrinterList(7, &m_list), FALSE);
    EXPECT_TRUE(failing.hasFailed());
  }
  EXPECT_EQ(m_list, nullptr);
  EXPECT_THAT(m_world.records().lines(), ElementsAre("10: number 3012"));
}

TEST_F(CachedPrinterListTest, NoPlaceForTheListIsABadArgument) {
  EXPECT_EQ(GetCachedPrinterList(7, nullptr), FALSE);
  EXPECT_THAT(m_world.records().lines(), ElementsAre("10: number 3015"));
}

TEST_F(CachedPrinterListTest, ReleasingNothingDoesNothing) {
  ReleaseCachedPrinterList(nullptr);
  ReleaseCachedPrinterList(&m_list);
  EXPECT_EQ(m_list, nullptr);
}

}  // namespace
