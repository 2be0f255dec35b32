#include "admin/sessions/session_watch.h"

#include "admin/base/failure.h"
#include "admin/sessions/test_session.h"

#include <gtest/gtest.h>
#include <sstream>

namespace admin {
namespace {

using namespace std::chrono_literals;

protocol::ListedSession session(int number, bool isConnected) {
  protocol::ListedSession facts;
  facts.number = number;
  facts.isConnected = isConnected;
  return facts;
}

// What the watch does to sessions becomes lines between those that it says.
class SessionWatchTest : public testing::Test {
 protected:
  SessionWatchTest()
      : output(out, out, false),
        watch({[this](const protocol::ListedSession& facts) { return up(facts); },
               [this](unsigned number) { return down(number); },
               [this](unsigned number) { return present.count(static_cast<int>(number)) == 1; },
               [this](int number, const RefusedPrinter& printer) {
                 if (serverIsAway) throw Failure(ExitCode::kServerAway, "away", "");
                 told.push_back(std::to_string(number) + " " + printer.why);
               }},
              10s, output) {}

  SessionChange up(const protocol::ListedSession& facts) {
    if (!trouble.empty()) throw Failure(ExitCode::kFailed, trouble, "Mend it.");
    SessionChange change;
    change.refused = refused;
    for (const protocol::ListedPrinter& printer : facts.printers)
      change.kept.push_back(printer.localName);
    change.portAdded = present.insert(facts.number).second;
    return change;
  }
  SessionChange down(unsigned number) {
    present.erase(static_cast<int>(number));
    SessionChange change;
    change.portRemoved = true;
    return change;
  }
  void see(std::vector<protocol::ListedSession> sessions, std::chrono::seconds at) {
    protocol::ServerStatus facts;
    facts.sessions = std::move(sessions);
    watch.see(facts, SessionWatch::Clock::time_point() + 1000s + at);
  }
  // What was said since the last time.
  std::string said() {
    std::string text = out.str();
    out.str("");
    return text;
  }

  std::set<int> present;
  std::string trouble;
  std::vector<RefusedPrinter> refused;
  bool serverIsAway = false;
  std::vector<std::string> told;  // to the sessions' print clients
  std::ostringstream out;
  Output output;
  SessionWatch watch;
};

TEST_F(SessionWatchTest, BringsUpWhoComesAndSaysItOnce) {
  see({session(5, true)}, 0s);
  EXPECT_EQ(said(), "port CPP5 was added\n");
  see({session(5, true)}, 2s);
  EXPECT_EQ(said(), "");
}

TEST_F(SessionWatchTest, TakesDownWhoIsGoneForTheGrace) {
  see({session(5, true)}, 0s);
  see({session(5, false)}, 2s);
  see({session(5, false)}, 11s);
  EXPECT_EQ(said(), "port CPP5 was added\n");
  see({session(5, false)}, 12s);
  EXPECT_EQ(said(), "port CPP5 was deleted\n");
}

TEST_F(SessionWatchTest, AClientThatComesBackInTimeKeepsItsPrinters) {
  see({session(5, true)}, 0s);
  see({session(5, false)}, 2s);
  see({session(5, true)}, 9s);
  see({session(5, false)}, 10s);
  see({session(5, false)}, 19s);
  EXPECT_EQ(said(), "port CPP5 was added\n");
}

TEST_F(SessionWatchTest, AServerThatHasForgottenASessionDoesNotKeepItUp) {
  see({session(5, true)}, 0s);
  see({}, 2s);
  see({}, 12s);
  EXPECT_EQ(said(), "port CPP5 was added\nport CPP5 was deleted\n");
}

TEST_F(SessionWatchTest, ASessionThatWasUpBeforeItsClientWentIsTakenDown) {
  present = {7};
  see({session(7, false)}, 0s);
  see({session(7, false)}, 10s);
  EXPECT_EQ(said(), "port CPP7 was deleted\n");
}

TEST_F(SessionWatchTest, WhileTheServerIsAwayNobodyGoesDownAndItIsSaidOnce) {
  see({session(5, true)}, 0s);
  said();
  see({session(5, false)}, 2s);
  watch.seeNothing("it is away");
  watch.seeNothing("it is away");
  EXPECT_EQ(said(), "it is away; waiting for it\n");
  see({session(5, false)}, 60s);
  EXPECT_EQ(said(), "the application server is back\n");
  see({session(5, false)}, 70s);
  EXPECT_EQ(said(), "port CPP5 was deleted\n");
}

TEST_F(SessionWatchTest, ATroubleIsSaidWhenItBeginsAndWhenItChanges) {
  trouble = "no spooler";
  see({session(5, true)}, 0s);
  see({session(5, true)}, 2s);
  EXPECT_EQ(said(), "session 5 cannot be brought up: no spooler. Mend it.\n");
  trouble.clear();
  refused = {{L"Laser", "a driver is missing", "Install it."}};
  see({session(5, true)}, 4s);
  see({session(5, true)}, 6s);
  EXPECT_EQ(said(), "port CPP5 was added\na driver is missing. Install it.\n");
}

TEST_F(SessionWatchTest, RefusedPrintersAreOneLineWithWhatToDoSaidOnce) {
  refused = {{L"A", "A is bad", "Mend it."}, {L"B", "B is bad", "Mend it."}, {L"C", "C is odd", "Ask."}};
  see({session(5, true)}, 0s);
  EXPECT_EQ(said(), "port CPP5 was added\nA is bad; B is bad. Mend it. C is odd. Ask.\n");
}

TEST_F(SessionWatchTest, ARefusedPrinterIsToldToEachClientOnce) {
  refused = {{L"Laser", "a driver is missing", "Install it."}};
  see({session(5, true)}, 0s);
  see({session(5, true)}, 2s);
  EXPECT_EQ(told, std::vector<std::string>{"5 a driver is missing"});
  see({session(5, false)}, 4s);
  see({session(5, true)}, 6s);
  EXPECT_EQ(told.size(), 2u);
  refused.push_back({L"Ink", "a name is bad", "Rename it."});
  see({session(5, true)}, 8s);
  EXPECT_EQ(told.size(), 4u);
}

TEST_F(SessionWatchTest, ARefusedPrinterIsToldAgainWhenTheServerWasAway) {
  refused = {{L"Laser", "a driver is missing", "Install it."}};
  serverIsAway = true;
  see({session(5, true)}, 0s);
  EXPECT_EQ(said(), "port CPP5 was added\na driver is missing. Install it.\n");
  EXPECT_TRUE(told.empty());
  serverIsAway = false;
  see({session(5, true)}, 2s);
  EXPECT_EQ(told.size(), 1u);
  EXPECT_EQ(said(), "");
}

TEST_F(SessionWatchTest, AnotherDefaultPrinterOfTheClientIsSaidOnce) {
  protocol::ListedSession facts = session(5, true);
  facts.printers.resize(2);
  facts.printers[0].localName = L"Laser";
  facts.printers[1].localName = L"Ink";
  facts.printers[0].isDefault = true;
  see({facts}, 0s);
  see({facts}, 2s);
  EXPECT_EQ(said(), "port CPP5 was added\nsession 5: the client's default printer is \"Laser\"\n");
  facts.printers[0].isDefault = false;
  see({facts}, 4s);
  EXPECT_EQ(said(), "");
  facts.printers[1].isDefault = true;
  see({facts}, 6s);
  EXPECT_EQ(said(), "session 5: the client's default printer is \"Ink\"\n");
  // A session that was down has another client, who is to be told of as well.
  see({}, 8s);
  see({}, 18s);
  said();
  see({facts}, 20s);
  EXPECT_EQ(said(), "port CPP5 was added\nsession 5: the client's default printer is \"Ink\"\n");
}

TEST_F(SessionWatchTest, TheDoctorsSessionsAreLeftAlone) {
  see({session(kFirstTestSession, true)}, 0s);
  EXPECT_EQ(said(), "");
  EXPECT_TRUE(present.empty());
}

}  // namespace
}  // namespace admin
