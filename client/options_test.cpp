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
  EXPECT_NE(parseOptions({"--printer", "L", "--output", "o"}).message.find("--session is required"), std::string::npos);
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
    return parseOptions({"--server", server, "--session", "5", "--printer", "L", "--output", "o"}).exitCode;
  };
  for (const char* good : {"h:1", "h:65535"})
    EXPECT_EQ(codeOf(good), -1) << good;
  for (const char* bad : {"h:0", "h:65536", "h:", ":1", "h:x"})
    EXPECT_EQ(codeOf(bad), 2) << bad;
}

}  // namespace
}  // namespace printclient
