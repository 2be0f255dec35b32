#include "corvane/components/in_request.h"
#include "protocol/exchange.h"
#include "protocol/names.h"
#include "protocol/session.h"
#include "tests/support/connection_pair.h"

#include <chrono>
#include <condition_variable>
#include <gtest/gtest.h>
#include <mutex>

namespace protocol {
namespace {

// What the application server answers, and what the print client has been told.
struct Conversation {
  Registration::Answer answer;
  std::mutex lock;
  std::condition_variable changed;
  std::wstring told;
};
Conversation* conversation = nullptr;

// The application server's half: answers, and tells at once of a job that failed.
class Host : public CS_Component {
 public:
  bool processRequest(CS_InRequest& request) override {
    read<Registration>(request);
    answer(request, conversation->answer);
    tell(CS_RCPtr<CS_Component>(this), JobFailed{L"Laser", L"A letter", L"no paper", L"Fill the tray."});
    return true;
  }
};

class Client : public CS_Component {
 public:
  bool processRequest(CS_InRequest& request) override {
    const std::lock_guard guard(conversation->lock);
    conversation->told = read<JobFailed>(request).cause;
    conversation->changed.notify_all();
    return true;
  }
};

class RegisterPrintersTest : public testing::Test {
 protected:
  RegisterPrintersTest() {
    conversation = &m_conversation;
    CS_ComponentServer::initialize(0, 0);
    CS_ComponentServer* const server = CS_ComponentServer::getServer();
    server->registerClass(kSessionHostClass, new corvane::ComponentClass<Host>(kVersion));
    server->offerClass(kSessionHostClass);
    server->registerClass(kSessionClientClass, new corvane::ComponentClass<Client>(kVersion));
  }

  Registration::Answer registerOne() {
    ConnectionPair pair;
    return registerPrinters(pair.dialedPointer(), 5, {Printer()});
  }

  Conversation m_conversation;
};

TEST_F(RegisterPrintersTest, AnAcceptedRegistrationBringsTheNamesAndNoReason) {
  m_conversation.answer.localNames = {L"Laser (session 5)"};
  const auto answer = registerOne();
  EXPECT_TRUE(answer.isAccepted);
  EXPECT_EQ(answer.refusal, L"");
  EXPECT_EQ(answer.localNames, std::vector<std::wstring>{L"Laser (session 5)"});
}

TEST_F(RegisterPrintersTest, ARefusalHasTheServersReasonAndSaysWhenThereIsNone) {
  m_conversation.answer = {false, L"the session is taken", {}};
  EXPECT_EQ(registerOne().refusal, L"the session is taken");
  m_conversation.answer.refusal.clear();
  const auto answer = registerOne();
  EXPECT_FALSE(answer.isAccepted);
  EXPECT_EQ(answer.refusal, L"the server gave no reason");
}

TEST_F(RegisterPrintersTest, TheServerReachesTheClientsComponent) {
  m_conversation.answer.localNames = {L"Laser (session 5)"};
  ConnectionPair pair;
  const auto component = makeSessionClient(pair.dialedPointer());
  JoinedThread serving([&] { pair.dialed().serve(); }, [&] { CS_Connection::destroy(pair.dialedPointer(), true); });
  registerPrinters(component, 5, {Printer()});
  std::unique_lock guard(m_conversation.lock);
  EXPECT_TRUE(m_conversation.changed.wait_for(guard, std::chrono::seconds(20),
                                              [&] { return m_conversation.told == L"no paper"; }));
}

}  // namespace
}  // namespace protocol
