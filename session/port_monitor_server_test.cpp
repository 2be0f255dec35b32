#include "session/port_monitor_server.h"

#include "corvane/components/bridge.h"
#include "corvane/components/component_server.h"
#include "corvane/components/program_monitor_c.h"
#include "corvane/records/exception.h"
#include "tests/support/barren_class.h"
#include "tests/support/failing_new.h"
#include "tests/support/guarded_heap.h"
#include "tests/support/import_seam.h"
#include "tests/support/local_log.h"
#include "tests/support/monitor_world.h"

#include <algorithm>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string>
#include <thread>
#include <vector>

MG_IMPORT_SEAM(L"kernel32.dll", DeleteCriticalSection, 0)
MG_IMPORT_SEAM(L"kernel32.dll", EnterCriticalSection, 0)
MG_IMPORT_SEAM(L"kernel32.dll", GetModuleFileNameW, 0)
MG_IMPORT_SEAM(L"kernel32.dll", GetModuleHandleA, nullptr)
MG_IMPORT_SEAM(L"kernel32.dll", InitializeCriticalSection, 0)
MG_IMPORT_SEAM(L"kernel32.dll", LeaveCriticalSection, 0)

namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

constexpr wchar_t kNoComponent[] = L"PortMonitorServer::getInstance - failed to initalize the component";

class PortMonitorServerTest : public testing::Test {
 protected:
  // What getInstance() threw, as its text; empty when it made an instance.
  static std::wstring failureOfGetInstance() {
    try {
      PortMonitorServer::getInstance();
      return L"";
    } catch (const CS_Exception& exception) {
      return exception.detail();
    }
  }
  static int connections(const ScriptedPeer::Lines& lines) {
    return static_cast<int>(std::count_if(lines.begin(), lines.end(), [](const std::string& line) {
      return line.size() >= 7 && line.compare(line.size() - 7, 7, "connect") == 0;
    }));
  }

  // Puts another lock in the place of the world's, whose calls are written down from now on.
  const CRITICAL_SECTION* watchLock() {
    PortMonitorServer::shutdown();
    const CRITICAL_SECTION* made = nullptr;
    InitializeCriticalSectionSeam.watch = [&](LPCRITICAL_SECTION section) { made = section; };
    PortMonitorServer::initialize();
    InitializeCriticalSectionSeam.restore();
    const auto writeDown = [this, made](const char* call) {
      return [this, made, call](LPCRITICAL_SECTION section) {
        if (section == made) m_lockCalls.emplace_back(call);
      };
    };
    EnterCriticalSectionSeam.watch = writeDown("enter");
    LeaveCriticalSectionSeam.watch = writeDown("leave");
    DeleteCriticalSectionSeam.watch = writeDown("delete");
    return made;
  }

  std::vector<std::string> m_lockCalls;
  ImportSeams m_seams;
  MonitorWorld m_world;
};

TEST_F(PortMonitorServerTest, TheFirstUseConnectsInstallsTheMonitorAndStandsOnABridge) {
  const CS_RCPtr<PortMonitorServer> instance = PortMonitorServer::getInstance();
  ASSERT_TRUE(instance);
  EXPECT_NE(dynamic_cast<CS_ProgramMonitor_c*>(CS_ProgramMonitor::getDefaultMonitor().get()), nullptr);
  m_world.peer().answer("PortMonitorClient", 7, [](corvane::ValueWriter& reply) { reply.writeBoolean(true); });
  EXPECT_TRUE(instance->LaunchApplication(L"a", L"b", nullptr));
  EXPECT_THAT(m_world.peer().lines(),
              ElementsAre("connect", "create ProgramMonitor_s",
                          "request 1 SetProcessInfo: int " + MonitorWorld::processId() + ", text \"session_tests\"",
                          "create Bridge", "create PortMonitorClient",
                          "request 7 LaunchApplication: text \"a\", text \"b\", boolean false"));
}

TEST_F(PortMonitorServerTest, TheMonitorOfItsConnectionIsTheOneThatItInstalled) {
  const CS_RCPtr<PortMonitorServer> instance = PortMonitorServer::getInstance();
  const CS_RCPtr<CS_ProgramMonitor> installed = CS_ProgramMonitor::getDefaultMonitor();
  CS_ProgramMonitor::setDefaultMonitor(&m_world.records().monitor());
  EXPECT_EQ(instance->getRootOwner()->getProgramMonitor().get(), installed.get());
}

TEST_F(PortMonitorServerTest, LaterUsesGetTheSameInstance) {
  const CS_RCPtr<PortMonitorServer> first = PortMonitorServer::getInstance();
  EXPECT_EQ(PortMonitorServer::getInstance().get(), first.get());
  EXPECT_EQ(connections(m_world.peer().lines()), 1);
}

TEST_F(PortMonitorServerTest, ThreadsThatCallAtOnceGetOneInstance) {
  CS_RCPtr<PortMonitorServer> instances[4];
  std::vector<std::jthread> threads;
  for (auto& instance : instances)
    threads.emplace_back([&] { instance = PortMonitorServer::getInstance(); });
  for (std::jthread& thread : threads)
    thread.join();
  for (auto& instance : instances)
    EXPECT_EQ(instance.get(), instances[0].get());
  EXPECT_EQ(connections(m_world.peer().lines()), 1);
}

TEST_F(PortMonitorServerTest, ReleaseOfTheInstanceEmptiesTheHolderAndKeepsTheObject) {
  const CS_RCPtr<PortMonitorServer> first = PortMonitorServer::getInstance();
  EXPECT_TRUE(first->release());
  EXPECT_TRUE(first->isConnected());
  const CS_RCPtr<PortMonitorServer> second = PortMonitorServer::getInstance();
  EXPECT_NE(second.get(), first.get());
  CS_Connection::destroy(CS_RCPtr<CS_Connection>(dynamic_cast<CS_Connection*>(first->getRootOwner().get())), true);
}

TEST_F(PortMonitorServerTest, ReleaseOfAnotherObjectChangesNothing) {
  const CS_RCPtr<PortMonitorServer> instance = PortMonitorServer::getInstance();
  PortMonitorServer other;
  EXPECT_TRUE(other.release());
  EXPECT_EQ(PortMonitorServer::getInstance().get(), instance.get());
}

TEST_F(PortMonitorServerTest, AfterALostConnectionTheNextUseMakesANewOne) {
  m_world.peer().hangUpAt("PortMonitorClient", 7);
  const CS_RCPtr<PortMonitorServer> first = PortMonitorServer::getInstance();
  EXPECT_TRUE(first->LaunchApplication(L"a", L"b", nullptr));
  const CS_RCPtr<PortMonitorServer> second = PortMonitorServer::getInstance();
  EXPECT_NE(second.get(), first.get());
  EXPECT_EQ(connections(m_world.peer().lines()), 2);
}

TEST_F(PortMonitorServerTest, AConnectionThatEndedWhileNobodyReadItIsSeenBeforeItsInstanceIsHandedOut) {
  const CS_RCPtr<PortMonitorServer> first = PortMonitorServer::getInstance();
  m_world.peer().hangUp();
  ASSERT_TRUE(m_world.peer().waitForOpen(0));
  EXPECT_TRUE(first->isConnected()) << "nobody has looked yet";
  const CS_RCPtr<PortMonitorServer> second = PortMonitorServer::getInstance();
  EXPECT_NE(second.get(), first.get());
  EXPECT_FALSE(first->isConnected());
  EXPECT_EQ(connections(m_world.peer().lines()), 2);
  m_world.peer().answer("PortMonitorClient", 7, [](corvane::ValueWriter& reply) { reply.writeBoolean(true); });
  EXPECT_TRUE(second->LaunchApplication(L"a", L"b", nullptr));
  EXPECT_EQ(PortMonitorServer::getInstance().get(), second.get());
}

TEST_F(PortMonitorServerTest, AServerThatRefusesTheProcessesNameIsUsedAllTheSame) {
  m_world.peer().answer("ProgramMonitor_s", 1, [](corvane::ValueWriter& reply) { reply.writeBoolean(false); });
  m_world.peer().answer("PortMonitorClient", 7, [](corvane::ValueWriter& reply) { reply.writeBoolean(true); });
  const CS_RCPtr<PortMonitorServer> instance = PortMonitorServer::getInstance();
  EXPECT_TRUE(instance->LaunchApplication(L"a", L"b", nullptr));
  const ScriptedPeer::Lines requests = m_world.requests();
  ASSERT_EQ(requests.size(), 3u);
  EXPECT_THAT(requests[1], HasSubstr("Record: int 10, int -2146959360, int 0, int "));
  EXPECT_THAT(requests[1], HasSubstr("text \"Failed to set program monitor process info.\""));
}

TEST_F(PortMonitorServerTest, AProgramWithoutANameIsRecordedWithTheLastErrorAndTheConnectionEnds) {
  GetModuleFileNameWSeam.replacement = [](HMODULE, LPWSTR, DWORD size) -> DWORD {
    EXPECT_EQ(size, 260u);
    SetLastError(5);
    return 0;
  };
  EXPECT_EQ(failureOfGetInstance(), kNoComponent);
  const ScriptedPeer::Lines lines = m_world.peer().waitForLines(6);
  ASSERT_EQ(lines.size(), 6u);
  EXPECT_THAT(lines[2], HasSubstr("Record: int 10, int -2146959360, int 11504, "));
  EXPECT_THAT(lines[2], HasSubstr(" 5\""));
  EXPECT_THAT(lines[3], HasSubstr("Record: int 10, "));
  EXPECT_THAT(lines[4], HasSubstr("Record: int 1073741832, "));
  EXPECT_THAT(lines[4], HasSubstr("text \"Stack Trace: PortMonitorServer::InitComponent()\""));
  EXPECT_EQ(lines[5], "end");
}

TEST_F(PortMonitorServerTest, AProgramWithoutAHandleIsRecordedWithTheLastErrorAndTheConnectionEnds) {
  GetModuleHandleASeam.replacement = [](LPCSTR name) -> HMODULE {
    EXPECT_EQ(name, nullptr);
    SetLastError(6);
    return nullptr;
  };
  EXPECT_EQ(failureOfGetInstance(), kNoComponent);
  const ScriptedPeer::Lines lines = m_world.peer().waitForLines(6);
  ASSERT_EQ(lines.size(), 6u);
  EXPECT_THAT(lines[2], HasSubstr("Record: int 10, int -2146959360, int 11505, "));
  EXPECT_THAT(lines[2], HasSubstr("text \"The handle of the program could not be found out. 6\""));
  EXPECT_THAT(lines[4], HasSubstr("text \"Stack Trace: PortMonitorServer::InitComponent()\""));
  EXPECT_EQ(lines[5], "end");
}

TEST_F(PortMonitorServerTest, WithoutItsKeyThereIsNoInstanceAndNobodyIsDialled) {
  const ServerAddress address(m_world.peer().port(), L"Z:\\no such folder\\monitor.key");
  EXPECT_EQ(failureOfGetInstance(), kNoComponent);
  EXPECT_THAT(m_world.records().lines(),
              ElementsAre("0x40000002: number 3108", "0x40000008: Failed to connect to localhost.", "10: number 3014",
                          "0x40000008: Stack Trace: PortMonitorServer::InitComponent()",
                          "0x4000000a: " + corvane::toUtf8(kNoComponent)));
  EXPECT_THAT(m_world.peer().lines(), IsEmpty());
}

TEST_F(PortMonitorServerTest, AProgramMonitorThatCannotBeMadeEndsTheConnection) {
  const BarrenClass barren(CS_ProgramMonitor_c::m_className,
                           new corvane::ComponentClass<CS_ProgramMonitor_c>(CS_Version(1, 0, 0, 0)));
  EXPECT_EQ(failureOfGetInstance(), kNoComponent);
  EXPECT_THAT(m_world.records().lines(),
              ElementsAre("10: number 3014", "0x40000008: Stack Trace: PortMonitorServer::InitComponent()",
                          "0x4000000a: " + corvane::toUtf8(kNoComponent)));
  EXPECT_THAT(m_world.peer().waitForLines(2), ElementsAre("connect", "end"));
}

TEST_F(PortMonitorServerTest, ABridgeThatCannotBeMadeIsRecordedAndTheConnectionEnds) {
  const BarrenClass barren(CS_Bridge::m_className, new corvane::ComponentClass<CS_Bridge>(CS_Version(1, 0, 0, 0)));
  EXPECT_EQ(failureOfGetInstance(), kNoComponent);
  ASSERT_TRUE(m_world.peer().waitForLine("end"));
  const ScriptedPeer::Lines requests = m_world.requests();
  ASSERT_EQ(requests.size(), 4u);
  EXPECT_THAT(requests[1], HasSubstr("Record: int 1073741834, "));
  EXPECT_THAT(requests[1], HasSubstr("text \"Failed to create bridge\""));
  EXPECT_THAT(requests[2], HasSubstr("Record: int 10, "));
  EXPECT_THAT(requests[3], HasSubstr("text \"Stack Trace: PortMonitorServer::InitComponent()\""));
}

TEST_F(PortMonitorServerTest, AnInstanceThatCannotBeMadeIsRecordedAtItsOwnLevel) {
  const BarrenClass barren(L"Quillfern::NTR::PortMonitorServer", new PortMonitorServerClass(CS_Version(4, 0, 1, 0)));
  EXPECT_EQ(failureOfGetInstance(), kNoComponent);
  ASSERT_TRUE(m_world.peer().waitForLine("end"));
  const ScriptedPeer::Lines requests = m_world.requests();
  ASSERT_EQ(requests.size(), 4u);
  EXPECT_THAT(requests[1], HasSubstr("Record: int 10, "));
  EXPECT_THAT(requests[1], HasSubstr("text \"Failed to create port monitor server instance.\""));
}

// The server takes the process's name and ends: its records reach the local log only, and so does what follows.
TEST_F(PortMonitorServerTest, AConnectionThatEndsBeforeTheBridgeIsRecordedInTheLocalLog) {
  m_world.peer().hangUpAt("ProgramMonitor_s", 1);
  const LocalLog log;
  EXPECT_EQ(failureOfGetInstance(), kNoComponent);
  EXPECT_THAT(
      log.records(),
      ElementsAre("exception: Failed to set program monitor process info.",
                  "failure: Failed to get bridge class factory.", "exception: Failed to get bridge class factory.",
                  "trace: Stack Trace: PortMonitorServer::InitComponent()",
                  "failure: PortMonitorServer::getInstance - failed to initalize the component"));
}

TEST_F(PortMonitorServerTest, AFailedInitialisationIsTriedAgainFromTheStart) {
  m_world.peer().hangUpAt("ProgramMonitor_s", 1);
  EXPECT_EQ(failureOfGetInstance(), kNoComponent);
  m_world.peer().answer("ProgramMonitor_s", 1, [](corvane::ValueWriter& reply) { reply.writeBoolean(true); });
  EXPECT_EQ(failureOfGetInstance(), L"");
  EXPECT_EQ(connections(m_world.peer().lines()), 2);
}

TEST_F(PortMonitorServerTest, ShutdownEndsTheConnectionAndLeavesNoInstance) {
  const CS_RCPtr<PortMonitorServer> instance = PortMonitorServer::getInstance();
  EXPECT_TRUE(PortMonitorServer::shutdown());
  EXPECT_FALSE(instance->isConnected());
  EXPECT_EQ(m_world.peer().waitForLines(4).back(), "end");
  EXPECT_TRUE(PortMonitorServer::shutdown());
}

TEST_F(PortMonitorServerTest, ShutdownFirstDeletesThePortMonitorLockWithoutTakingIt) {
  const guarded_heap::Mark mark;
  const void* const lock = watchLock();
  const CS_RCPtr<PortMonitorServer> instance = PortMonitorServer::getInstance();
  m_lockCalls.clear();
  bool wasConnected = false;
  const auto writeDown = DeleteCriticalSectionSeam.watch;
  DeleteCriticalSectionSeam.watch = [&](LPCRITICAL_SECTION section) {
    writeDown(section);
    if (section == lock) wasConnected = instance->isConnected();
  };
  EXPECT_TRUE(PortMonitorServer::shutdown());
  EXPECT_THAT(m_lockCalls, ElementsAre("delete"));
  EXPECT_TRUE(wasConnected);
  for (const guarded_heap::Block& block : mark.left())
    EXPECT_NE(block.address, lock) << "its memory is left";
}

TEST_F(PortMonitorServerTest, TheHolderIsReadAndEmptiedWithThePortMonitorLockHeld) {
  watchLock();
  const CS_RCPtr<PortMonitorServer> instance = PortMonitorServer::getInstance();
  EXPECT_THAT(m_lockCalls, ElementsAre("enter", "leave"));
  PortMonitorServer other;
  other.release();
  EXPECT_THAT(m_lockCalls, ElementsAre("enter", "leave", "enter", "leave"));
}

TEST_F(PortMonitorServerTest, ShutdownOfAnInstanceThatStandsOnNoConnectionIsRecordedAndFails) {
  m_world.bringUpInstance();
  const CS_RCPtr<PortMonitorServer> instance = PortMonitorServer::getInstance();
  const CS_RCPtr<CS_Component> connection = instance->getRootOwner();
  const CS_RCPtr<PortMonitorServer> other = new PortMonitorServer;
  other->addChild(instance.get());
  EXPECT_FALSE(PortMonitorServer::shutdown());
  EXPECT_THAT(m_world.records().lines(),
              ElementsAre("0x4000000a: failed to get connection", "10: failed to get connection",
                          "0x40000008: Stack Trace: PortMonitorServer::shutdown()"));
  EXPECT_EQ(m_world.records().reports(), 1);
  other->removeChild(instance.get());
  connection->addChild(instance.get());
  EXPECT_TRUE(PortMonitorServer::shutdown());
}

TEST_F(PortMonitorServerTest, ShutdownWithoutAnInstanceIsASuccess) {
  EXPECT_TRUE(PortMonitorServer::shutdown());
  EXPECT_THAT(m_world.records().lines(), IsEmpty());
}

TEST_F(PortMonitorServerTest, WithoutMemoryALockOfAnEarlierCallStays) {
  LPCRITICAL_SECTION lock = nullptr;
  CRITICAL_SECTION earlier{};
  for (LPCRITICAL_SECTION before : {LPCRITICAL_SECTION{nullptr}, &earlier}) {
    lock = before;
    const FailingNew failing(1);
    EXPECT_EQ(PortMonitorServer::initialize(lock), before != nullptr);
    EXPECT_TRUE(failing.hasFailed());
    EXPECT_EQ(lock, before);
  }
}

TEST_F(PortMonitorServerTest, InitializeMakesALockEveryTime) {
  LPCRITICAL_SECTION lock = nullptr;
  EXPECT_TRUE(PortMonitorServer::initialize(lock));
  ASSERT_NE(lock, nullptr);
  EnterCriticalSection(lock);
  LeaveCriticalSection(lock);
  DeleteCriticalSection(lock);
  delete lock;
}

}  // namespace
