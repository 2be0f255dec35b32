#include "client/page/page_guard.h"

#include <gtest/gtest.h>

namespace printclient {
namespace {

class PageGuardTest : public ::testing::Test {
 protected:
  PageGuardTest() { m_guard.setPort(4000); }

  // What the person's browser sends.
  PageRequest request(const std::string& method = "GET") const {
    PageRequest made;
    made.method = method;
    made.target = "/" + std::string(62, '0') + "ab/events";
    made.host = "127.0.0.1:4000";
    if (method == "POST") made.origin = "http://127.0.0.1:4000";
    made.site = "same-origin";
    made.mode = "cors";
    return made;
  }
  unsigned statusOf(const PageRequest& request) const {
    const auto refusal = m_guard.refusalOf(request);
    return refusal ? refusal->status : 0;
  }

  static corvane::Bytes32 secret() {
    corvane::Bytes32 bytes = {};
    bytes.back() = 0xab;
    return bytes;
  }
  PageGuard m_guard{secret()};
};

TEST_F(PageGuardTest, ThePersonsOwnPageIsLetIn) {
  EXPECT_EQ(m_guard.address(), "http://127.0.0.1:4000/" + std::string(62, '0') + "ab/");
  EXPECT_EQ(statusOf(request()), 0u);
  EXPECT_EQ(statusOf(request("POST")), 0u);
  EXPECT_EQ(PageGuard::pathOf(request()), "events");
  PageRequest byName = request("POST");
  byName.host = "localhost:4000";
  byName.origin = "http://localhost:4000";
  EXPECT_EQ(statusOf(byName), 0u);
}

TEST_F(PageGuardTest, WithoutTheWholeSecretThereIsNothing) {
  const std::string right = request().target;
  for (const std::string& target :
       {std::string("/"), std::string(""), std::string("/events"), right.substr(0, 64), right.substr(0, 65),
        "/" + std::string(62, '0') + "ac/events", "/1" + right.substr(2), "/" + std::string(62, '0') + "AB/events",
        "/" + std::string(62, '0') + "agx/events", "x" + right.substr(1), right.substr(0, 65) + "x/events"}) {
    PageRequest wrong = request();
    wrong.target = target;
    EXPECT_EQ(statusOf(wrong), 404u) << target;
  }
}

TEST_F(PageGuardTest, AnyOtherHostIsRefusedEvenWithTheSecret) {
  for (const std::string host : {"", "evil.example", "evil.example:4000", "127.0.0.1", "127.0.0.1:4001", "localhost",
                                 "127.0.0.1:4000.evil.example", "[::1]:4000", "LOCALHOST:4000", "127.0.0.1:04000"}) {
    PageRequest wrong = request();
    wrong.host = host;
    EXPECT_EQ(statusOf(wrong), 403u) << host;
  }
}

TEST_F(PageGuardTest, AnotherOriginIsRefusedAndAnActionNeedsOne) {
  for (const std::string origin : {"http://evil.example", "null", "https://127.0.0.1:4000", "http://127.0.0.1:4001",
                                   "http://localhost:4000", "http://127.0.0.1:4000/"}) {
    for (const char* const method : {"GET", "POST"}) {
      PageRequest wrong = request(method);
      wrong.origin = origin;
      EXPECT_EQ(statusOf(wrong), 403u) << method << " " << origin;
    }
  }
  PageRequest without = request("POST");
  without.origin.clear();
  EXPECT_EQ(statusOf(without), 403u);
}

TEST_F(PageGuardTest, FromAnotherSiteThePageCanBeOpenedAndNothingElse) {
  PageRequest opened = request();
  opened.site = "cross-site";
  opened.mode = "navigate";
  EXPECT_EQ(statusOf(opened), 403u) << "events are no page";
  opened.target = opened.target.substr(0, 66);
  EXPECT_EQ(statusOf(opened), 0u);
  opened.mode = "no-cors";
  EXPECT_EQ(statusOf(opened), 403u);
  PageRequest action = request("POST");
  action.site = "same-site";
  EXPECT_EQ(statusOf(action), 403u);
}

TEST_F(PageGuardTest, OtherMethodsAreNotKnown) {
  for (const char* const method : {"HEAD", "PUT", "DELETE", "OPTIONS", "get", ""})
    EXPECT_EQ(statusOf(request(method)), 405u) << method;
}

TEST_F(PageGuardTest, EachProcessHasASecretOfItsOwn) {
  PageGuard one, other;
  EXPECT_NE(one.address(), other.address());
  EXPECT_EQ(one.address().size(), std::string("http://127.0.0.1:0//").size() + 64);
}

}  // namespace
}  // namespace printclient
