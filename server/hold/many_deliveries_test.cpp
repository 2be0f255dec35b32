#include "corvane/base/text.h"
#include "corvane/components/bridge.h"
#include "corvane/components/component_server.h"
#include "corvane/components/in_request.h"
#include "corvane/trust/key.h"
#include "protocol/exchange.h"
#include "protocol/names.h"
#include "server/hold/job_hold.h"
#include "server/hold/served_end.h"
#include "tests/support/own_folder.h"

#include <algorithm>
#include <condition_variable>
#include <fmt/format.h>
#include <gtest/gtest.h>
#include <list>
#include <mutex>
#include <string>
#include <thread>

namespace aps {
namespace {

// Print clients that are asked whether they have a job, and do not answer before they may.
struct Crowd {
  std::mutex lock;  // guards what follows
  std::condition_variable changed;
  int asked = 0, mayAnswer = 0;
  int waiting = 0, mostWaiting = 0;

  void awaitAsked(int count) {
    std::unique_lock<std::mutex> guard(lock);
    changed.wait(guard, [&] { return asked >= count; });
  }
  void let(int count) {
    const std::lock_guard<std::mutex> guard(lock);
    mayAnswer += count;
    changed.notify_all();
  }
};

class PatientPrintClient : public CS_Component {
 public:
  using Context = Crowd;
  explicit PatientPrintClient(std::shared_ptr<Crowd> crowd) : m_crowd(std::move(crowd)) {}

  bool processRequest(CS_InRequest& request) override {
    protocol::read<protocol::HeldJob>(request);
    {
      std::unique_lock<std::mutex> guard(m_crowd->lock);
      ++m_crowd->asked;
      m_crowd->mostWaiting = std::max(m_crowd->mostWaiting, ++m_crowd->waiting);
      m_crowd->changed.notify_all();
      m_crowd->changed.wait(guard, [this] { return m_crowd->mayAnswer > 0; });
      --m_crowd->mayAnswer;
      --m_crowd->waiting;
    }
    protocol::answer(request, protocol::HeldJob::Answer{protocol::HeldJobState::kTaken, L"here"});
    return true;
  }

 private:
  const std::shared_ptr<Crowd> m_crowd;
};

class ManyDeliveriesTest : public ::testing::Test {
 protected:
  ManyDeliveriesTest() {
    CS_ComponentServer::initialize(0, 0);
    CS_ComponentServer* const server = CS_ComponentServer::getServer();
    server->registerClass(protocol::kPrintServerClass, new corvane::ComponentClass<CS_Component>(protocol::kVersion));
    server->registerClass(protocol::kPrintClientClass,
                          new corvane::ComponentClass<PatientPrintClient, Crowd>(protocol::kVersion, m_crowd));
    server->offerClass(protocol::kPrintClientClass);
    server->offerClass(CS_Bridge::m_className);
  }
  ~ManyDeliveriesTest() override {
    m_clients.clear();
    m_hold.reset();
    m_history.finish();
  }
  // A job of a session whose print client is there.
  void makeHeld(int session) {
    auto ends = CS_Connection::makePair();
    CS_ClassVersionMap versions;
    CS_ComponentServer::getServer()->copyRegisteredClassVersionMap(versions);
    protocol::Printer printer;
    printer.texts[0] = L"Laser";
    HeldJob job;
    job.printer = m_sessions.enter(session, {printer}, versions, ends.first).localNames.at(0);
    m_clients.emplace_back(std::move(ends.first));
    m_clients.emplace_back(std::move(ends.second));
    job.id = corvane::fromUtf8(fmt::format("{:032}", session));
    job.number = job.session = session;
    job.key = corvane::toHex(corvane::Bytes32{});
    job.held = 1LL << 40;
    HeldFileWriter(m_path / "x.part").complete(job, m_path / fmt::format("{:012}.job", session));
  }

  void awaitHeld(std::size_t count) const {
    while (m_hold->held().size() > count)
      std::this_thread::yield();
  }

  const OwnFolder m_folder{"many_deliveries"};
  const std::filesystem::path m_path = m_folder.path() / "held";
  const corvane::KeyFolder m_keys{(m_folder.path() / "keys").string()};
  Log m_log{m_folder.path() / "log"};
  SessionTable m_sessions{SessionTable::Limits{}};
  ClientNews m_news;
  NoticeList m_notices;
  JobHistory m_history{{}, {}, m_log};
  JobBook m_book{m_history, {L"srv", true}};
  const std::shared_ptr<Crowd> m_crowd = std::make_shared<Crowd>();
  std::list<ServedEnd> m_clients;
  std::unique_ptr<JobHold> m_hold;
};

TEST_F(ManyDeliveriesTest, AreSixteenAtATimeAndTheOthersBehindThem) {
  {
    const PrivateFolder made(m_path);
    for (int session = 1; session <= 40; ++session)
      makeHeld(session);
  }
  m_hold = std::make_unique<JobHold>(JobHold::Settings{m_path, {}, true, std::chrono::milliseconds(50)},
                                     JobHold::Context{m_log, m_sessions, m_news, m_book, m_notices, m_keys});
  m_crowd->awaitAsked(16);
  for (int done = 1; done <= 24; ++done) {
    m_crowd->let(1);
    m_crowd->awaitAsked(16 + done);
    awaitHeld(static_cast<std::size_t>(40 - done));
  }
  m_crowd->let(16);
  awaitHeld(0);
  const std::lock_guard<std::mutex> guard(m_crowd->lock);
  EXPECT_EQ(m_crowd->asked, 40);
  EXPECT_EQ(m_crowd->mostWaiting, 16);
}

}  // namespace
}  // namespace aps
