// Each allocation, each start of a thread and each call to the folder of held jobs that aps makes while a job is held,
// delivered, canceled, listed or given up fails once. Whatever fails: aps goes on, what it has said yes to arrives, and
// nothing arrives twice.

#include "corvane/components/bridge.h"
#include "corvane/components/component_server.h"
#include "corvane/components/in_request.h"
#include "corvane/records/exception.h"
#include "protocol/exchange.h"
#include "protocol/names.h"
#include "protocol/print_job.h"
#include "protocol/session.h"
#include "tests/processes/armed_failures.h"
#include "tests/processes/held_scene.h"
#include "tests/processes/process_table.h"
#include "tests/support/joined_thread.h"
#include "tests/support/sanitized.h"

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <iterator>
#include <mutex>
#include <optional>
#include <set>

namespace tests {
namespace {

using Kind = FailingCalls::Kind;

// What the print client of the test has got, and which held jobs it remembers, as a real one does.
struct Taken {
  std::mutex lock;  // guards what follows
  std::vector<std::string> documents;
  std::set<std::wstring> ids;

  std::size_t count(const std::string& document) {
    const std::lock_guard<std::mutex> guard(lock);
    return static_cast<std::size_t>(std::count(documents.begin(), documents.end(), document));
  }
};
Taken g_taken;

class RememberingPrintClient : public CS_Component {
 public:
  bool processRequest(CS_InRequest& request) override {
    switch (request.number()) {
      case 4: {
        m_id = protocol::read<protocol::HeldJob>(request).id;
        const std::lock_guard<std::mutex> guard(g_taken.lock);
        request.reply().writeInt(g_taken.ids.contains(m_id) ? 2 : 1);
        request.reply().writeText(L"here");
        request.sendReply();
        return true;
      }
      case 2:
        protocol::read<protocol::JobData>(request);
        for (auto piece = request.readPiece(); !piece.empty(); piece = request.readPiece())
          m_data.append(piece.begin(), piece.end());
        return true;
      case 3: {
        {
          const std::lock_guard<std::mutex> guard(g_taken.lock);
          g_taken.documents.push_back(m_data);
          if (!m_id.empty()) g_taken.ids.insert(m_id);
        }
        request.reply().writeInt(1);
        request.sendReply();
        return true;
      }
      default:
        return request.number() == 1;
    }
  }

 private:
  std::wstring m_id;
  std::string m_data;
};

// One attempt of such a client to be there.
class RememberingClient {
 public:
  explicit RememberingClient(const HeldScene& scene, int port) {
    m_connection->useKey(corvane::Identity::session(5), scene.keyFile("session-5"));
    try {
      m_connection->connect(L"localhost", port, CS_Connection::kDirect, false);
      protocol::Printer printer;
      printer.texts[0] = L"Laser-2";
      m_isThere = protocol::registerPrinters(m_connection, 5, {printer}).isAccepted;
    } catch (const CS_Exception&) {
      // The server had no memory for it.
    }
    if (m_isThere) m_thread = JoinedThread([this] { m_connection->serve(); });
  }
  ~RememberingClient() {
    CS_Connection::destroy(m_connection, true);
    if (m_isThere) m_thread.join();
    CS_Bridge::waitForThreads(10000);
  }
  bool isThere() const { return m_isThere && m_connection->isConnected(); }

 private:
  const CS_RCPtr<CS_Connection> m_connection = CS_Connection::create();
  bool m_isThere = false;
  JoinedThread m_thread;
};

class HeldJobFaults : public ::testing::Test {
 protected:
  void SetUp() override {
    if (kSanitized) GTEST_SKIP() << "nothing can be loaded in front of a sanitized program";
    g_taken.documents.clear();
    g_taken.ids.clear();
    CS_ComponentServer::initialize(0, 0);
    CS_ComponentServer* const server = CS_ComponentServer::getServer();
    server->registerClass(protocol::kPrintClientClass,
                          new corvane::ComponentClass<RememberingPrintClient>(protocol::kVersion));
    server->offerClass(protocol::kPrintClientClass);
    server->offerClass(CS_Bridge::m_className);
    protocol::registerSessionClientClass();
    // What waits for another try waits for no more than a moment.
    m_scene = std::make_unique<HeldScene>(std::vector<std::string>{"--pace", "100"});
    m_control.emplace(m_scene->scene().folder());
    m_scene->scene().useLauncher(m_control->launcher());
    m_scene->makeKnown();
    restartServer();
  }
  void arm(Kind kind, int nth) { m_control->arm(kind, nth); }
  bool disarm() { return m_control->disarm(); }
  bool isAlive() const {
    std::ifstream in("/proc/" + std::to_string(m_scene->server().id()) + "/status");
    const std::string status{std::istreambuf_iterator<char>(in), {}};
    return !status.empty() && status.find("State:\tZ") == std::string::npos;
  }

  // Does the same with the first call failing, the second one, and so on, until none fails any more; what is done with
  // the number. The number of those that have failed.
  template <class Do>
  int sweep(Kind kind, const Do& once) {
    int failed = 0;
    for (int nth = 1; nth < 20000 && !HasFailure(); ++nth) {
      SCOPED_TRACE("number " + std::to_string(nth));
      arm(kind, nth);
      once(nth);
      if (!disarm()) return failed;
      ++failed;
      EXPECT_TRUE(isAlive()) << m_scene->server().output();
    }
    ADD_FAILURE() << "after " << failed;
    return failed;
  }
  // aps says that it listens before it is through with its start, which may fail; who answers is past all of that.
  void restartServer() {
    m_scene->scene().restartServer();
    m_scene->administration().jobs(1);
  }
  // A client that is there, however often it takes.
  std::unique_ptr<RememberingClient> client() {
    std::unique_ptr<RememberingClient> there;
    const auto comes = [&] {
      there.reset();
      there = std::make_unique<RememberingClient>(*m_scene, m_scene->scene().port());
      return there->isThere();
    };
    EXPECT_TRUE(comesTrue(comes, 60)) << m_scene->server().output();
    return there;
  }
  // Whatever happens to its connection, a print client comes back.
  bool arrives(const std::function<bool()>& isDone) {
    auto there = client();
    const auto look = [&] {
      if (!there->isThere()) there = client();
      return isDone();
    };
    return comesTrue(look, 60);
  }
  // Lets everything that is held arrive, and makes the client leave.
  void drain() {
    EXPECT_TRUE(arrives([&] { return m_scene->held().empty(); })) << m_scene->server().output();
    m_scene->awaitAway();
  }
  static std::string nameOf(int nth) { return "document " + std::to_string(nth) + std::string(70000, 'x'); }

  void passingOnGoesOn(Kind kind);
  void takingGoesOn(Kind kind);
  void deliveringGoesOn(Kind kind);
  void expectRecorded(int number, int state);
  void cancelingGoesOn(Kind kind);
  void givingUpGoesOn(Kind kind);

  std::unique_ptr<HeldScene> m_scene;
  std::optional<ArmedFailures> m_control;
};

// The client is there: nothing is held, unless it has just gone.
void HeldJobFaults::passingOnGoesOn(Kind kind) {
  std::unique_ptr<RememberingClient> there = client();
  int printed = 0;
  const int failed = sweep(kind, [&](int nth) {
    const std::optional<int> result = m_scene->print(L"Letter", nameOf(nth));
    const bool hasFailed = disarm();
    printed += result == 1 ? 1 : 0;
    if (!there->isThere()) {
      there = client();
      EXPECT_TRUE(arrives([&] { return m_scene->held().empty(); })) << m_scene->server().output();
      there = client();
    }
    EXPECT_LE(g_taken.count(nameOf(nth)), 1u);
    EXPECT_TRUE(result != 1 || g_taken.count(nameOf(nth)) == 1) << "a job that was printed has not come";
    const auto hasEnded = [&] {
      const auto jobs = m_scene->administration().jobs(1);
      return jobs.empty() || jobs.at(0).state != 1;
    };
    EXPECT_TRUE(comesTrue(hasEnded, 20)) << "its record says that it runs still" << m_scene->server().output();
    (*m_control)->failed = hasFailed ? 1 : 0;
  });
  EXPECT_EQ(m_scene->print(L"Letter", "the last one"), 1);
  std::printf("%d failures while jobs are passed on, %d of them printed\n", failed, printed);
}

void HeldJobFaults::takingGoesOn(Kind kind) {
  std::vector<int> told, refused;
  int unexpected = 0;
  // The connection over which held jobs come is made with the first one of a server.
  const bool isFirst = kind == Kind::kThread || std::getenv("MG_LONG_TESTS") != nullptr;
  const int failed = sweep(kind, [&](int nth) {
    if (isFirst) {
      (*m_control)->kind = Kind::kNone;
      restartServer();
      arm(kind, nth);
    }
    (m_scene->print(L"Letter", nameOf(nth)) == 1 ? told : refused).push_back(nth);
    if ((told.size() + refused.size()) % 40 != 0) return;
    const bool isOver = (*m_control)->failed != 0;
    (*m_control)->kind = Kind::kNone;
    drain();
    (*m_control)->failed = isOver ? 1 : 0;
  });
  drain();
  EXPECT_TRUE(comesTrue([&] { return m_scene->held(".part").empty(); }, 20));
  for (const int nth : told)
    EXPECT_EQ(g_taken.count(nameOf(nth)), 1u) << nth << " was taken";
  for (const int nth : refused) {
    EXPECT_LE(g_taken.count(nameOf(nth)), 1u) << nth << " was refused";
    unexpected += g_taken.count(nameOf(nth)) != 0 ? 1 : 0;
  }
  std::printf("%d failures while jobs are taken: %zu taken, %zu refused, of which %d arrived\n", failed, told.size(),
              refused.size(), unexpected);
}

void HeldJobFaults::deliveringGoesOn(Kind kind) {
  const int failed = sweep(kind, [&](int nth) {
    const bool isArmed = (*m_control)->kind != Kind::kNone;
    (*m_control)->kind = Kind::kNone;
    ASSERT_EQ(m_scene->print(L"Letter", nameOf(nth)), 1);
    ASSERT_TRUE(m_scene->awaitHeld(1));
    if (isArmed) arm(kind, nth);
    EXPECT_TRUE(arrives([&] { return g_taken.count(nameOf(nth)) != 0 && m_scene->held().empty(); }))
        << m_scene->server().output();
    const bool hasFailed = disarm();
    m_scene->awaitAway();
    EXPECT_EQ(g_taken.count(nameOf(nth)), 1u);
    (*m_control)->failed = hasFailed ? 1 : 0;
  });
  // Nothing that was delivered is found again.
  restartServer();
  const std::size_t before = g_taken.documents.size();
  ASSERT_EQ(m_scene->print(L"Letter", "the last one"), 1);
  drain();
  EXPECT_EQ(g_taken.documents.size(), before + 1);
  std::printf("%d failures while jobs are delivered, each arrived once\n", failed);
}

// Nothing but the end of a job was to change in its record, which may wait for a file that has taken nothing.
void HeldJobFaults::expectRecorded(int number, int state) {
  AdministrationPeer::Job job;
  EXPECT_TRUE(comesTrue([&] { return (job = m_scene->job(number)).state == state; }, 20))
      << job.state << m_scene->server().output();
  EXPECT_EQ(job.document, L"Letter");
  EXPECT_NE(job.cause, L"");
}

void HeldJobFaults::cancelingGoesOn(Kind kind) {
  int canceled = 0, number = 0;
  const int failed = sweep(kind, [&](int nth) {
    (*m_control)->kind = Kind::kNone;
    ASSERT_EQ(m_scene->print(L"Letter", nameOf(nth)), 1);
    ASSERT_TRUE(m_scene->awaitHeld(1));
    AdministrationPeer tool = m_scene->administration();
    // The records wait for some seconds where the failure of the round before was that of writing one.
    const int before = number;
    ASSERT_TRUE(comesTrue([&] { return (number = tool.jobs(1).at(0).number) != before; }, 20))
        << m_scene->server().output();
    arm(kind, nth);
    bool isDone = false;
    try {
      tool.jobs(10);
      isDone = tool.cancel(number, L"anna").first;
    } catch (const CS_Exception&) {
      // Nothing is said of it.
    }
    const bool hasFailed = disarm();
    canceled += isDone ? 1 : 0;
    if (!isDone) m_scene->administration().cancel(number, L"anna");
    EXPECT_TRUE(m_scene->awaitHeld(0)) << isDone << m_scene->server().output();
    expectRecorded(number, 7);
    (*m_control)->failed = hasFailed ? 1 : 0;
  });
  ASSERT_EQ(m_scene->print(L"Letter", "the last one"), 1);
  drain();
  EXPECT_EQ(g_taken.documents.size(), 1u) << "a job that was canceled has arrived";
  std::printf("%d failures while jobs are canceled: %d canceled at once, the others the next time\n", failed, canceled);
}

void HeldJobFaults::givingUpGoesOn(Kind kind) {
  const int failed = sweep(kind, [&](int nth) {
    (*m_control)->kind = Kind::kNone;
    ASSERT_EQ(m_scene->print(L"Letter", nameOf(nth)), 1);
    ASSERT_TRUE(m_scene->awaitHeld(1));
    const int number = m_scene->administration().jobs(1).at(0).number;
    arm(kind, nth);
    (*m_control)->days += 8;
    EXPECT_TRUE(m_scene->awaitHeld(0)) << m_scene->server().output();
    const bool hasFailed = disarm();
    expectRecorded(number, 6);
    (*m_control)->failed = hasFailed ? 1 : 0;
  });
  EXPECT_EQ(g_taken.documents.size(), 0u);
  std::printf("%d failures while jobs are given up\n", failed);
}

TEST_F(HeldJobFaults, AnyAllocationMayFailWhileJobsArePassedOn) {
  passingOnGoesOn(Kind::kAllocation);
}
TEST_F(HeldJobFaults, AnyThreadMayFailToStartWhileJobsArePassedOn) {
  passingOnGoesOn(Kind::kThread);
}
TEST_F(HeldJobFaults, AnyAllocationMayFailWhileJobsAreTaken) {
  takingGoesOn(Kind::kAllocation);
}
TEST_F(HeldJobFaults, AnyThreadMayFailToStartWhileJobsAreTaken) {
  takingGoesOn(Kind::kThread);
}
TEST_F(HeldJobFaults, AnyCallToTheFolderMayFailWhileJobsAreTaken) {
  takingGoesOn(Kind::kFile);
}
TEST_F(HeldJobFaults, AnyAllocationMayFailWhileJobsAreDelivered) {
  deliveringGoesOn(Kind::kAllocation);
}
TEST_F(HeldJobFaults, AnyThreadMayFailToStartWhileJobsAreDelivered) {
  deliveringGoesOn(Kind::kThread);
}
TEST_F(HeldJobFaults, AnyCallToTheFolderMayFailWhileJobsAreDelivered) {
  deliveringGoesOn(Kind::kFile);
}
TEST_F(HeldJobFaults, AnyAllocationMayFailWhileJobsAreListedAndCanceled) {
  cancelingGoesOn(Kind::kAllocation);
}
TEST_F(HeldJobFaults, AnyCallToTheFolderMayFailWhileJobsAreCanceled) {
  cancelingGoesOn(Kind::kFile);
}
TEST_F(HeldJobFaults, AnyAllocationMayFailWhileJobsAreGivenUp) {
  givingUpGoesOn(Kind::kAllocation);
}
TEST_F(HeldJobFaults, AnyCallToTheFolderMayFailWhileJobsAreGivenUp) {
  givingUpGoesOn(Kind::kFile);
}

// Longer than a single failure: who has no memory for what it wanted has none for the words about it either. What aps
// does every second by itself comes in between.
TEST_F(HeldJobFaults, WithoutAnyMemoryForAMomentApsLosesNoJobAndGoesOn) {
  int number = 0;
  for (int round = 0; round < 6 && !HasFailure(); ++round) {
    const auto begun = m_scene->begin(L"Letter", nameOf(++number));
    ASSERT_TRUE(begun);
    auto there = client();
    const auto until = std::chrono::steady_clock::now() + std::chrono::milliseconds(1500);
    arm(Kind::kAllAllocations, 0);
    const int first = number;
    try {
      begun->endJob();
    } catch (const CS_Exception&) {
      // It is told that its job failed.
    }
    while (std::chrono::steady_clock::now() < until) {
      EXPECT_NE(m_scene->print(L"Letter", nameOf(++number)), 1);
      EXPECT_ANY_THROW(m_scene->administration().jobs(1));
      EXPECT_FALSE(RememberingClient(*m_scene, m_scene->scene().port()).isThere());
      std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    EXPECT_TRUE(disarm());
    ASSERT_TRUE(isAlive()) << m_scene->server().output();
    there.reset();
    m_scene->awaitAway();
    ASSERT_EQ(m_scene->print(L"Letter", nameOf(++number)), 1) << m_scene->server().output();
    EXPECT_TRUE(arrives([&] { return g_taken.count(nameOf(number)) == 1 && m_scene->held().empty(); }))
        << m_scene->server().output();
    m_scene->awaitAway();
    EXPECT_LE(g_taken.count(nameOf(first)), 1u);
  }
  std::printf("%d requests while there was no memory\n", number);
}

// Where the folder cannot be used aps does not start and says so; what is held there stays, and nothing is lost.
TEST_F(HeldJobFaults, AnyCallToTheFolderMayFailWhileApsStarts) {
  ASSERT_EQ(m_scene->print(L"Letter", nameOf(0)), 1);
  ASSERT_TRUE(m_scene->awaitHeld(1));
  int refused = 0;
  const int failed = sweep(Kind::kFile, [&](int) {
    try {
      m_scene->scene().restartServer();
    } catch (const std::runtime_error& failure) {
      EXPECT_THAT(failure.what(), ::testing::HasSubstr("aps: no jobs can be held (--hold): "));
      EXPECT_EQ(m_scene->server().wait(), 1);
      ++refused;
    }
    const bool hasFailed = disarm();
    EXPECT_EQ(m_scene->held().size(), 1u);
    m_scene->scene().restartServer();
    (*m_control)->failed = hasFailed ? 1 : 0;
  });
  drain();
  EXPECT_EQ(g_taken.count(nameOf(0)), 1u);
  std::printf("%d failures while aps starts, %d of them an end with its reason\n", failed, refused);
}

}  // namespace
}  // namespace tests
