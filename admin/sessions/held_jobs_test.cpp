#include "admin/sessions/held_jobs.h"

#include "programs/text.h"

#include <gmock/gmock.h>
#include <nlohmann/json.hpp>

namespace admin {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

constexpr wchar_t kSince[] = L"2026-01-31T23:59:59Z";

protocol::ServerStatus statusWith(std::vector<protocol::HeldForSession> held) {
  protocol::ServerStatus facts;
  for (const int number : {5, 6}) {
    protocol::ListedSession session;
    session.number = number;
    facts.sessions.push_back(session);
  }
  facts.held.emplace().list = std::move(held);
  return facts;
}

TEST(HeldJobs, AreSaidWithTheirBytesAndSinceWhen) {
  const std::string since = programs::localTime(kSince);
  EXPECT_EQ(heldText({5, 1, 11, kSince}), "1 job is held, 11 B, since " + since);
  EXPECT_EQ(heldText({5, 2, 9999, kSince}), "2 jobs are held, 9999 B, the oldest since " + since);
  EXPECT_EQ(heldText({5, 3, 10000, kSince}), "3 jobs are held, 10 kB, the oldest since " + since);
  EXPECT_EQ(heldText({5, 3, 5000000000, kSince}), "3 jobs are held, 5000 MB, the oldest since " + since);
}

TEST(HeldJobs, AreThoseOfTheirSession) {
  const auto facts = statusWith({{5, 2, 5000000000, kSince}, {7, 1, 1, kSince}});
  EXPECT_EQ(heldFor(facts, 5)->bytes, 5000000000);
  EXPECT_EQ(heldFor(facts, 6), nullptr);
  EXPECT_EQ(heldJson(facts, 5).dump(), R"({"jobs":2,"bytes":5000000000,"since":"2026-01-31T23:59:59Z"})");
  EXPECT_EQ(heldJson(facts, 6).dump(), R"({"jobs":0,"bytes":0,"since":null})");
}

TEST(HeldJobs, AreToldOfSessionsThatTheServerDoesNotList) {
  EXPECT_THAT(heldForOthers(statusWith({{5, 2, 11, kSince}, {7, 1, 1, kSince}})),
              ElementsAre(protocol::HeldForSession{7, 1, 1, kSince}));
}

TEST(HeldJobs, AreNotKnownFromAServerThatDoesNotTell) {
  EXPECT_EQ(heldFor({}, 5), nullptr);
  EXPECT_EQ(heldJson({}, 5).dump(), "null");
  EXPECT_THAT(heldForOthers({}), IsEmpty());
}

}  // namespace
}  // namespace admin
