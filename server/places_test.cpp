#include "server/places.h"

#include "protocol/names.h"

#include <gtest/gtest.h>

namespace aps {
namespace {

using corvane::Identity;

Places::Clock::time_point at(int second) {
  return Places::Clock::time_point(std::chrono::seconds(second));
}

TEST(Places, TheFirstComponentSaysWhatAConnectionIsFor) {
  EXPECT_EQ(roomFor(L"Quillfern::NTR::SessionHost"), Room::kClients);
  EXPECT_EQ(roomFor(L"Quillfern::NTR::AdministrationServer"), Room::kAdministration);
  for (const wchar_t* name : {L"Quillfern::NTR::PortMonitorClient", L"Quillfern::ComponentServer::ProgramMonitor_s",
                              L"Quillfern::ComponentServer::Bridge", L"Quillfern::ComponentServer::BridgeRouter"}) {
    EXPECT_EQ(roomFor(name), Room::kMonitor);
  }
  EXPECT_EQ(roomFor(L"Quillfern::NTR::PrintClient"), std::nullopt);
  EXPECT_EQ(roomFor(L""), std::nullopt);
}

TEST(Places, OnlyTheMonitorMaySayNothingForDays) {
  const Places places;
  EXPECT_EQ(places.idleOf(Room::kArriving), std::chrono::seconds(30));
  EXPECT_EQ(places.idleOf(Room::kArrivingFromNetwork), std::chrono::seconds(30));
  EXPECT_EQ(places.idleOf(Room::kClients), std::chrono::seconds(30));
  EXPECT_EQ(places.idleOf(Room::kAdministration), std::chrono::minutes(10));
  EXPECT_EQ(places.idleOf(Room::kMonitor), std::nullopt);
}

TEST(Places, TheRoomsTogetherAreTheBoundOfAll) {
  const Places places;
  std::size_t sum = 0;
  for (const Room room :
       {Room::kArriving, Room::kArrivingFromNetwork, Room::kClients, Room::kMonitor, Room::kAdministration})
    sum += places.limitOf(room);
  EXPECT_EQ(places.all, sum);
  EXPECT_EQ(places.limitOf(Room::kArriving), 256u);
  EXPECT_EQ(places.limitOf(Room::kArrivingFromNetwork), 128u);
  EXPECT_EQ(places.limitOf(Room::kClients), 320u);
  EXPECT_EQ(places.limitOf(Room::kMonitor), 512u);
  EXPECT_EQ(places.limitOf(Room::kAdministration), 16u);
}

TEST(Places, AreLookedAtEverySecondAndHoldARefusalBackForAMoment) {
  const Places places;
  EXPECT_EQ(places.lookEvery, std::chrono::seconds(1));
  EXPECT_EQ(places.beforeRefusal, std::chrono::milliseconds(10));
  EXPECT_EQ(places.heldBack, 64u);
  EXPECT_EQ(places.ofOneSession, 4u);
}

TEST(Places, OfOnePeersConnectionsTheOneThatIsSilentLongestMakesRoom) {
  EXPECT_EQ(connectionToClose({{"a", at(3)}, {"a", at(1)}, {"a", at(2)}}), 1u);
}

TEST(Places, WhoHasMostConnectionsMakesRoomHoweverSilentTheOthersAre) {
  EXPECT_EQ(connectionToClose({{"a", at(1)}, {"b", at(8)}, {"b", at(7)}, {"c", at(2)}}), 2u);
  EXPECT_EQ(connectionToClose({{"b", at(8)}, {"b", at(7)}, {"a", at(1)}, {"c", at(2)}}), 1u);
}

TEST(Places, AConnectionThatIsNeededNeverMakesRoomButCountsForItsOwner) {
  EXPECT_EQ(connectionToClose({{"a", at(1), true}, {"a", at(2)}, {"b", at(0)}}), 1u);
  EXPECT_EQ(connectionToClose({{"a", at(1), true}, {"a", at(2), true}, {"b", at(9)}}), 2u);
  EXPECT_EQ(connectionToClose({{"a", at(1), true}, {"b", at(2), true}}), std::nullopt);
  EXPECT_EQ(connectionToClose({}), std::nullopt);
}

TEST(Access, AnswersTheMonitorEverythingButTheRegistrationOfASession) {
  for (const wchar_t* name : {protocol::kPortMonitorClientClass, protocol::kAdministrationServerClass,
                              L"Quillfern::ComponentServer::ProgramMonitor_s", L"Quillfern::ComponentServer::Bridge",
                              L"Quillfern::ComponentServer::BridgeRouter"}) {
    EXPECT_EQ(accessRefusal(Identity::monitor(), name), L"") << name;
    EXPECT_EQ(accessRefusal(Identity::session(5), name), L"components of the class " + std::wstring(name) +
                                                             L" are for the monitor only, and this peer is session-5");
  }
}

TEST(Access, AnswersASessionItsRegistrationAndNothingElse) {
  EXPECT_EQ(accessRefusal(Identity::session(5), protocol::kSessionHostClass), L"");
  EXPECT_EQ(accessRefusal(Identity::monitor(), protocol::kSessionHostClass),
            L"components of the class Quillfern::NTR::SessionHost are for sessions only, and this peer is monitor");
  EXPECT_NE(accessRefusal(Identity::session(5), L"Quillfern::NTR::SomethingNew"), L"");
}

TEST(Access, GivesAGuestTheKeyOfTheInvitationAndNothingElse) {
  const Identity guest = Identity::invitation(5);
  EXPECT_EQ(accessRefusal(guest, protocol::kInvitationHostClass), L"");
  EXPECT_EQ(
      accessRefusal(guest, protocol::kSessionHostClass),
      L"components of the class Quillfern::NTR::SessionHost are for sessions only, and this peer is invitation-5");
  EXPECT_NE(accessRefusal(guest, protocol::kAdministrationServerClass), L"");
  EXPECT_EQ(
      accessRefusal(Identity::session(5), protocol::kInvitationHostClass),
      L"components of the class Quillfern::NTR::InvitationHost are for guests with an invitation only, and this peer "
      L"is session-5");
  EXPECT_NE(accessRefusal(Identity::monitor(), protocol::kInvitationHostClass), L"");
  EXPECT_NE(sessionRefusal(guest, 5), L"");
  EXPECT_EQ(roomFor(protocol::kInvitationHostClass), Room::kClients);
}

TEST(Access, LetsASessionRegisterUnderItsOwnNumberOnly) {
  EXPECT_EQ(sessionRefusal(Identity::session(5), 5), L"");
  EXPECT_EQ(sessionRefusal(Identity::session(5), 6), L"this print client has the key of session-5, not of session-6");
  EXPECT_NE(sessionRefusal(Identity::monitor(), 5), L"");
  EXPECT_NE(sessionRefusal(Identity::monitor(), 0), L"");
}

}  // namespace
}  // namespace aps
