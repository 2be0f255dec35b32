#include "server/session_table.h"

#include "server/printer_name.h"

#include <atomic>
#include <future>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace aps {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

Printer rawPrinter(const std::wstring& name) {
  Printer printer;
  printer.texts[0] = name;
  printer.format = protocol::DataFormat::kRaw;
  return printer;
}

class SessionTableTest : public ::testing::Test {
 protected:
  SessionTable::Admission enter(int session, std::vector<Printer> printers, const CS_RCPtr<CS_Connection>& client) {
    return m_table.enter(session, std::move(printers), CS_ClassVersionMap(), client);
  }

  SessionTable m_table{SessionTable::Limits{2, 3, {}}};
  CS_RCPtr<CS_Connection> m_client = CS_Connection::create();
  CS_RCPtr<CS_Connection> m_other = CS_Connection::create();
};

TEST(SessionTableLimits, AreThoseOfAServerThatIsGivenNone) {
  const SessionTable::Limits limits;
  EXPECT_EQ(limits.sessions, 256u);
  EXPECT_EQ(limits.printers, 64u);
  EXPECT_EQ(limits.texts(), 16384u);
  EXPECT_EQ(limits.clientWait, std::chrono::seconds(20));
}

TEST_F(SessionTableTest, NamesPrintersAfterTheClientsNameAndTheSession) {
  const auto admission = enter(5, {rawPrinter(L"Laser-2"), rawPrinter(L"Ink")}, m_client);
  EXPECT_TRUE(admission.accepted());
  EXPECT_THAT(admission.localNames, ElementsAre(L"Laser-2 (session 5)", L"Ink (session 5)"));
  EXPECT_THAT(m_table.localNames(5), ElementsAre(L"Laser-2 (session 5)", L"Ink (session 5)"));
}

TEST_F(SessionTableTest, FindsAPrinterByItsLocalNameInAnyCase) {
  enter(5, {rawPrinter(L"Laser-2"), rawPrinter(L"Ink")}, m_client);
  const auto found = m_table.find(L"INK (Session 5)");
  ASSERT_TRUE(found);
  EXPECT_EQ(found->printer.name(), L"Ink");
  EXPECT_EQ(found->session, 5);
  EXPECT_EQ(found->client.get(), m_client.get());
  EXPECT_FALSE(m_table.find(L"Ink"));
}

TEST_F(SessionTableTest, RefusesASecondClientForASession) {
  enter(5, {rawPrinter(L"Laser-2")}, m_client);
  EXPECT_EQ(enter(5, {rawPrinter(L"Other")}, m_other).refusal,
            L"session 5 has a print client already; stop that one first");
  EXPECT_THAT(m_table.localNames(5), ElementsAre(L"Laser-2 (session 5)"));
}

TEST_F(SessionTableTest, TheClientOfASessionMayBringOtherPrintersAndStaysSinceWhenItIsThere) {
  enter(5, {rawPrinter(L"Laser-2"), rawPrinter(L"Ink")}, m_client);
  const auto since = m_table.status()[0].since;
  EXPECT_TRUE(enter(5, {rawPrinter(L"Plotter"), rawPrinter(L"Ink")}, m_client).accepted());
  EXPECT_THAT(m_table.localNames(5), ElementsAre(L"Plotter (session 5)", L"Ink (session 5)"));
  EXPECT_FALSE(m_table.find(L"Laser-2 (session 5)"));
  EXPECT_EQ(m_table.find(L"Plotter (session 5)")->client.get(), m_client.get());
  EXPECT_EQ(m_table.status()[0].since, since);
  EXPECT_FALSE(enter(5, {}, m_client).accepted());
  EXPECT_THAT(m_table.localNames(5), ElementsAre(L"Plotter (session 5)", L"Ink (session 5)"));
}

TEST_F(SessionTableTest, KeepsThePrintersOfAClientThatLeft) {
  enter(5, {rawPrinter(L"Laser-2")}, m_client);
  EXPECT_TRUE(m_table.leave(5, m_client.get()));
  const auto found = m_table.find(L"Laser-2 (session 5)");
  ASSERT_TRUE(found);
  EXPECT_FALSE(found->client);
}

TEST_F(SessionTableTest, AComingBackReplacesThePrintersAndKeepsTheirNames) {
  enter(5, {rawPrinter(L"Laser-2"), rawPrinter(L"Old")}, m_client);
  m_table.leave(5, m_client.get());
  EXPECT_THAT(enter(5, {rawPrinter(L"New"), rawPrinter(L"Laser-2")}, m_other).localNames,
              ElementsAre(L"New (session 5)", L"Laser-2 (session 5)"));
  EXPECT_FALSE(m_table.find(L"Old (session 5)"));
  EXPECT_EQ(m_table.find(L"Laser-2 (session 5)")->client.get(), m_other.get());
}

TEST_F(SessionTableTest, OnlyTheSessionsOwnClientCanLeave) {
  enter(5, {rawPrinter(L"Laser-2")}, m_client);
  EXPECT_FALSE(m_table.leave(5, m_other.get()));
  EXPECT_FALSE(m_table.leave(6, m_client.get()));
  EXPECT_TRUE(m_table.find(L"Laser-2 (session 5)")->client);
}

TEST_F(SessionTableTest, SaysWhyItRefuses) {
  EXPECT_EQ(enter(0, {rawPrinter(L"A")}, m_client).refusal, L"session 0 does not exist; sessions are numbered from 1");
  EXPECT_EQ(enter(5, {}, m_client).refusal, L"session 5 registers no printer");
  EXPECT_EQ(enter(5, {rawPrinter(L"A"), rawPrinter(L"B"), rawPrinter(L"C"), rawPrinter(L"D")}, m_client).refusal,
            L"session 5 registers 4 printers, the limit is 3");
  EXPECT_EQ(enter(5, {rawPrinter(L"A"), rawPrinter(L"a")}, m_client).refusal,
            L"the printer \"a\" is listed twice; give each printer its own name");
}

TEST_F(SessionTableTest, TheSessionThatIsLongestWithoutClientMakesRoom) {
  enter(1, {rawPrinter(L"A")}, m_client);
  enter(2, {rawPrinter(L"A")}, m_other);
  EXPECT_EQ(enter(3, {rawPrinter(L"A")}, m_client).refusal,
            L"this server has 2 sessions with a print client, which is its limit");
  m_table.leave(2, m_other.get());
  m_table.leave(1, m_client.get());
  const auto admission = enter(3, {rawPrinter(L"A")}, m_client);
  EXPECT_TRUE(admission.accepted());
  EXPECT_EQ(admission.forgotten, 2);
  EXPECT_THAT(m_table.localNames(2), IsEmpty());
  EXPECT_FALSE(m_table.find(L"A (session 2)"));
  EXPECT_THAT(m_table.localNames(1), ElementsAre(L"A (session 1)"));
}

TEST_F(SessionTableTest, TellsEachSessionAndSinceWhenItIsConnectedOrNot) {
  const auto before = std::chrono::system_clock::now();
  EXPECT_FALSE(enter(7, {rawPrinter(L"B"), rawPrinter(L"A")}, m_client).forgotten);
  enter(5, {rawPrinter(L"C")}, m_other);
  const auto between = std::chrono::system_clock::now();
  m_table.leave(5, m_other.get());
  const auto all = m_table.status();
  ASSERT_EQ(all.size(), 2u);
  EXPECT_EQ(all[0].number, 5);
  EXPECT_FALSE(all[0].connected);
  EXPECT_GE(all[0].since, between);
  EXPECT_EQ(all[1].number, 7);
  EXPECT_TRUE(all[1].connected);
  EXPECT_GE(all[1].since, before);
  EXPECT_LE(all[1].since, between);
  ASSERT_EQ(all[1].printers.size(), 2u);
  EXPECT_EQ(all[1].printers[0].name(), L"B");
  EXPECT_EQ(all[1].printers[1].name(), L"A");
}

// A table that began this very moment and waits for so long.
SessionTable::Limits waiting(std::chrono::milliseconds time) {
  return {10, 3, time};
}

bool never() {
  return false;
}

TEST_F(SessionTableTest, WhoAsksBeforeAClientHasComeGetsItsPrinterWhenItComes) {
  SessionTable table(waiting(std::chrono::hours(1)));
  EXPECT_TRUE(table.isExpected(L"A (session 5)"));
  auto found = std::async(std::launch::async, [&] { return table.awaitClient(L"a (Session 5)", never); });
  auto names = std::async(std::launch::async, [&] { return table.awaitLocalNames(5, never); });
  table.enter(6, {rawPrinter(L"A")}, CS_ClassVersionMap(), m_other);
  table.enter(5, {rawPrinter(L"A")}, CS_ClassVersionMap(), m_client);
  EXPECT_EQ(found.get()->client.get(), m_client.get());
  EXPECT_THAT(names.get(), ElementsAre(L"A (session 5)"));
  EXPECT_FALSE(table.isExpected(L"A (session 5)"));
  EXPECT_TRUE(table.isExpected(L"A (session 7)"));
}

TEST_F(SessionTableTest, AClientThatHasGoneAMomentAgoIsWaitedForAndItsPrintersAreListedAtOnce) {
  SessionTable table(waiting(std::chrono::hours(1)));
  table.enter(5, {rawPrinter(L"A")}, CS_ClassVersionMap(), m_client);
  table.leave(5, m_client.get());
  EXPECT_TRUE(table.isExpected(L"A (session 5)"));
  EXPECT_THAT(table.awaitLocalNames(5, never), ElementsAre(L"A (session 5)"));
  auto found = std::async(std::launch::async, [&] { return table.awaitClient(L"A (session 5)", never); });
  table.enter(5, {rawPrinter(L"A")}, CS_ClassVersionMap(), m_other);
  EXPECT_EQ(found.get()->client.get(), m_other.get());
}

TEST_F(SessionTableTest, NobodyWaitsForWhoHasNotComeInTime) {
  SessionTable table(waiting(std::chrono::milliseconds(50)));
  EXPECT_FALSE(table.awaitClient(L"A (session 5)", never));
  EXPECT_THAT(table.awaitLocalNames(5, never), IsEmpty());
  EXPECT_FALSE(table.isExpected(L"A (session 5)"));
  table.enter(5, {rawPrinter(L"A")}, CS_ClassVersionMap(), m_client);
  table.leave(5, m_client.get());
  EXPECT_TRUE(table.isExpected(L"A (session 5)"));
  EXPECT_FALSE(table.isExpected(L"B (session 5)"));
  const auto found = table.awaitClient(L"A (session 5)", never);
  ASSERT_TRUE(found);
  EXPECT_FALSE(found->client);
}

TEST_F(SessionTableTest, ATableThatWaitsForNobodyAnswersAtOnce) {
  SessionTable table(waiting(std::chrono::milliseconds(0)));
  EXPECT_FALSE(table.isExpected(L"A (session 5)"));
  EXPECT_FALSE(table.awaitClient(L"A (session 5)", [] { return ADD_FAILURE() << "it waits", false; }));
}

TEST_F(SessionTableTest, AWaitEndsWhenTheCallerHasGivenUp) {
  SessionTable table(waiting(std::chrono::hours(1)));
  int asked = 0;
  EXPECT_FALSE(
      table.awaitClient(L"A (session 5)", [&] { return ++asked == 3; }));  // looked at again without being woken
  EXPECT_EQ(asked, 3);
  std::atomic<bool> givenUp{false};
  auto woken = std::async(std::launch::async, [&] { return table.awaitLocalNames(5, [&] { return givenUp.load(); }); });
  givenUp = true;
  table.wake();
  EXPECT_THAT(woken.get(), IsEmpty());
}

TEST_F(SessionTableTest, RememberedSessionsAreKnownWithoutClientAndWaitedFor) {
  SessionTable table(waiting(std::chrono::hours(1)));
  const auto since = std::chrono::system_clock::now() - std::chrono::hours(3);
  table.remember({{5, true, since, {rawPrinter(L"A"), rawPrinter(L"B")}}});
  EXPECT_THAT(table.awaitLocalNames(5, never), ElementsAre(L"A (session 5)", L"B (session 5)"));
  EXPECT_EQ(table.find(L"b (session 5)")->printer.name(), L"B");
  EXPECT_TRUE(table.isExpected(L"A (session 5)"));
  ASSERT_EQ(table.status().size(), 1u);
  EXPECT_FALSE(table.status()[0].connected);
  EXPECT_EQ(table.status()[0].since, since);
  table.enter(5, {rawPrinter(L"B")}, CS_ClassVersionMap(), m_client);
  EXPECT_FALSE(table.find(L"A (session 5)"));
}

TEST_F(SessionTableTest, MoreRememberedSessionsThanTheLimitLoseTheFirst) {
  m_table.remember(
      {{1, false, {}, {rawPrinter(L"A")}}, {2, false, {}, {rawPrinter(L"A")}}, {3, false, {}, {rawPrinter(L"A")}}});
  EXPECT_FALSE(m_table.find(L"A (session 1)"));
  EXPECT_TRUE(m_table.find(L"A (session 2)"));
  EXPECT_EQ(enter(4, {rawPrinter(L"A")}, m_client).forgotten, 2);
}

TEST_F(SessionTableTest, EachChangeIsToldOnceItCanBeSeen) {
  std::vector<std::size_t> connected;
  m_table.onChange([&] {
    std::size_t count = 0;
    for (const auto& session : m_table.known())
      count += session.connected ? 1 : 0;
    connected.push_back(count);
  });
  enter(1, {rawPrinter(L"A")}, m_client);
  enter(1, {rawPrinter(L"A")}, m_other);  // refused
  m_table.leave(1, m_other.get());        // not its client
  m_table.leave(1, m_client.get());
  EXPECT_THAT(connected, ElementsAre(1, 0));
}

TEST_F(SessionTableTest, RefusesDescriptionsThatAreTooLongTogether) {
  Printer wordy = rawPrinter(std::wstring(100, L'x'));
  const std::size_t limit = SessionTable::Limits{2, 3, {}}.texts();
  EXPECT_EQ(limit, 4096u + 3 * 192u);
  std::size_t left = limit - 100;
  for (std::size_t text = 1; left > 0; ++text) {
    wordy.texts[text] = std::wstring(std::min<std::size_t>(left, 1000), L'x');
    left -= wordy.texts[text]->size();
  }
  EXPECT_TRUE(enter(5, {wordy}, m_client).accepted());
  wordy.texts[7] = L"y";
  EXPECT_EQ(enter(6, {wordy}, m_client).refusal,
            L"session 6 describes its printers with 4673 characters, the limit is 4672; shorten the descriptions, or "
            L"start aps with a higher --max-printers");
}

// Each page as "5: Laser-2, Ink", and where the next one begins.
std::string pageText(const SessionTable::Page& page) {
  std::string text;
  for (const SessionTable::Status& session : page.sessions) {
    text += std::to_string(session.number) + (session.connected ? ":" : " away:");
    for (const Printer& printer : session.printers)
      text += " " + std::string(printer.name().begin(), printer.name().end());
    text += "; ";
  }
  return page.next ? text + "next " + std::to_string(page.next->session) + "." + std::to_string(page.next->printer)
                   : text + "end";
}

TEST(SessionTablePage, GivesSessionsInTheirOrderAsFarAsTheyFit) {
  SessionTable table{SessionTable::Limits{9, 9, {}}};
  const auto client = CS_Connection::create();
  table.enter(7, {rawPrinter(L"G")}, CS_ClassVersionMap(), client);
  table.enter(5, {rawPrinter(L"A"), rawPrinter(L"B"), rawPrinter(L"C")}, CS_ClassVersionMap(), client);
  table.enter(6, {rawPrinter(L"D"), rawPrinter(L"E")}, CS_ClassVersionMap(), client);
  table.leave(6, client.get());
  const std::size_t printer = 64 + 1 + kMaxPrinterName, session = 64;
  EXPECT_EQ(pageText(table.page({}, 100000)), "5: A B C; 6 away: D E; 7: G; end");
  EXPECT_EQ(pageText(table.page({}, session + 2 * printer)), "5: A B; next 5.2");
  EXPECT_EQ(pageText(table.page({5, 2}, session + 2 * printer)), "5: C; next 6.0");
  EXPECT_EQ(pageText(table.page({5, 2}, 2 * session + 2 * printer)), "5: C; 6 away: D; next 6.1");
  EXPECT_EQ(pageText(table.page({6, 1}, 100000)), "6 away: E; 7: G; end");
  EXPECT_EQ(pageText(table.page({8, 0}, 100000)), "end");
}

TEST(SessionTablePage, HoldsAPrinterAtLeastAndGoesOnBehindOnesThatHaveGone) {
  SessionTable table{SessionTable::Limits{9, 9, {}}};
  const auto client = CS_Connection::create();
  table.enter(5, {rawPrinter(L"A"), rawPrinter(L"B")}, CS_ClassVersionMap(), client);
  table.enter(6, {rawPrinter(L"D")}, CS_ClassVersionMap(), client);
  EXPECT_EQ(pageText(table.page({}, 1)), "5: A; next 5.1");
  EXPECT_EQ(pageText(table.page({5, 1}, 1)), "5: B; next 6.0");
  EXPECT_EQ(pageText(table.page({6, 0}, 1)), "6: D; end");
  EXPECT_EQ(pageText(table.page({5, 9}, 100000)), "5:; 6: D; end");
}

}  // namespace
}  // namespace aps
