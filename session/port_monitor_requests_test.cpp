#include "corvane/components/bridge.h"
#include "corvane/components/bridge_router.h"
#include "corvane/records/exception.h"
#include "session/port_monitor_server.h"
#include "session/session_printers.h"
#include "tests/support/guarded_heap.h"
#include "tests/support/import_seam.h"
#include "tests/support/local_log.h"
#include "tests/support/monitor_world.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

MG_IMPORT_SEAM(L"kernel32.dll", WideCharToMultiByte, 0)

namespace {

using corvane::ValueWriter;
using testing::ElementsAre;
using testing::IsEmpty;

const std::string kPrefix = "0x40000008: Stack Trace: MgPrintMon - PortMonitorServer::";

class PortMonitorRequestsTest : public testing::Test {
 protected:
  void answer(int number, ScriptedPeer::Answer answer) {
    m_world.peer().answer("PortMonitorClient", number, std::move(answer));
  }
  static ScriptedPeer::Answer no() {
    return [](ValueWriter& reply) { reply.writeBoolean(false); };
  }
  ScriptedPeer::Lines records() { return m_world.records().lines(); }

  ImportSeams m_seams;
  MonitorWorld m_world;
  CS_RCPtr<PortMonitorServer> m_server = m_world.portMonitor();
};

// AttachPrintJobToSession

class AttachTest : public PortMonitorRequestsTest {
 protected:
  AttachTest() {
    const CS_RCPtr<CS_ClassFactory> factory =
        m_world.connection().getClassFactory(CS_Bridge::m_className, CS_BridgeRouter::getClassName(), true);
    m_bridge = factory->newInstance(0);
  }
  std::string request() const {
    return "request 4 AttachPrintJobToSession: text \"Laser\", int " + MonitorWorld::processId() + ", int " +
           std::to_string(m_bridge->getIdentifier()) +
           ", int 5, text \"Quillfern::ComponentServer::Bridge\", int 1, int 0, int 0, int 0, "
           "text \"Quillfern::ComponentServer::BridgeRouter\", int 1, int 0, int 0, int 0, "
           "text \"Quillfern::ComponentServer::ProgramMonitor_c\", int 1, int 0, int 0, int 0, "
           "text \"Quillfern::NTR::PortMonitorServer\", int 4, int 0, int 1, int 0, "
           "text \"Quillfern::NTR::PrintServer\", int 4, int 0, int 1, int 0";
  }
  bool hasPrintClient() {
    return static_cast<bool>(
        m_bridge->getClassFactory(L"Quillfern::NTR::PrintServer", L"Quillfern::NTR::PrintClient", true));
  }
  static void writeVersion(ValueWriter& reply, const wchar_t* name, int major) {
    reply.writeText(name);
    for (const int number : {major, 0, 1, 0})
      reply.writeInt(number);
  }

  CS_RCPtr<CS_Component> m_bridge;
};

TEST_F(AttachTest, SendsPrinterProcessBridgeAndVersionsAndKeepsTheClientsVersions) {
  answer(4, [](ValueWriter& reply) {
    reply.writeBoolean(true);
    reply.writeInt(1);
    writeVersion(reply, L"Quillfern::NTR::PrintClient", 4);
  });
  EXPECT_TRUE(m_server->AttachPrintJobToSession(L"Laser", m_bridge.get()));
  EXPECT_THAT(m_world.requests(), ElementsAre(request()));
  EXPECT_TRUE(hasPrintClient());
  EXPECT_THAT(records(), IsEmpty());
}

TEST_F(AttachTest, AClientOfAnotherMajorVersionCannotBeUsedOnTheBridge) {
  answer(4, [](ValueWriter& reply) {
    reply.writeBoolean(true);
    reply.writeInt(1);
    writeVersion(reply, L"Quillfern::NTR::PrintClient", 3);
  });
  EXPECT_TRUE(m_server->AttachPrintJobToSession(L"Laser", m_bridge.get()));
  EXPECT_FALSE(hasPrintClient());
}

TEST_F(AttachTest, VersionsThatTheBridgeRefusesAreRecordedAndTheJobStaysAttached) {
  answer(4, [](ValueWriter& reply) {
    reply.writeBoolean(true);
    reply.writeInt(0);
  });
  EXPECT_TRUE(m_server->AttachPrintJobToSession(L"Laser", m_bridge.get()));
  EXPECT_THAT(records(),
              ElementsAre("0x4000000a: Failed to set peer process versions.", kPrefix + "AttachPrintJobToSession()"));
}

// A bridge that looks, when it is given the versions, what the request has left until then.
class LookingBridge : public CS_Component {
 public:
  LookingBridge(PortMonitorServer& server, std::size_t most) : m_server(server), m_most(most) {}

  bool setVersionsOfClassesInPeerProcess(const CS_ClassVersionMap&, int) override {
    m_server.addRef();
    references = m_server.removeRef();
    for (const guarded_heap::Block& block : m_mark.left())
      hasReply = hasReply || block.size > m_most;
    return true;
  }

  int references = 0;
  bool hasReply = false;

 private:
  PortMonitorServer& m_server;
  const std::size_t m_most;
  const guarded_heap::Mark m_mark;
};

TEST_F(AttachTest, RequestAndReplyAreLetGoBeforeTheBridgeIsTold) {
  constexpr int kClasses = 10;
  answer(4, [](ValueWriter& reply) {
    reply.writeBoolean(true);
    reply.writeInt(kClasses);
    for (int i = 0; i < kClasses; ++i)
      writeVersion(reply, (L"class " + std::to_wstring(i) + std::wstring(200, L'x')).c_str(), 4);
  });
  // The connection keeps the buffer that such an answer needs.
  EXPECT_TRUE(m_server->AttachPrintJobToSession(L"Laser", m_bridge.get()));
  m_server->addRef();
  const int references = m_server->removeRef();
  const CS_RCPtr<LookingBridge> bridge = new LookingBridge(*m_server, kClasses * 100);
  EXPECT_TRUE(m_server->AttachPrintJobToSession(L"Laser", bridge.get()));
  EXPECT_EQ(bridge->references, references);
  EXPECT_FALSE(bridge->hasReply);
}

TEST_F(AttachTest, ARefusalIsRecordedWithThePrintersName) {
  answer(4, no());
  EXPECT_FALSE(m_server->AttachPrintJobToSession(L"Laser", m_bridge.get()));
  EXPECT_THAT(records(), ElementsAre("0x4000000a: Failed to attach print job to session for Laser",
                                     kPrefix + "AttachPrintJobToSession()"));
  EXPECT_EQ(m_world.records().reports(), 1);
}

TEST_F(AttachTest, NoNameSendsNothingAndRecordsNothing) {
  EXPECT_FALSE(m_server->AttachPrintJobToSession(nullptr, m_bridge.get()));
  EXPECT_FALSE(m_server->AttachPrintJobToSession(L"", m_bridge.get()));
  EXPECT_THAT(m_world.requests(), IsEmpty());
  EXPECT_THAT(records(), IsEmpty());
}

TEST_F(AttachTest, ANullBridgeIsABadArgumentAndSendsNothing) {
  EXPECT_FALSE(m_server->AttachPrintJobToSession(L"Laser", nullptr));
  EXPECT_THAT(m_world.requests(), IsEmpty());
  EXPECT_THAT(records(), ElementsAre("10: number 3015", kPrefix + "AttachPrintJobToSession()"));
}

TEST_F(AttachTest, AFailedRequestIsFalse) {
  m_world.peer().hangUpAt("PortMonitorClient", 4);
  EXPECT_FALSE(m_server->AttachPrintJobToSession(L"Laser", m_bridge.get()));
  EXPECT_THAT(records(), ElementsAre("10: number 3102", kPrefix + "AttachPrintJobToSession()"));
}

// GetPrinterInfo

class GetPrinterInfoTest : public PortMonitorRequestsTest {
 protected:
  ClientPrinter m_printer;
};

TEST_F(GetPrinterInfoTest, FillsEveryFieldOfThePrinterInOrder) {
  answer(5, [](ValueWriter& reply) {
    reply.writeBoolean(true);
    for (const wchar_t* text : {L"one", L"two", L"three", L"four", L"five", L"six", L"seven", L"eight"}) {
      reply.writeBoolean(true);
      reply.writeText(text);
    }
    reply.writeBoolean(true);
    reply.writeInt(3);
    reply.writeInt(-9);
  });
  EXPECT_TRUE(m_server->GetPrinterInfo(L"Laser-2 (session 5)", m_printer));
  EXPECT_THAT(m_world.requests(), ElementsAre("request 5 GetPrinterInfo: text \"Laser-2 (session 5)\""));
  EXPECT_STREQ(m_printer.printerName.wide(), L"one");
  EXPECT_STREQ(m_printer.text2.wide(), L"two");
  EXPECT_STREQ(m_printer.text3.wide(), L"three");
  EXPECT_STREQ(m_printer.driverName.wide(), L"four");
  EXPECT_STREQ(m_printer.text5.wide(), L"five");
  EXPECT_STREQ(m_printer.text6.wide(), L"six");
  EXPECT_STREQ(m_printer.text7.wide(), L"seven");
  EXPECT_STREQ(m_printer.text8.wide(), L"eight");
  EXPECT_TRUE(m_printer.flag);
  EXPECT_EQ(m_printer.printerValue, 3);
  EXPECT_EQ(m_printer.secondValue, -9);
  EXPECT_THAT(records(), IsEmpty());
}

TEST_F(GetPrinterInfoTest, NamesOfAnyLengthAndCharacterTravelAsTheyAre) {
  const std::wstring odd = L"\xD800\u4e2d" + std::wstring(300, L'n') + L"\xDC00";
  answer(5, [&](ValueWriter& reply) {
    reply.writeBoolean(true);
    for (int i = 0; i < 8; ++i) {
      reply.writeBoolean(i == 0);
      if (i == 0) reply.writeText(odd.c_str());
    }
    reply.writeBoolean(false);
    reply.writeInt(-1);
    reply.writeInt(0);
  });
  EXPECT_TRUE(m_server->GetPrinterInfo(odd.c_str(), m_printer));
  EXPECT_THAT(m_world.requests(), ElementsAre("request 5 GetPrinterInfo: text \"" + corvane::toUtf8(odd) + "\""));
  EXPECT_EQ(m_printer.printerName.wide(), odd);
  EXPECT_EQ(m_printer.printerValue, -1);
}

TEST_F(GetPrinterInfoTest, AnEmptyNameIsAskedForLikeAnyOther) {
  answer(5, no());
  EXPECT_FALSE(m_server->GetPrinterInfo(L"", m_printer));
  EXPECT_THAT(m_world.requests(), ElementsAre("request 5 GetPrinterInfo: text \"\""));
}

TEST_F(GetPrinterInfoTest, AbsentTextsStayAsTheyWereAndTheRestIsStillRead) {
  m_printer.text5 = L"kept";
  answer(5, [](ValueWriter& reply) {
    reply.writeBoolean(true);
    for (int i = 0; i < 8; ++i)
      reply.writeBoolean(false);
    reply.writeBoolean(false);
    reply.writeInt(1);
    reply.writeInt(2);
  });
  EXPECT_TRUE(m_server->GetPrinterInfo(L"Laser", m_printer));
  EXPECT_TRUE(m_printer.printerName.isEmpty());
  EXPECT_STREQ(m_printer.text5.wide(), L"kept");
  EXPECT_EQ(m_printer.printerValue, 1);
  EXPECT_EQ(m_printer.secondValue, 2);
}

TEST_F(GetPrinterInfoTest, APrinterThatNobodyHasIsRecorded) {
  answer(5, no());
  EXPECT_FALSE(m_server->GetPrinterInfo(L"Laser", m_printer));
  EXPECT_THAT(records(), ElementsAre("10: Failed to get printer info", kPrefix + "GetPrinterInfo()"));
  EXPECT_EQ(m_world.records().reports(), 1);
}

TEST_F(GetPrinterInfoTest, ANullNameIsABadArgumentAndSendsNothing) {
  EXPECT_FALSE(m_server->GetPrinterInfo(nullptr, m_printer));
  EXPECT_THAT(m_world.requests(), IsEmpty());
  EXPECT_THAT(records(), ElementsAre("10: number 3015", kPrefix + "GetPrinterInfo()"));
}

TEST_F(GetPrinterInfoTest, AReplyThatEndsEarlyIsFalse) {
  answer(5, [](ValueWriter& reply) {
    reply.writeBoolean(true);
    reply.writeBoolean(true);
  });
  EXPECT_FALSE(m_server->GetPrinterInfo(L"Laser", m_printer));
  EXPECT_THAT(records(), ElementsAre("10: number 3106", kPrefix + "GetPrinterInfo()"));
}

TEST_F(GetPrinterInfoTest, ARefusedRequestIsFalse) {
  EXPECT_FALSE(m_server->GetPrinterInfo(L"Laser", m_printer));
  EXPECT_THAT(records(), ElementsAre("10: number 3104", kPrefix + "GetPrinterInfo()"));
}

// GetPrinterList

class GetPrinterListTest : public PortMonitorRequestsTest {
 protected:
  static ScriptedPeer::Answer list(std::vector<const wchar_t*> names) {
    return [names](ValueWriter& reply) {
      reply.writeBoolean(true);
      for (const wchar_t* name : names) {
        reply.writeBoolean(true);
        reply.writeText(name);
      }
      reply.writeBoolean(false);
    };
  }
  TObjectMap<UTL_String, void*> m_names{20};
};

TEST_F(GetPrinterListTest, AddsEveryNameWithThePlaceholder) {
  answer(6, list({L"Laser", L"Preview PDF"}));
  EXPECT_TRUE(m_server->GetPrinterList(5, &m_names));
  EXPECT_THAT(m_world.requests(), ElementsAre("request 6 GetPrinterList: int 5"));
  EXPECT_EQ(m_names.count(), 2u);
  void* laser = nullptr;
  void* preview = nullptr;
  EXPECT_TRUE(m_names.find(UTL_String(L"Laser"), &laser));
  EXPECT_TRUE(m_names.find(UTL_String(L"Preview PDF"), &preview));
  EXPECT_NE(laser, nullptr);
  EXPECT_EQ(laser, preview);
  EXPECT_THAT(records(), IsEmpty());
}

TEST_F(GetPrinterListTest, TheSessionTravelsAsASignedNumber) {
  answer(6, list({}));
  EXPECT_TRUE(m_server->GetPrinterList(0xFFFFFFFF, &m_names));
  EXPECT_THAT(m_world.requests(), ElementsAre("request 6 GetPrinterList: int -1"));
}

TEST_F(GetPrinterListTest, AReplyWithoutItsFirstValueIsTrue) {
  answer(6, [](ValueWriter&) {});
  EXPECT_TRUE(m_server->GetPrinterList(5, &m_names));
  EXPECT_THAT(records(), ElementsAre("10: number 3106", kPrefix + "GetPrinterList()"));
}

TEST_F(GetPrinterListTest, AListThatBreaksOffIsTrueWithTheNamesThatCame) {
  answer(6, [](ValueWriter& reply) {
    reply.writeBoolean(true);
    reply.writeBoolean(true);
    reply.writeText(L"Laser");
  });
  EXPECT_TRUE(m_server->GetPrinterList(5, &m_names));
  EXPECT_EQ(m_names.count(), 1u);
  EXPECT_THAT(records(), ElementsAre("10: number 3106", kPrefix + "GetPrinterList()"));
}

TEST_F(GetPrinterListTest, SkipsAnEmptyNameAndReadsOn) {
  answer(6, list({L"Laser", L"", L"Ink"}));
  EXPECT_TRUE(m_server->GetPrinterList(5, &m_names));
  EXPECT_EQ(m_names.count(), 2u);
  EXPECT_TRUE(m_names.find(UTL_String(L"Ink")));
}

TEST_F(GetPrinterListTest, ASessionWithoutPrintersIsASuccess) {
  answer(6, list({}));
  EXPECT_TRUE(m_server->GetPrinterList(5, &m_names));
  EXPECT_EQ(m_names.count(), 0u);
}

TEST_F(GetPrinterListTest, ARefusalIsFalseAndRecordsNothing) {
  answer(6, no());
  EXPECT_FALSE(m_server->GetPrinterList(5, &m_names));
  EXPECT_THAT(records(), IsEmpty());
}

TEST_F(GetPrinterListTest, ANameThatTheMapRefusesEndsTheListAndIsRecorded) {
  answer(6, list({L"Laser", L"Ink 2", L"Plotter"}));
  WideCharToMultiByteSeam.fail(1, 0);  // for the comparison of two names of one length
  EXPECT_TRUE(m_server->GetPrinterList(7, &m_names));
  EXPECT_EQ(m_names.count(), 1u);
  EXPECT_THAT(records(), ElementsAre("10: number 3016", kPrefix + "GetPrinterList()"));
}

TEST_F(GetPrinterListTest, SessionZeroOrNoMapSendsNothingAndStaysTrue) {
  EXPECT_TRUE(m_server->GetPrinterList(0, &m_names));
  EXPECT_TRUE(m_server->GetPrinterList(5, nullptr));
  EXPECT_THAT(m_world.requests(), IsEmpty());
  EXPECT_THAT(records(), ElementsAre("10: number 3015", kPrefix + "GetPrinterList()", "10: number 3015",
                                     kPrefix + "GetPrinterList()"));
}

TEST_F(GetPrinterListTest, AFailureBeforeTheReplyIsTrueWithNothingInTheMap) {
  m_world.peer().hangUpAt("PortMonitorClient", 6);
  EXPECT_TRUE(m_server->GetPrinterList(5, &m_names));
  EXPECT_EQ(m_names.count(), 0u);
  EXPECT_THAT(records(), ElementsAre("10: number 3102", kPrefix + "GetPrinterList()"));
}

// LaunchApplication

class LaunchApplicationTest : public PortMonitorRequestsTest {};

TEST_F(LaunchApplicationTest, SendsProgramArgumentsAndTheThirdText) {
  answer(7, [](ValueWriter& reply) { reply.writeBoolean(true); });
  EXPECT_TRUE(m_server->LaunchApplication(L"notepad.exe", L"/PT x", L"Preview PDF"));
  EXPECT_THAT(m_world.requests(), ElementsAre("request 7 LaunchApplication: text \"notepad.exe\", text \"/PT x\", "
                                              "boolean true, text \"Preview PDF\""));
  EXPECT_THAT(records(), IsEmpty());
}

TEST_F(LaunchApplicationTest, WritesAMissingThirdTextAsFalse) {
  answer(7, [](ValueWriter& reply) { reply.writeBoolean(true); });
  EXPECT_TRUE(m_server->LaunchApplication(L"notepad.exe", L"", nullptr));
  EXPECT_THAT(m_world.requests(),
              ElementsAre("request 7 LaunchApplication: text \"notepad.exe\", text \"\", boolean false"));
}

TEST_F(LaunchApplicationTest, ARefusalIsFalseAndRecordsNothing) {
  answer(7, no());
  EXPECT_FALSE(m_server->LaunchApplication(L"notepad.exe", L"", nullptr));
  EXPECT_THAT(records(), IsEmpty());
}

TEST_F(LaunchApplicationTest, MissingTextsAreBadArgumentsAndStayTrue) {
  EXPECT_TRUE(m_server->LaunchApplication(nullptr, L"", nullptr));
  EXPECT_TRUE(m_server->LaunchApplication(L"notepad.exe", nullptr, nullptr));
  EXPECT_THAT(m_world.requests(), IsEmpty());
  EXPECT_THAT(records(), ElementsAre("10: number 3015", kPrefix + "LaunchApplication()", "10: number 3015",
                                     kPrefix + "LaunchApplication()"));
}

TEST_F(LaunchApplicationTest, AReplyWithoutItsValueIsTrue) {
  answer(7, [](ValueWriter&) {});
  EXPECT_TRUE(m_server->LaunchApplication(L"notepad.exe", L"", nullptr));
  EXPECT_THAT(records(), ElementsAre("10: number 3106", kPrefix + "LaunchApplication()"));
}

TEST_F(LaunchApplicationTest, AFailureBeforeTheReplyIsTrue) {
  m_world.peer().hangUpAt("PortMonitorClient", 7);
  EXPECT_TRUE(m_server->LaunchApplication(L"notepad.exe", L"", nullptr));
  EXPECT_THAT(records(), ElementsAre("10: number 3102", kPrefix + "LaunchApplication()"));
}

// What a request says of its failure stands between the lines of its entry and its exit.
class PortMonitorTraceTest : public testing::Test {
 protected:
  PortMonitorTraceTest() { m_log.trace(); }

  void expectFailureWithin(const std::string& call) {
    const auto lines = m_log.lines();
    m_log.clear();
    ASSERT_GE(lines.size(), 3u) << call;
    EXPECT_EQ(lines.front(), "enter " + call);
    EXPECT_EQ(lines.back(), "leave " + call);
  }

  LocalLog m_log;
  PortMonitorServer m_server;  // without a connection
};

TEST_F(PortMonitorTraceTest, EachRequestLeavesAfterItsFailureIsRecorded) {
  m_server.AttachPrintJobToSession(L"Laser", nullptr);
  expectFailureWithin("PortMonitorServer::AttachPrintJobToSession (printerName = Laser)");
  ClientPrinter printer;
  m_server.GetPrinterInfo(nullptr, printer);
  expectFailureWithin("PortMonitorServer::GetPrinterInfo (printerName = (null))");
  m_server.GetPrinterList(0, nullptr);
  expectFailureWithin("PortMonitorServer::GetPrinterList (sessionId = 0)");
  m_server.LaunchApplication(nullptr, nullptr, nullptr);
  expectFailureWithin("PortMonitorServer::LaunchApplication (program = (null))");
  ShowPrinter(0, L"Laser");
  expectFailureWithin("ShowPrinter (sessionId = 0, printerName = Laser)");
}

}  // namespace
