#include "server/access.h"

#include "protocol/names.h"

#include <gtest/gtest.h>

namespace aps {
namespace {

using corvane::Identity;

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

TEST(Access, LetsASessionRegisterUnderItsOwnNumberOnly) {
  EXPECT_EQ(sessionRefusal(Identity::session(5), 5), L"");
  EXPECT_EQ(sessionRefusal(Identity::session(5), 6), L"this print client has the key of session-5, not of session-6");
  EXPECT_NE(sessionRefusal(Identity::monitor(), 5), L"");
  EXPECT_NE(sessionRefusal(Identity::monitor(), 0), L"");
}

}  // namespace
}  // namespace aps
