#include "server/hold/held_delivery.h"

#include "corvane/base/text.h"
#include "corvane/components/bridge.h"
#include "corvane/components/component_server.h"
#include "corvane/components/in_request.h"
#include "protocol/exchange.h"
#include "protocol/names.h"
#include "server/hold/served_end.h"
#include "tests/support/own_folder.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <functional>
#include <gtest/gtest.h>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

namespace aps {
namespace {

using protocol::HeldJobState;
using protocol::PrintResult;

// What the print client of the test answers, and what has come to it.
struct Conduct {
  std::mutex lock;  // guards what follows
  HeldJobState state = HeldJobState::kNew;
  int result = 1;
  std::function<void()> beforeAnswer;                // to the end
  std::function<void(CS_Component& taker)> atStart;  // of the job
  std::vector<std::string> came;
  std::string data;
  std::vector<int> lengths;
};

class ScriptedPrintClient : public CS_Component {
 public:
  using Context = Conduct;
  explicit ScriptedPrintClient(std::shared_ptr<Conduct> conduct) : m_conduct(std::move(conduct)) {}

  bool processRequest(CS_InRequest& request) override {
    const std::lock_guard<std::mutex> guard(m_conduct->lock);
    switch (static_cast<protocol::PrintRequest>(request.number())) {
      case protocol::PrintRequest::kHeld:
        m_conduct->came.push_back("held " + corvane::toUtf8(protocol::read<protocol::HeldJob>(request).id));
        protocol::answer(request, protocol::HeldJob::Answer{m_conduct->state, L"here"});
        return true;
      case protocol::PrintRequest::kStart:
        m_conduct->came.push_back("start " + corvane::toUtf8(protocol::read<protocol::JobStart>(request).documentName));
        if (m_conduct->atStart) m_conduct->atStart(*this);
        return true;
      case protocol::PrintRequest::kData:
        takeData(request);
        return true;
      case protocol::PrintRequest::kEnd:
        m_conduct->came.push_back("end " + corvane::toUtf8(protocol::read<protocol::JobEnd>(request).jobName));
        if (m_conduct->beforeAnswer) m_conduct->beforeAnswer();
        protocol::answer(request, protocol::JobEnd::Answer{static_cast<PrintResult>(m_conduct->result)});
        return true;
    }
    return false;
  }

 private:
  void takeData(CS_InRequest& request) {
    m_conduct->lengths.push_back(protocol::read<protocol::JobData>(request).length);
    for (auto piece = request.readPiece(); !piece.empty(); piece = request.readPiece())
      m_conduct->data.append(piece.begin(), piece.end());
  }

  const std::shared_ptr<Conduct> m_conduct;
};

// One job that is held, and its print client, which is there.
class HeldDeliveryTest : public ::testing::Test {
 protected:
  using End = HeldDelivery::End;
  // What comes to the client of a job that is not sent, and of one that is.
  const std::vector<std::string> m_asked = {"held " + std::string(32, 'a')};
  const std::vector<std::string> m_whole = {m_asked[0], "start Letter", "end Laser - Job #17"};

  HeldDeliveryTest() {
    CS_ComponentServer::initialize(0, 0);
    CS_ComponentServer* const server = CS_ComponentServer::getServer();
    server->registerClass(protocol::kPrintServerClass, new corvane::ComponentClass<CS_Component>(protocol::kVersion));
    server->registerClass(protocol::kPrintClientClass,
                          new corvane::ComponentClass<ScriptedPrintClient, Conduct>(protocol::kVersion, m_conduct));
    server->offerClass(protocol::kPrintClientClass);
    server->offerClass(CS_Bridge::m_className);
    m_near = std::make_unique<ServedEnd>(m_ends.first);
    m_far = std::make_unique<ServedEnd>(m_ends.second);
    CS_ClassVersionMap versions;
    server->copyRegisteredClassVersionMap(versions);
    protocol::Printer printer;
    printer.texts[0] = L"Laser";
    m_printer = m_sessions.enter(5, {printer}, versions, m_ends.first).localNames.at(0);
  }
  ~HeldDeliveryTest() override {
    m_near.reset();
    m_far.reset();
    CS_Bridge::waitForThreads(10000);
    m_history.finish();
  }
  void hold(const std::string& data = "hello") {
    HeldJob job;
    job.id = std::wstring(32, L'a');
    job.number = 7;
    job.session = 5;
    job.key = corvane::toHex(corvane::Bytes32{});
    job.printer = m_printer;
    const auto coming = m_store.begin(std::move(job));
    protocol::JobStart start;
    start.jobName = L"Laser - Job #17";
    start.printerName = L"Laser";
    start.documentName = L"Letter";
    coming->start(std::move(start));
    coming->append({reinterpret_cast<const unsigned char*>(data.data()), data.size()});
    coming->complete();
    m_store.settle(7);
  }
  HeldDelivery::Outcome deliver(HeldJobState state = HeldJobState::kNew, int result = 1) {
    {
      const std::lock_guard<std::mutex> guard(m_conduct->lock);
      m_conduct->state = state;
      m_conduct->result = result;
    }
    return deliver(m_store.find(7)->job);
  }
  HeldDelivery::Outcome deliver(const HeldJob& job) {
    protocol::JobRecord known;
    known.number = job.number;
    known.session = job.session;
    known.printer = job.printer;
    return HeldDelivery({m_log, m_sessions, m_news, m_book, m_store}, job, known).run();
  }
  HeldDelivery::Outcome deliverWith(int result) { return deliver(HeldJobState::kNew, result); }
  std::vector<std::string> came() {
    const std::lock_guard<std::mutex> guard(m_conduct->lock);
    return std::exchange(m_conduct->came, {});
  }

  const OwnFolder m_folder{"held_delivery"};
  Log m_log{m_folder.path() / "log"};
  SessionTable m_sessions{SessionTable::Limits{}};
  ClientNews m_news;
  JobHistory m_history{{}, {}, m_log};
  JobBook m_book{m_history, {L"srv", true}};
  HoldStore m_store{m_folder.path() / "held", {}, m_log};
  const std::shared_ptr<Conduct> m_conduct = std::make_shared<Conduct>();
  const std::pair<CS_RCPtr<CS_Connection>, CS_RCPtr<CS_Connection>> m_ends = CS_Connection::makePair();
  std::unique_ptr<ServedEnd> m_near, m_far;
  std::wstring m_printer;  // its name on this server
};

TEST_F(HeldDeliveryTest, AJobIsAskedForAndSentAsItCame) {
  const std::string data = std::string(65536, 'x') + "rest";
  hold(data);
  const auto outcome = deliver();
  EXPECT_EQ(outcome.end, End::kDelivered) << outcome.cause;
  EXPECT_EQ(came(), m_whole);
  const std::lock_guard<std::mutex> guard(m_conduct->lock);
  EXPECT_EQ(m_conduct->data == data, true);
  EXPECT_EQ(m_conduct->lengths, (std::vector<int>{65536, 4}));
  EXPECT_EQ(m_store.sentTo(7), L"here");
}

TEST_F(HeldDeliveryTest, OnlyAPositiveAnswerMeansThatThePrintClientHasIt) {
  hold();
  EXPECT_EQ(deliverWith(1).end, End::kDelivered);
  EXPECT_EQ(deliverWith(9).end, End::kDelivered);
  const std::string look =
      "see in the print client's output what it says about the job; it is tried again when the "
      "print client comes back or its printers change, and can be canceled";
  const std::pair<int, const char*> aside[] = {
      {0, "The print client did not take the document"},
      {-2, "The print client could not write the document"},
      {-4, "The print client does not know the job"},
      {-5, "The print client got a piece of data that was not as long as it said"},
      {-6, "The print client did not take the document"},
  };
  for (const auto& [result, cause] : aside) {
    const auto outcome = deliverWith(result);
    EXPECT_EQ(outcome.end, End::kAside) << result;
    EXPECT_EQ(outcome.cause, cause) << result;
    EXPECT_EQ(outcome.remedy, look) << result;
    EXPECT_EQ(m_store.sentTo(7), std::nullopt) << result;
  }
}

TEST_F(HeldDeliveryTest, WhatThePrintClientHasSaidOfARefusalIsTheReason) {
  hold();
  protocol::PaperNews news;
  news.printer = L"Laser";
  news.job = L"Laser - Job #17";
  news.state = protocol::PaperState::kAborted;
  news.cause = L"The disk is full.";
  news.remedy = L"Make room.";
  m_conduct->beforeAnswer = [&] { m_book.paperNews(news, 5, m_printer); };
  auto outcome = deliverWith(-2);
  EXPECT_EQ(outcome.end, End::kAside);
  EXPECT_EQ(outcome.cause, "The disk is full");
  EXPECT_EQ(
      outcome.remedy,
      "Make room; it is tried again when the print client comes back or its printers change, and can be canceled");
  news.remedy = L"";
  outcome = deliverWith(-1);
  EXPECT_EQ(outcome.end, End::kFailed);
  EXPECT_EQ(outcome.cause, "The print client got no data");
  news.state = protocol::PaperState::kCanceled;
  EXPECT_EQ(deliverWith(-6).end, End::kCanceled);
}

TEST_F(HeldDeliveryTest, OneThatThePrintClientLetsGoIsNotTriedAgainAndOneWhoseClientGoesIs) {
  hold();
  m_conduct->atStart = [](CS_Component& taker) {
    const CS_RCPtr<CS_Component> bridge = taker.getOwner();
    dynamic_cast<CS_Bridge&>(*bridge).leave(L"the person canceled the job");
    bridge->release();
  };
  const auto outcome = deliver();
  EXPECT_EQ(outcome.end, End::kFailed);
  EXPECT_EQ(outcome.cause, "the print client let the job go: the person canceled the job");
  EXPECT_EQ(outcome.remedy, "print again if it is still wanted");
  m_conduct->atStart = [](CS_Component& taker) { CS_Connection::destroy(taker.getConnection(), true); };
  EXPECT_EQ(deliver().end, End::kAway);
}

TEST_F(HeldDeliveryTest, DataThatAreNoDocumentAreNotTriedAgain) {
  hold();
  EXPECT_EQ(deliverWith(-1).end, End::kFailed);
  const auto outcome = deliverWith(-3);
  EXPECT_EQ(outcome.end, End::kFailed);
  EXPECT_EQ(outcome.cause, "The print client got a PDF without its end");
  EXPECT_EQ(outcome.remedy, "print again");
}

TEST_F(HeldDeliveryTest, WhatThePrintClientHasOrMayHaveOrIsAtIsNotSent) {
  hold();
  EXPECT_EQ(deliver(HeldJobState::kTaken).end, End::kAlreadyThere);
  auto outcome = deliver(HeldJobState::kBusy);
  EXPECT_EQ(outcome.end, End::kBusy);
  EXPECT_EQ(outcome.cause, "the print client is still handing it on");
  for (const int unclear : {3, 0, 5}) {  // of other numbers nobody knows what they mean
    outcome = deliver(static_cast<HeldJobState>(unclear));
    EXPECT_EQ(outcome.end, End::kFailed) << unclear;
    EXPECT_EQ(outcome.remedy, "look whether the page is there, and print again if it is not") << unclear;
  }
  EXPECT_EQ(came(), std::vector<std::string>(5, m_asked[0]));
}

TEST_F(HeldDeliveryTest, WhatAnotherDeviceMayHaveIsNotSentAndWhatThisOneHasNotIs) {
  hold();
  m_store.markSent(7, L"there");
  const auto outcome = deliver();
  EXPECT_EQ(outcome.end, End::kAside);
  EXPECT_EQ(outcome.cause,
            "another device of the session may have it: the connection was lost when it was about to take it");
  EXPECT_EQ(came(), m_asked);
  EXPECT_EQ(m_store.sentTo(7), L"there");
  m_store.markSent(7, L"here");
  EXPECT_EQ(deliver().end, End::kDelivered);
  EXPECT_EQ(came(), m_whole);
}

TEST_F(HeldDeliveryTest, OfADamagedFileTheEndIsNotSent) {
  hold();
  {
    std::fstream file(m_store.pathOf(7), std::ios::in | std::ios::out | std::ios::binary);
    file.put('#');
  }
  const auto outcome = deliver();
  EXPECT_EQ(outcome.end, End::kDamaged);
  EXPECT_EQ(outcome.cause, "its checksum is wrong");
  EXPECT_EQ(outcome.remedy, "print again");
  const auto all = came();
  EXPECT_EQ(std::count(all.begin(), all.end(), m_whole[2]), 0);
  EXPECT_EQ(m_store.sentTo(7), std::nullopt);
}

TEST_F(HeldDeliveryTest, AFileThatCannotBeOpenedNowIsTriedAgain) {
  hold();
  std::filesystem::remove(m_store.pathOf(7));
  const auto outcome = deliver();
  EXPECT_EQ(outcome.end, End::kBusy);
  EXPECT_EQ(outcome.cause.find("it cannot be opened: "), 0u) << outcome.cause;
  EXPECT_EQ(outcome.remedy, "");
}

TEST_F(HeldDeliveryTest, AnotherKeyAndAPrinterThatIsGoneGetNothing) {
  hold();
  HeldJob job = m_store.find(7)->job;
  job.key[0] = L'1';
  EXPECT_EQ(deliver(job).end, End::kAway);
  job = m_store.find(7)->job;
  job.printer = L"Ink (session 5)";
  const auto outcome = deliver(job);
  EXPECT_EQ(outcome.end, End::kAside);
  EXPECT_EQ(outcome.cause, "the printer \"Ink (session 5)\" is not there any more");
  EXPECT_EQ(outcome.remedy, "let the print client of session 5 bring it back, or cancel the job");
  protocol::Printer printer;
  printer.texts[0] = L"Laser";
  job.printer = m_sessions.enter(6, {printer}, {}, CS_Connection::create()).localNames.at(0);
  EXPECT_EQ(deliver(job).end, End::kAside) << "it is another session's";
  m_sessions.leave(5, m_ends.first.get());
  EXPECT_EQ(deliver().end, End::kAway);
  EXPECT_EQ(came(), std::vector<std::string>());
}

}  // namespace
}  // namespace aps
