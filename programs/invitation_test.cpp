#include "programs/invitation.h"

#include <functional>
#include <gtest/gtest.h>
#include <stdexcept>

namespace programs {
namespace {

const std::string kCode = "0123456789abcdef0123456789abcdef";

std::string refusalOf(const std::function<void()>& action) {
  try {
    action();
  } catch (const std::invalid_argument& failure) {
    return failure.what();
  }
  return "";
}

TEST(HostAndPort, OfANameAndOfAddressesComeBackAsTheyWere) {
  for (const char* text : {"print.example:4712", "10.0.0.1:1", "[::1]:65535", "[fe80::1%eth0]:4712"}) {
    EXPECT_EQ(HostAndPort::parse(text).text(), text);
  }
  EXPECT_EQ(HostAndPort::parse("[fe80::1]:7").host, "fe80::1");
  EXPECT_EQ(HostAndPort::parse("[fe80::1]:7").port, 7);
}

TEST(HostAndPort, WithoutAPortThatCanBeDialedIsRefused) {
  for (const std::string text : {"", "h", "h:", ":1", "h:0", "h:65536", "h:99999999999", "h:-1", "h:1x", "h: 1"}) {
    EXPECT_EQ(refusalOf([&] { HostAndPort::parse(text); }),
              "\"" + text + "\" is not host and port; an example is 127.0.0.1:4711");
  }
}

TEST(HostAndPort, AnIpv6AddressStandsInBracketsAndNothingElseDoes) {
  for (const std::string text : {"::1:4712", "[h]:1", "[]:1", "[::1:1", "::1]:1", "a b:1", "a/b:1"}) {
    EXPECT_EQ(refusalOf([&] { HostAndPort::parse(text); }),
              "\"" + text + "\" is not host and port; an IPv6 address stands in brackets, as in [::1]:4711");
  }
}

TEST(Invitation, IsALineThatComesBackAsItWas) {
  const Invitation invitation{{"print.example", 4712}, 5, kCode};
  EXPECT_EQ(invitation.text(), "mgprint://print.example:4712/session-5/" + kCode);
  const Invitation back = Invitation::parse(invitation.text());
  EXPECT_EQ(back.server.host, "print.example");
  EXPECT_EQ(back.server.port, 4712);
  EXPECT_EQ(back.session, 5);
  EXPECT_EQ(back.code, kCode);
  EXPECT_EQ(Invitation::parse("mgprint://[::1]:1/session-2147483647/" + kCode).session, 2147483647);
}

TEST(Invitation, BlanksAndLineEndsAroundItDoNotCount) {
  EXPECT_EQ(Invitation::parse(" \tmgprint://h:1/session-5/" + kCode + "\r\n").text(),
            "mgprint://h:1/session-5/" + kCode);
}

TEST(Invitation, WhatIsWrongWithOneIsSaid) {
  const std::string rest =
      "; one looks like mgprint://print.example:4712/session-5/ and 32 hexadecimal digits, and has to be taken over as "
      "a "
      "whole";
  const auto refusal = [](const std::string& text) { return refusalOf([&] { Invitation::parse(text); }); };
  for (const std::string& text : {std::string(), std::string("  "), "http://h:1/session-5/" + kCode, kCode})
    EXPECT_EQ(refusal(text), "this is no invitation: it does not begin with mgprint://" + rest) << text;
  for (const std::string text : {"mgprint://h:1", "mgprint://h:1/session-5"})
    EXPECT_EQ(refusal(text), "this is no invitation: it ends before its code" + rest) << text;
  for (const std::string name :
       {"", "5", "session-", "session-0", "session-05", "session--5", "session-5x", "monitor", "session-2147483648"}) {
    EXPECT_EQ(refusal("mgprint://h:1/" + name + "/" + kCode), "this is no invitation: it names no session" + rest)
        << name;
  }
  for (const std::string& code :
       {kCode.substr(1), kCode + "0", std::string(32, 'g'), kCode.substr(1) + "A", kCode + "/"})
    EXPECT_EQ(refusal("mgprint://h:1/session-5/" + code), "this is no invitation: its code is cut or changed" + rest);
  EXPECT_EQ(refusal("mgprint://h/session-5/" + kCode), "this is no invitation: it names no host and port" + rest);
}

TEST(Invitation, EachCodeIsAnotherOneAndHasItsOwnKey) {
  const std::string one = Invitation::newCode();
  const std::string other = Invitation::newCode();
  EXPECT_EQ(Invitation::parse("mgprint://h:1/session-5/" + one).code, one);
  EXPECT_NE(one, other);
  EXPECT_EQ(Invitation::keyOf(one).bytes(), Invitation::keyOf(one).bytes());
  EXPECT_NE(Invitation::keyOf(one).bytes(), Invitation::keyOf(other).bytes());
}

}  // namespace
}  // namespace programs
