// Jobs for print clients that are away: aps takes them, and delivers each once, to who has the key.

#include "corvane/components/bridge.h"
#include "corvane/components/component_server.h"
#include "corvane/components/in_request.h"
#include "corvane/records/exception.h"
#include "corvane/trust/crypto.h"
#include "protocol/names.h"
#include "protocol/session.h"
#include "tests/processes/held_scene.h"
#include "tests/processes/process_table.h"
#include "tests/processes/process_watch.h"
#include "tests/support/joined_thread.h"
#include "tests/support/sanitized.h"

#include <atomic>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <future>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/stat.h>

namespace tests {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::SizeIs;

namespace fs = std::filesystem;

// What the server has written so far, also before it was ready.
bool says(const HeldScene& scene, const std::string& text) {
  return scene.server().output().find(text) != std::string::npos;
}

TEST(HeldJobs, AJobForAClientThatIsAwayIsHeldAndDeliveredWhenItIsBack) {
  HeldScene scene;
  scene.makeKnown();
  EXPECT_EQ(scene.print(L"Letter", "hello"), 1);
  EXPECT_THAT(
      scene.server().waitForLine("job held: "),
      HasSubstr("job held: job 1, printer \"Laser-2 (session 5)\", session 5: 5 bytes; it goes to the print client "
                "when that is back"));
  EXPECT_THAT(scene.held(), SizeIs(1));
  auto job = scene.job(1);
  EXPECT_EQ(job.state, kHeld);
  EXPECT_EQ(job.ended, L"");
  EXPECT_EQ(job.document, L"Letter");
  EXPECT_GE(job.bytes, 5);
  const auto client = scene.startClient();
  scene.server().waitForLine("held job delivered: job 1, printer \"Laser-2 (session 5)\", session 5: 5 bytes");
  EXPECT_THAT(scene.documents(), ElementsAre("hello"));
  EXPECT_TRUE(scene.awaitHeld(0));
  job = scene.job(1);
  EXPECT_EQ(job.state, kDelivered);
  EXPECT_NE(job.ended, L"");
}

TEST(HeldJobs, WhatIsHeldIsForTheOwnerOfTheFolderAlone) {
  HeldScene scene;
  scene.makeKnown();
  EXPECT_EQ(scene.print(L"Letter", "hello"), 1);
  const fs::path folder = scene.scene().folder() / "held";
  struct stat facts {};
  ASSERT_EQ(::stat(folder.c_str(), &facts), 0);
  EXPECT_EQ(facts.st_mode & 07777, 0700u);
  for (const auto& entry : fs::directory_iterator(folder)) {
    ASSERT_EQ(::stat(entry.path().c_str(), &facts), 0);
    EXPECT_EQ(facts.st_mode & 07777, 0600u) << entry.path();
  }
  EXPECT_EQ(scene.server().output().find("Letter"), std::string::npos);
}

TEST(HeldJobs, AfterARestartTheSessionIsStillKnownAndItsJobsAreDeliveredInOrder) {
  HeldScene scene;
  scene.makeKnown();
  EXPECT_EQ(scene.print(L"1", "one"), 1);
  ASSERT_TRUE(scene.awaitHeld(1));
  scene.server().signal(SIGTERM);
  scene.server().wait();
  scene.restartServer();
  EXPECT_TRUE(comesTrue([&] { return says(scene, "1 for 1 sessions now"); }, 60));
  EXPECT_EQ(scene.job(1).state, kHeld);
  EXPECT_EQ(scene.print(L"2", "two"), 1);
  scene.server().waitForLine("job held: job 2,");
  scene.server().signal(SIGKILL);
  scene.server().wait();
  scene.restartServer();
  EXPECT_EQ(scene.print(L"3", "three"), 1);
  const auto client = scene.startClient();
  client->waitForLine("printed \"1\": 3 bytes");
  client->waitForLine("printed \"2\": 3 bytes");
  client->waitForLine("printed \"3\": 5 bytes");
  EXPECT_TRUE(scene.awaitHeld(0));
  EXPECT_THAT(scene.documents(), ElementsAre("one", "two", "three"));
}

TEST(HeldJobs, AJobThatComesWhileOthersAreDeliveredDoesNotOvertakeThem) {
  HeldScene scene;
  scene.makeKnown();
  EXPECT_EQ(scene.print(L"1", std::string(3000000, 'x')), 1);
  EXPECT_EQ(scene.print(L"2", "two"), 1);
  ASSERT_TRUE(comesTrue([&] { return scene.held().size() == 2; }, 60));
  const auto client = scene.startClient(5, kSanitized ? "" : "fsync:/session5/.p");
  if (!kSanitized) {
    ASSERT_TRUE(waitUntilStopped(client->id(), 60));
  }
  EXPECT_EQ(scene.print(L"3", "three"), 1);
  client->signal(SIGCONT);
  client->waitForLine("printed \"1\": ");
  client->waitForLine("printed \"2\": ");
  client->waitForLine("printed \"3\": ");
  EXPECT_TRUE(scene.awaitHeld(0));
  EXPECT_EQ(scene.print(L"4", "four"), 1);
  client->waitForLine("printed \"4\": ");
  EXPECT_EQ(scene.server().output().find("job held: job 4"), std::string::npos);
}

TEST(HeldJobs, AnotherKeyOfTheSessionNeverGetsThem) {
  HeldScene scene;
  scene.makeKnown();
  EXPECT_EQ(scene.print(L"Secret", "for the first one"), 1);
  scene.server().waitForLine("job held: job 1,");
  scene.replaceKey(5);
  // What is printed before the new user has come is nobody's: it is refused as without --hold.
  EXPECT_EQ(scene.print(L"Letter", "for whom?"), std::nullopt);
  const auto client = scene.startClient();
  EXPECT_EQ(scene.print(L"Letter", "for the second one"), 1);
  client->waitForLine("printed \"Letter\": ");
  scene.restartServer();
  client->waitForLine("ready: ");
  EXPECT_EQ(scene.print(L"Letter", "once more"), 1);
  EXPECT_THAT(scene.documents(), ElementsAre("once more", "for the second one"));
  EXPECT_EQ(scene.job(1).state, kHeld);
  EXPECT_THAT(scene.held(), SizeIs(1));
  AdministrationPeer tool = scene.administration();
  const auto [isDone, text] = tool.cancel(1, L"PC\\admin");
  EXPECT_TRUE(isDone);
  EXPECT_EQ(text, L"job 1 \"Secret\" on \"Laser-2 (session 5)\", which was held, is canceled");
  EXPECT_THAT(scene.held(), IsEmpty());
  EXPECT_EQ(scene.job(1).state, kCanceled);
  EXPECT_EQ(scene.job(1).cause, L"It was canceled by PC\\admin.");
}

TEST(HeldJobs, WhatIsTooMuchIsRefusedWithItsWordsAndTakesNothingFromAnotherSession) {
  HeldScene scene({"--hold-jobs", "2", "--hold-size", "1"});
  scene.makeKnown(5);
  scene.makeKnown(6);
  EXPECT_EQ(scene.print(L"1", std::string(600000, 'x')), 1);
  const auto peer = scene.begin(L"2", std::string(600000, 'x'));
  ASSERT_NE(peer, nullptr);
  try {
    peer->endJob();
    ADD_FAILURE() << "the end was answered";
  } catch (const CS_Exception& failure) {
    EXPECT_THAT(
        failure.detail(),
        HasSubstr(L"with this job more than 1 MB would be held for session 5, which is the limit (--hold-size); "
                  L"start its print client, or cancel some jobs, and print again"));
  }
  EXPECT_THAT(scene.server().waitForLine("job not held: "), HasSubstr("more than 1 MB would be held for session 5"));
  auto job = scene.job(2);
  EXPECT_EQ(job.state, kFailed);
  EXPECT_EQ(job.cause, L"With this job more than 1 MB would be held for session 5, which is the limit (--hold-size).");
  EXPECT_EQ(job.remedy, L"Start its print client, or cancel some jobs, and print again.");
  EXPECT_EQ(scene.print(L"3", "small"), 1);
  ASSERT_TRUE(scene.awaitHeld(2));
  EXPECT_EQ(scene.print(L"4", "small"), std::nullopt);
  EXPECT_THAT(
      scene.server().waitForLine("job refused: "),
      HasSubstr("2 jobs are held for session 5, which is the limit (--hold-jobs); start its print client, or cancel "
                "some, and print again"));
  EXPECT_EQ(scene.print(L"5", "of another one", 6), 1);
  EXPECT_THAT(scene.held(".part"), IsEmpty());
}

TEST(HeldJobs, ADiskThatIsFullInTheMiddleOfAJobIsSaidAndPrintingGoesOn) {
  HeldScene scene;
  scene.scene().useLauncher({"/bin/sh", "-c", "ulimit -f 200; exec \"$0\" \"$@\""});
  scene.scene().restartServer();
  scene.makeKnown();
  EXPECT_EQ(scene.print(L"1", std::string(300000, 'x')), std::nullopt);
  EXPECT_THAT(scene.server().waitForLine("job not held: "),
              HasSubstr("the job cannot be written to the folder of held jobs: it cannot be written: "));
  EXPECT_THAT(scene.held(".part"), IsEmpty());
  EXPECT_EQ(scene.print(L"2", "small"), 1);
  const auto client = scene.startClient();
  client->waitForLine("printed \"2\": ");
}

TEST(HeldJobs, AFolderThatIsGoneIsSaidAndPrintingGoesOn) {
  HeldScene scene;
  scene.makeKnown();
  const auto client = scene.startClient(6);
  fs::remove_all(scene.scene().folder() / "held");
  EXPECT_EQ(scene.print(L"1", "hello"), std::nullopt);
  EXPECT_THAT(
      scene.server().waitForLine("job refused: "),
      HasSubstr("the folder of held jobs takes no file: it cannot be made: No such file or directory; make room "
                "there, or see who may write to it, and print again"));
  EXPECT_EQ(scene.print(L"2", "hello", 6), 1);
}

void damage(const fs::path& file, std::streamoff at) {
  std::fstream data(file, std::ios::in | std::ios::out | std::ios::binary);
  data.seekp(at);
  data.put('#');
}

TEST(HeldJobs, ADamagedFileIsSaidAndSetAsideAndTheOthersAreDelivered) {
  HeldScene scene;
  scene.makeKnown();
  const fs::path folder = scene.scene().folder() / "held";
  for (const char* text : {"one", "two", "three"})
    ASSERT_EQ(scene.print(std::wstring(text, text + std::strlen(text)), text), 1);
  ASSERT_TRUE(scene.awaitHeld(3));
  damage(folder / scene.held()[0], 1);                                                     // of its data
  fs::resize_file(folder / scene.held()[1], fs::file_size(folder / scene.held()[1]) - 1);  // found at the start
  scene.restartServer();
  EXPECT_TRUE(comesTrue([&] { return says(scene, " cannot be used: its end is not that of a held job; "); }, 60));
  EXPECT_TRUE(says(scene, "a held job is lost because its file "));
  const auto client = scene.startClient();
  EXPECT_THAT(scene.server().waitForLine("held job not printed: job 1,"),
              HasSubstr("the file of the held job is damaged: its checksum is wrong; it is set aside as "));
  client->waitForLine("printed \"three\": ");
  EXPECT_TRUE(scene.awaitHeld(0));
  EXPECT_THAT(scene.held(".damaged"), SizeIs(2));
  EXPECT_THAT(scene.documents(), ElementsAre("three"));
  EXPECT_EQ(scene.job(1).state, kFailed);
  EXPECT_THAT(scene.job(1).cause, HasSubstr(L"The file of the held job is damaged"));
}

TEST(HeldJobs, AJobWhosePrinterIsGoneWaitsWithItsReasonHoldsUpNoOtherAndGoesWhenThePrinterIsBack) {
  HeldScene scene;
  scene.startClient(5, "", {"Laser-2", "Ink"}).reset();
  scene.awaitAway();
  EXPECT_EQ(scene.print(L"1", "one"), 1);
  ASSERT_TRUE(scene.awaitHeld(1));
  auto client = scene.startClient(5, "", {"Ink"});
  EXPECT_THAT(
      scene.server().waitForLine("held job waits: job 1,"),
      HasSubstr("the printer \"Laser-2 (session 5)\" is not there any more; let the print client of session 5 bring "
                "it back, or cancel the job"));
  auto job = scene.job(1);
  EXPECT_EQ(job.state, kHeld);
  EXPECT_EQ(job.cause, L"The printer \"Laser-2 (session 5)\" is not there any more.");
  {
    MonitorPeer peer(scene.scene().port(), corvane::Identity::monitor(), scene.keyFile("monitor"));
    ASSERT_TRUE(peer.attach(L"Ink (session 5)"));
    peer.startJob({L"Ink - Job #18", L"Ink", L"2", L"RAW"}, {1, 1, 1, 1});
    peer.writeJob("two");
    EXPECT_EQ(peer.endJob(), 1);
  }
  client->waitForLine("printed \"2\": ");
  client.reset();
  client = scene.startClient();
  client->waitForLine("printed \"1\": ");
  EXPECT_TRUE(scene.awaitHeld(0));
  EXPECT_EQ(scene.job(1).state, kDelivered);
}

TEST(HeldJobs, AHeldJobCanBeCanceledWhileItIsDelivered) {
  if (kSanitized) GTEST_SKIP() << "nothing can be loaded in front of a sanitized program";
  HeldScene scene;
  scene.makeKnown();
  // So long that its end is not on its way when the client stops.
  EXPECT_EQ(scene.print(L"1", std::string(40000000, 'x')), 1);
  EXPECT_EQ(scene.print(L"2", "two"), 1);
  ASSERT_TRUE(scene.awaitHeld(2));
  const auto client = scene.startClient(5, "write:/session5/.p");
  ASSERT_TRUE(waitUntilStopped(client->id(), 60));
  AdministrationPeer tool = scene.administration();
  EXPECT_TRUE(tool.cancel(1, L"PC\\admin").first);
  client->signal(SIGCONT);
  client->waitForLine("printed \"2\": ");
  EXPECT_TRUE(scene.awaitHeld(0));
  EXPECT_EQ(scene.job(1).state, kCanceled);
  EXPECT_THAT(scene.documents(), ElementsAre("two"));
}

// One that remembers nothing is told apart from one that does, and gets its jobs all the same.
TEST(HeldJobs, AClientThatCannotRememberGetsThemToo) {
  HeldScene scene;
  scene.makeKnown();
  EXPECT_EQ(scene.print(L"1", "one"), 1);
  ASSERT_TRUE(scene.awaitHeld(1));
  std::ofstream(scene.scene().folder() / "no-folder") << "a file";
  const auto client = scene.startClient(5, "", {"Laser-2"}, "no-folder");
  client->waitForLine("what becomes of it cannot be remembered: ");
  client->waitForLine("printed \"1\": ");
  EXPECT_TRUE(scene.awaitHeld(0));
}

TEST(HeldJobs, WhatOneDeviceMayHaveTakenIsNotSentToAnotherOne) {
  if (kSanitized) GTEST_SKIP() << "nothing can be loaded in front of a sanitized program";
  HeldScene scene;
  scene.makeKnown();
  EXPECT_EQ(scene.print(L"Letter", "one"), 1);
  ASSERT_TRUE(scene.awaitHeld(1));
  {
    const auto first = scene.startClient(5, "rename:/session5/Letter");
    ASSERT_TRUE(waitUntilStopped(first->id(), 60));
    first->signal(SIGKILL);
    first->wait();
  }
  {
    const auto second = scene.startClient(5, "", {"Laser-2"}, "other");
    EXPECT_THAT(
        scene.server().waitForLine("held job waits: job 1,"),
        HasSubstr("another device of the session may have it: the connection was lost when it was about to take "
                  "it; start the print client there, or look whether the page is there and cancel the job"));
  }
  EXPECT_TRUE(fs::is_empty(scene.other()));
  const auto first = scene.startClient();
  EXPECT_TRUE(scene.awaitHeld(0));
  EXPECT_THAT(scene.documents(), ElementsAre("one"));
}

TEST(HeldJobs, ProgramsThatMayHavePrintedAJobDoNotGetItAgain) {
  HeldScene scene;
  scene.makeKnown();
  EXPECT_EQ(scene.print(L"Letter", "one"), 1);
  ASSERT_TRUE(scene.awaitHeld(1));
  const fs::path out = scene.scene().folder() / "printed";
  const std::vector<std::string> program = {"--command", "/bin/sh", "--command-argument=-c",
                                            "--command-argument=cat \"$0\" >>" + out.string() + "; sleep 100"};
  {
    const auto client = scene.startProgramClient(program);
    ASSERT_TRUE(comesTrue([&] { return fs::exists(out) && fs::file_size(out) == 3; }, 60));
    client->signal(SIGKILL);
    client->wait();
  }
  const auto client = scene.startProgramClient(program);
  EXPECT_THAT(
      scene.server().waitForLine("held job not printed: job 1,"),
      HasSubstr("printing was interrupted when the print client handed the document on, and nobody can tell what "
                "came of it; look whether the page is there, and print again if it is not"));
  EXPECT_TRUE(scene.awaitHeld(0));
  EXPECT_EQ(fs::file_size(out), 3u);
  EXPECT_EQ(scene.job(1).state, kFailed);
}

// A print client that the test speaks itself: an older one, which knows nothing of held jobs, or one whose person
// cancels each job when it comes.
enum class Conduct { kOlder, kOlderAndGoesAtTheEnd, kCanceling };
Conduct g_conduct = Conduct::kOlder;
std::atomic<int> g_starts{0};

class ScriptedPrintClient : public CS_Component {
 public:
  bool processRequest(CS_InRequest& request) override {
    if (request.number() == 4) {
      if (g_conduct != Conduct::kCanceling) return false;
      request.reply().writeInt(1);
      request.reply().writeText(L"a device");
      request.sendReply();
    } else if (request.number() == 1) {
      ++g_starts;
      const CS_RCPtr<CS_Component> bridge = getOwner();
      if (g_conduct == Conduct::kCanceling) {
        dynamic_cast<CS_Bridge&>(*bridge).leave(L"the person canceled the job");
        bridge->release();
      }
    } else if (request.number() == 3) {
      if (g_conduct == Conduct::kOlderAndGoesAtTheEnd) {
        CS_Connection::destroy(getConnection(), true);
        return true;
      }
      request.reply().writeInt(1);
      request.sendReply();
    }
    return true;
  }
};

class ScriptedClient {
 public:
  ScriptedClient(HeldScene& scene, Conduct conduct, int session = 5) {
    g_conduct = conduct;
    g_starts = 0;
    CS_ComponentServer::initialize(0, 0);
    CS_ComponentServer* const server = CS_ComponentServer::getServer();
    server->registerClass(protocol::kPrintClientClass,
                          new corvane::ComponentClass<ScriptedPrintClient>(protocol::kVersion));
    server->offerClass(protocol::kPrintClientClass);
    server->offerClass(CS_Bridge::m_className);
    protocol::registerSessionClientClass();
    m_connection->useKey(corvane::Identity::session(session), scene.keyFile("session-" + std::to_string(session)));
    m_connection->connect(L"localhost", scene.scene().port(), CS_Connection::kDirect, false);
    protocol::Printer printer;
    printer.texts[0] = L"Laser-2";
    EXPECT_TRUE(protocol::registerPrinters(m_connection, session, {printer}).isAccepted);
    m_thread = JoinedThread([this] { m_connection->serve(); });
  }
  ~ScriptedClient() {
    CS_Connection::destroy(m_connection, true);
    m_thread.join();
    CS_Bridge::waitForThreads(10000);
  }

 private:
  const CS_RCPtr<CS_Connection> m_connection = CS_Connection::create();
  JoinedThread m_thread;
};

TEST(HeldJobs, OneThatThePersonCancelsAtThePrintClientDoesNotComeAgain) {
  HeldScene scene;
  scene.makeKnown();
  EXPECT_EQ(scene.print(L"1", std::string(100000, 'x')), 1);
  ASSERT_TRUE(scene.awaitHeld(1));
  const ScriptedClient client(scene, Conduct::kCanceling);
  EXPECT_THAT(
      scene.server().waitForLine("held job not printed: job 1,"),
      HasSubstr("the print client let the job go: the person canceled the job; print again if it is still wanted"));
  EXPECT_TRUE(scene.awaitHeld(0));
  EXPECT_EQ(g_starts, 1);
  EXPECT_EQ(scene.job(1).state, kFailed);
}

TEST(HeldJobs, AnOlderPrintClientGetsThemOnce) {
  HeldScene scene;
  scene.makeKnown();
  EXPECT_EQ(scene.print(L"1", "one"), 1);
  ASSERT_TRUE(scene.awaitHeld(1));
  const ScriptedClient client(scene, Conduct::kOlder);
  EXPECT_TRUE(scene.awaitHeld(0));
  EXPECT_EQ(g_starts, 1);
  EXPECT_EQ(scene.job(1).state, kDelivered);
}

// What it may have printed is not sent again, and whoever waits for it is told to look.
TEST(HeldJobs, AnOlderPrintClientThatGoesAtTheEndOfOneDoesNotGetItAgain) {
  HeldScene scene;
  scene.makeKnown();
  EXPECT_EQ(scene.print(L"1", "one"), 1);
  ASSERT_TRUE(scene.awaitHeld(1));
  {
    const ScriptedClient client(scene, Conduct::kOlderAndGoesAtTheEnd);
    scene.server().waitForLine("session 5: the print client has gone");
  }
  const ScriptedClient client(scene, Conduct::kOlder);
  EXPECT_THAT(
      scene.server().waitForLine("held job not printed: job 1,"),
      HasSubstr("nobody can tell what came of it; look whether the page is there, and print again if it is not"));
  EXPECT_EQ(g_starts, 0);
  EXPECT_TRUE(scene.awaitHeld(0));
}

// What is held costs the disk, and nothing else

TEST(HeldJobs, ALongJobTakesNoMemoryWhenItIsHeldAndWhenItIsDelivered) {
  HeldScene scene;
  scene.makeKnown();
  EXPECT_EQ(scene.print(L"1", "small"), 1);
  const Held before = heldBy(scene.server().id());
  EXPECT_EQ(scene.print(L"2", std::string(150000000, 'x')), 1);
  const Held held = heldBy(scene.server().id());
  if (!kSanitized) {
    EXPECT_LT(held.kilobytes, before.kilobytes + 10000);
  }
  const ScriptedClient client(scene, Conduct::kOlder);
  EXPECT_TRUE(scene.awaitHeld(0));
  if (!kSanitized) {
    EXPECT_LT(heldBy(scene.server().id()).kilobytes, before.kilobytes + 15000);
  }
}

TEST(HeldJobs, ManyOfThemLeaveNothingBehindInTheServer) {
  // The server keeps what is known of the latest 200 jobs and more of them on the way there.
  const bool isLong = std::getenv("MG_LONG_TESTS") != nullptr;
  const int rounds = isLong ? 100 : 5, warmUp = isLong ? 30 : 1, jobs = 20;
  HeldScene scene;
  scene.makeKnown();
  Held before;
  for (int round = 0; round <= rounds; ++round) {
    for (int i = 0; i < jobs; ++i)
      ASSERT_EQ(scene.print(L"Letter", std::string(10000, 'x')), 1);
    {
      const ScriptedClient client(scene, Conduct::kOlder);
      ASSERT_TRUE(scene.awaitHeld(0));
    }
    scene.awaitAway();
    // The threads that deliver are collected by a later look.
    const auto isAtRest = [&] { return heldBy(scene.server().id()).threads <= before.threads; };
    if (round > warmUp) {
      EXPECT_TRUE(comesTrue(isAtRest, 60));
    }
    if (round == warmUp) before = heldAtRest(scene.server().id(), heldBy(scene.server().id()));
  }
  const Held after = heldAtRest(scene.server().id(), before);
  EXPECT_LE(after.threads, before.threads);
  EXPECT_LE(after.descriptors, before.descriptors);
  if (!kSanitized) {
    EXPECT_LT(after.kilobytes, before.kilobytes + 2000);
  }
  std::printf("%d more held jobs: %zu and %zu KiB, %zu and %zu threads, %zu and %zu descriptors\n",
              (rounds - warmUp) * jobs, before.kilobytes, after.kilobytes, before.threads, after.threads,
              before.descriptors, after.descriptors);
}

TEST(HeldJobs, SessionsThatAreAwayCostNoThreads) {
  const int sessions = std::getenv("MG_LONG_TESTS") != nullptr ? 1000 : 30;
  HeldScene scene({"--max-sessions", "1100"});
  scene.makeKnown();
  EXPECT_EQ(scene.print(L"1", "one"), 1);
  const Held before = heldBy(scene.server().id());
  for (int session = 100; session < 100 + sessions; ++session) {
    scene.makeKey(session);
    { const ScriptedClient client(scene, Conduct::kOlder, session); }
    scene.awaitAway(session);
    ASSERT_EQ(scene.print(L"Letter", std::string(100000, 'x'), session), 1) << session;
  }
  const Held after = heldAtRest(scene.server().id(), before);
  EXPECT_LE(after.threads, before.threads);
  EXPECT_LE(after.descriptors, before.descriptors);
  if (!kSanitized) {
    EXPECT_LT(after.kilobytes, before.kilobytes + 3000 + static_cast<std::size_t>(25 * sessions));
  }
  std::printf("%d sessions with a held job: %zu and %zu KiB, %zu and %zu threads\n", sessions, before.kilobytes,
              after.kilobytes, before.threads, after.threads);
}

// Killed at each stage

int runsOfEach() {
  return std::getenv("MG_LONG_TESTS") != nullptr ? 10 : 1;
}

// Nobody is told that a job is held that is not; and one of which nobody was told comes out once or not at all.
TEST(HeldJobs, AServerThatIsKilledWhileItTakesAJobHasItWholeOrNotAtAll) {
  if (kSanitized) GTEST_SKIP() << "nothing can be loaded in front of a sanitized program";
  int runs = 0;
  for (const std::string stage : {"write:.part", "fsync:.part", "rename:.job", "rename+:.job"}) {
    for (int run = 0; run < runsOfEach(); ++run, ++runs) {
      HeldScene scene({}, stage);
      scene.makeKnown();
      auto answer = std::async(std::launch::async, [&] { return scene.print(L"Letter", std::string(200000, 'x')); });
      ASSERT_TRUE(waitUntilStopped(scene.server().id(), 60)) << stage;
      scene.server().signal(SIGKILL);
      EXPECT_EQ(answer.get(), std::nullopt) << stage;
      scene.server().wait();
      scene.restartServer();
      const std::size_t held = stage == "rename+:.job" ? 1 : 0;
      EXPECT_THAT(scene.held(), SizeIs(held)) << stage;
      EXPECT_THAT(scene.held(".part"), IsEmpty()) << stage;
      EXPECT_EQ(scene.print(L"Next", "next"), 1) << stage;
      const auto client = scene.startClient();
      client->waitForLine("printed \"Next\": ");
      EXPECT_TRUE(scene.awaitHeld(0)) << stage;
      EXPECT_THAT(scene.documents(), SizeIs(held + 1)) << stage;
    }
  }
  std::printf("a server killed while it takes a job: %d runs\n", runs);
}

struct KillPoint {
  const char* server;  // where it stops, or nothing
  const char* client;
};

const KillPoint kKills[] = {
    {"rename:.sent", ""},  {"rename+:.sent", ""},  {"", "write:/session5/.p"},    {"", "fsync:/session5/.p"},
    {"", "rename:.begun"}, {"", "rename+:.begun"}, {"", "rename:/session5/Lett"}, {"", "rename+:/session5/Lett"},
    {"", "rename:.taken"}, {"", "rename+:.taken"}, {"unlink:.job", ""},           {"unlink+:.job", ""}};

// Kills one of the two, or both, when one of them has come to that stage of a delivery, and starts them again.
void killAndComeBack(const KillPoint& stage, bool killsServer, bool killsClient) {
  HeldScene scene({"--history", "{folder}/jobs.sqlite"}, stage.server);
  scene.makeKnown();
  ASSERT_EQ(scene.print(L"Letter", std::string(200000, 'x')), 1);
  ASSERT_TRUE(scene.awaitHeld(1));
  auto client = scene.startClient(5, stage.client);
  const ChildProcess& stopped = stage.client[0] != '\0' ? *client : scene.server();
  ASSERT_TRUE(waitUntilStopped(stopped.id(), 60));
  if (killsServer) scene.server().signal(SIGKILL);
  if (killsClient) client->signal(SIGKILL);
  if (killsServer) scene.server().wait();
  if (killsClient) client->wait();
  if (killsServer) scene.restartServer();
  if (!(stage.client[0] != '\0' ? killsClient : killsServer)) stopped.signal(SIGCONT);
  if (killsClient) client = scene.startClient();
  EXPECT_TRUE(scene.awaitHeld(0));
  // Whoever had it has put it where it belongs by now, once.
  ASSERT_EQ(scene.print(L"Next", "next"), 1);
  client->waitForLine("printed \"Next\": ");
  EXPECT_THAT(scene.documents(), ElementsAre("200000 bytes", "next"));
  EXPECT_EQ(scene.job(1).state, kDelivered);
}

TEST(HeldJobs, EachArrivesOnceWhoeverIsKilledWhileItIsDelivered) {
  if (kSanitized) GTEST_SKIP() << "nothing can be loaded in front of a sanitized program";
  int runs = 0;
  for (const KillPoint& stage : kKills) {
    for (const int who : {1, 2, 3}) {
      for (int run = 0; run < runsOfEach() && !::testing::Test::HasFailure(); ++run, ++runs) {
        SCOPED_TRACE(std::string("aps at \"") + stage.server + "\", print client at \"" + stage.client +
                     "\", killed: " +
                     (who == 1   ? "aps"
                      : who == 2 ? "print client"
                                 : "both"));
        killAndComeBack(stage, (who & 1) != 0, (who & 2) != 0);
      }
    }
  }
  std::printf("killed while a job is delivered: %d runs\n", runs);
}

// The week of a person who comes and goes

corvane::Bytes32 sha(const std::string& data) {
  const unsigned char key[1] = {0};
  return corvane::hmacSha256(key, std::span(reinterpret_cast<const unsigned char*>(data.data()), data.size()));
}

std::string randomData(std::size_t size) {
  std::string data(size, '\0');
  corvane::fillWithRandom(std::span(reinterpret_cast<unsigned char*>(data.data()), data.size()));
  return data;
}

TEST(HeldJobs, TheWeekOfAPersonWhoComesAndGoes) {
  const bool isLong = std::getenv("MG_LONG_TESTS") != nullptr;
  const int absences = isLong ? 20 : 4, jobsOfEach = isLong ? 10 : 5, restartEvery = isLong ? 4 : 2;
  HeldScene scene({"--history", "{folder}/jobs.sqlite"});
  scene.makeKnown();
  std::vector<corvane::Bytes32> printed;
  std::vector<std::string> names;
  int restarts = 0;
  for (int absence = 0; absence < absences; ++absence) {
    for (int i = 0; i < jobsOfEach; ++i) {
      const std::string data = randomData(1 + (printed.size() * 7919) % 300000);
      char name[32];
      std::snprintf(name, sizeof name, "Letter %03zu", printed.size());
      names.push_back(name);
      printed.push_back(sha(data));
      ASSERT_EQ(scene.print(std::wstring(name, name + std::strlen(name)), data), 1) << name;
      if (i == jobsOfEach / 2 && absence % restartEvery == 0) {
        scene.server().signal(absence % (2 * restartEvery) == 0 ? SIGKILL : SIGTERM);
        scene.server().wait();
        scene.restartServer();
        ++restarts;
      }
    }
    const auto client = scene.startClient();
    for (int i = 0; i < jobsOfEach; ++i) {
      const std::size_t job = printed.size() - static_cast<std::size_t>(jobsOfEach - i);
      client->waitForLine("printed \"" + names[job] + "\": ");
    }
    ASSERT_TRUE(scene.awaitHeld(0));
    client->signal(SIGTERM);
    client->wait();
    scene.awaitAway();
  }
  std::vector<corvane::Bytes32> arrived;
  for (const std::string& document : scene.contents())
    arrived.push_back(sha(document));
  EXPECT_EQ(arrived, printed);
  std::printf("%zu jobs over %d absences and %d restarts, all in order\n", printed.size(), absences, restarts);
}

}  // namespace
}  // namespace tests
