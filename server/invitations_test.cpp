#include "server/invitations.h"

#include "corvane/records/exception.h"
#include "corvane/records/messages.h"
#include "programs/invitation.h"
#include "tests/support/corvane/key_files_fixture.h"

#include <atomic>
#include <chrono>
#include <filesystem>
#include <gtest/gtest.h>
#include <thread>
#include <vector>

namespace aps {
namespace {

using corvane::Identity;
using Guest = Invitations::Guest;

class InvitationsTest : public testing::Test {
 protected:
  corvane::Bytes32 markOf(const std::string& code) const { return programs::Invitation::keyOf(code).mark(); }
  corvane::Bytes32 sessionKey(int session) const { return m_folder.read(Identity::session(session)).bytes(); }
  // An invitation as an earlier or later time would have left it.
  std::string leave(long long secondsLeft) const {
    const std::string code = programs::Invitation::newCode();
    const auto now =
        std::chrono::duration_cast<std::chrono::seconds>(std::chrono::system_clock::now().time_since_epoch());
    m_files.write("session-5.invitation", code + " " + std::to_string(now.count() + secondsLeft) + "\n");
    return code;
  }

  const keys::KeyFiles m_files;
  const corvane::KeyFolder m_folder = m_files.folder();
  const Invitations m_invitations{m_folder};
};

TEST_F(InvitationsTest, OneForASessionWithoutAKeyMakesTheKeyAndGivesIt) {
  const std::string code = m_invitations.make(5, Guest::kNext);
  EXPECT_EQ(m_invitations.keyOf(5)->bytes(), programs::Invitation::keyOf(code).bytes());
  EXPECT_EQ(m_invitations.redeem(5, markOf(code))->bytes(), sessionKey(5));
}

TEST_F(InvitationsTest, IsGoodOnce) {
  const std::string code = m_invitations.make(5, Guest::kNext);
  EXPECT_TRUE(m_invitations.redeem(5, markOf(code)));
  EXPECT_FALSE(m_invitations.redeem(5, markOf(code)));
  EXPECT_FALSE(m_invitations.keyOf(5));
}

TEST_F(InvitationsTest, OfManyWhoRedeemItAtOnceOneGetsTheKey) {
  const corvane::Bytes32 mark = markOf(m_invitations.make(5, Guest::kNext));
  std::atomic<int> given{0};
  std::vector<std::jthread> guests;
  for (int i = 0; i < 16; ++i) {
    guests.emplace_back([&] {
      if (m_invitations.redeem(5, mark)) ++given;
    });
  }
  guests.clear();
  EXPECT_EQ(given, 1);
}

TEST_F(InvitationsTest, TheNextUserGetsANewKeyAndTheSameUserTheOneThatIsThere) {
  m_files.add("session-5", '5');
  const corvane::Bytes32 old = sessionKey(5);
  m_invitations.make(5, Guest::kSame);
  EXPECT_EQ(sessionKey(5), old);
  m_invitations.make(5, Guest::kNext);
  EXPECT_NE(sessionKey(5), old);
  EXPECT_FALSE(m_folder.isStill(Identity::session(5), corvane::Key(old).mark()));
}

TEST_F(InvitationsTest, ANewerOneMakesTheOlderOneVoidAlsoForAGuestWhoIsConnectedWithIt) {
  const std::string older = m_invitations.make(5, Guest::kNext);
  const std::string newer = m_invitations.make(5, Guest::kNext);
  EXPECT_FALSE(m_invitations.redeem(5, markOf(older)));
  EXPECT_EQ(m_invitations.redeem(5, markOf(newer))->bytes(), sessionKey(5));
}

TEST_F(InvitationsTest, IsForItsSessionOnly) {
  const std::string code = m_invitations.make(5, Guest::kNext);
  m_invitations.make(6, Guest::kNext);
  EXPECT_FALSE(m_invitations.redeem(6, markOf(code)));
  EXPECT_FALSE(m_invitations.keyOf(7));
}

TEST_F(InvitationsTest, IsOpenForTenMinutesAndNotWithoutEndAfterTheClockWasSetBack) {
  m_files.add("session-5", '5');
  for (const long long left : {0LL, -1LL, 605LL}) {
    const std::string code = leave(left);
    EXPECT_FALSE(m_invitations.keyOf(5)) << left;
    EXPECT_FALSE(m_invitations.redeem(5, markOf(code))) << left;
  }
  EXPECT_TRUE(m_invitations.redeem(5, markOf(leave(590))));
}

TEST_F(InvitationsTest, AFileThatIsNoneOpensNothing) {
  for (const char* content : {"", "abc", "abc 5", " 9999999999\n", "0123456789abcdef0123456789abcdef 99999999999x\n"}) {
    m_files.write("session-5.invitation", content);
    EXPECT_FALSE(m_invitations.keyOf(5)) << content;
  }
}

TEST_F(InvitationsTest, AKeyThatCannotBeUsedIsSaidAndNobodyIsInvited) {
  m_files.write("session-5.key", "broken");
  try {
    m_invitations.make(5, Guest::kSame);
    ADD_FAILURE() << "nothing was thrown";
  } catch (const CS_Exception& failure) {
    EXPECT_EQ(failure.number(), corvane::kKeyNeeded);
  }
  EXPECT_FALSE(m_invitations.keyOf(5));
  EXPECT_NO_THROW(m_invitations.make(5, Guest::kNext));
}

#ifndef _WIN32
TEST_F(InvitationsTest, ItsFileAndTheNewKeyAreTheirOwnersAlone) {
  m_invitations.make(5, Guest::kNext);
  for (const char* name : {"session-5.invitation", "session-5.key"}) {
    const auto mode = std::filesystem::status(m_files.path(name)).permissions() & std::filesystem::perms::all;
    EXPECT_EQ(mode, std::filesystem::perms::owner_read | std::filesystem::perms::owner_write) << name;
  }
  int files = 0;
  for ([[maybe_unused]] const auto& entry : std::filesystem::directory_iterator(m_folder.folder()))
    ++files;
  EXPECT_EQ(files, 2) << "what the key was made in stays behind";
}
#endif

}  // namespace
}  // namespace aps
