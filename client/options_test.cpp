#include "client/options.h"

#include <gtest/gtest.h>

namespace printclient {
namespace {

TEST(PrintClientOptions, TakeTheServerTheSessionThePrintersAndTheFolder) {
  const ParsedOptions parsed = parseOptions({"--server", "localhost:4000", "--session", "5", "--printer",
                                             "Laser-2,driver=HP,format=pdf", "--printer", "Ink", "--output", "a b"});
  ASSERT_EQ(parsed.exitCode, -1) << parsed.message;
  EXPECT_EQ(parsed.options.host, "localhost");
  EXPECT_EQ(parsed.options.port, 4000);
  EXPECT_EQ(parsed.options.session, 5);
  ASSERT_EQ(parsed.options.printers.size(), 2u);
  EXPECT_EQ(parsed.options.printers[0].texts[0], L"Laser-2");
  EXPECT_EQ(parsed.options.printers[0].format, protocol::DataFormat::kPdf);
  EXPECT_EQ(parsed.options.printers[1].texts[0], L"Ink");
  EXPECT_EQ(parsed.options.output, "a b");
}

TEST(PrintClientOptions, TheServerIsOnThisMachineByDefault) {
  const ParsedOptions parsed = parseOptions({"--session", "5", "--printer", "L", "--output", "o"});
  EXPECT_EQ(parsed.options.host, "127.0.0.1");
  EXPECT_EQ(parsed.options.port, 4711);
  EXPECT_EQ(parsed.options.pace, 1);
}

TEST(PrintClientOptions, TakeTheKeyOfTheSession) {
  EXPECT_EQ(parseOptions({"--session", "5", "--printer", "L", "--output", "o"}).options.keyFile, "");
  EXPECT_EQ(parseOptions({"--session", "5", "--printer", "L", "--output", "o", "--key", "a b"}).options.keyFile, "a b");
  EXPECT_EQ(parseOptions({"--session", "5", "--printer", "L", "--output", "o", "--key", ""}).exitCode, 2);
}

TEST(PrintClientOptions, TakeAnIpv6AddressInBrackets) {
  const auto parse = [](const std::string& server) {
    return parseOptions({"--server", server, "--session", "5", "--printer", "L", "--output", "o"});
  };
  EXPECT_EQ(parse("[::1]:4712").exitCode, -1);
  EXPECT_EQ(parse("[::1]:4712").options.host, "::1");
  EXPECT_EQ(parse("[::1]:4712").options.port, 4712);
  for (const std::string wrong : {"::1:4712", "[localhost]:4712", "[]:4712", "[::1:4712", "::1]:4712"}) {
    EXPECT_EQ(parse(wrong).exitCode, 2) << wrong;
    EXPECT_EQ(parse(wrong).message, "--server \"" + wrong +
                                        "\" is not host and port; an IPv6 address stands in brackets, as in "
                                        "[::1]:4711\n");
  }
  EXPECT_EQ(parse("[::1]").exitCode, 2);
}

TEST(PrintClientOptions, ExplainWhatIsMissingOrWrong) {
  for (const char* option : {"--server", "--key"}) {
    const ParsedOptions noSession = parseOptions({"--printer", "L", "--output", "o", option, "127.0.0.1:1"});
    EXPECT_EQ(noSession.exitCode, 2);
    EXPECT_EQ(noSession.message, "--server and --key are for a --session: give its number as well\n");
  }
  EXPECT_NE(parseOptions({"--session", "0", "--printer", "L", "--output", "o"}).message.find("--session"),
            std::string::npos);
  const ParsedOptions server =
      parseOptions({"--server", "localhost", "--session", "5", "--printer", "L", "--output", "o"});
  EXPECT_EQ(server.exitCode, 2);
  EXPECT_EQ(server.message, "--server \"localhost\" is not host and port; an example is 127.0.0.1:4711\n");
  const ParsedOptions printer = parseOptions({"--session", "5", "--printer", "L,format=x", "--output", "o"});
  EXPECT_EQ(printer.exitCode, 2);
  EXPECT_NE(printer.message.find("there is no format \"x\""), std::string::npos);
}

TEST(PrintClientOptions, APortIsFrom1To65535) {
  const auto codeOf = [](const std::string& server) {
    return parseOptions({"--server", server, "--session", "5", "--printer", "L", "--output", "o", "--key", "k"})
        .exitCode;
  };
  for (const char* good : {"h:1", "h:65535"})
    EXPECT_EQ(codeOf(good), -1) << good;
  for (const char* bad : {"h:0", "h:65536", "h:", ":1", "h:x"})
    EXPECT_EQ(codeOf(bad), 2) << bad;
}

TEST(PrintClientOptions, WithoutASessionTheServersOfInvitationsAreMeant) {
  const ParsedOptions parsed = parseOptions(
      {"--printer", "L", "--output", "o", "--invitation", "mgprint://h:1/session-5/0", "--invitation", "f"});
  EXPECT_EQ(parsed.exitCode, -1) << parsed.message;
  EXPECT_EQ(parsed.options.session, 0);
  EXPECT_EQ(parsed.options.invitations, (std::vector<std::string>{"mgprint://h:1/session-5/0", "f"}));
}

TEST(PrintClientOptions, WhatLeavesThisMachineIsEncryptedAndNeedsTheKey) {
  const auto parse = [](const std::string& server, const std::vector<std::string>& more = {}) {
    std::vector<std::string> arguments = {"--server", server, "--session", "5", "--printer", "L", "--output", "o"};
    arguments.insert(arguments.end(), more.begin(), more.end());
    return parseOptions(arguments);
  };
  for (const char* own : {"127.0.0.1:1", "127.9.8.7:1", "localhost:1", "[::1]:1"}) {
    EXPECT_EQ(parse(own).exitCode, -1) << own;
    EXPECT_FALSE(parse(own).options.usesTls) << own;
    EXPECT_TRUE(parse(own, {"--tls", "--key", "k"}).options.usesTls) << own;
  }
  for (const char* other : {"10.0.0.1:1", "[fe80::1]:1", "print.example:1", "localhost.example:1", "1127.0.0.1:1"}) {
    EXPECT_TRUE(parse(other, {"--key", "k"}).options.usesTls) << other;
    EXPECT_EQ(parse(other).exitCode, 2) << other;
  }
  EXPECT_EQ(
      parse("print.example:4712").message,
      "print.example is reached under TLS only, with the key of the session: give the file with it with --key (the "
      "server makes it: aps --new-key FILE)\n");
  EXPECT_EQ(parse("127.0.0.1:4711", {"--tls"}).exitCode, 2);
}

}  // namespace
}  // namespace printclient
