#include "client/options.h"

#include <gtest/gtest.h>
#include <string>
#include <vector>

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

TEST(PrintClientOptions, SayTheNameAndTheVersion) {
  const ParsedOptions parsed = parseOptions({"--version"});
  EXPECT_EQ(parsed.exitCode, 0);
  EXPECT_EQ(parsed.message, "printclient 4.0.1.0\n");
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

std::vector<std::string> withPrinters(std::vector<std::string> more) {
  more.insert(more.begin(), {"--session", "5"});
  return more;
}

TEST(PrintClientOptions, EachPrinterHasOnePlaceForItsJobs) {
  const auto says = [](const std::vector<std::string>& more) {
    const ParsedOptions parsed = parseOptions(withPrinters(more));
    EXPECT_EQ(parsed.exitCode, 2) << parsed.message;
    return parsed.message;
  };
  EXPECT_EQ(
      says({"--printer", "A,queue=a", "--printer", "B"}),
      "the jobs of the printer \"B\" have no place to go; give --output FOLDER, --command PROGRAM, or the printer a "
      "queue\n");
  EXPECT_EQ(says({"--printer", "A", "--output", "o", "--command", "/p"}),
            "--output and --command both say where jobs go; give one of them\n");
  EXPECT_EQ(says({"--printer", "A,queue=a", "--command", "/p"}),
            "--command gets no jobs, as each printer has a queue or a uri; leave out the one or the other\n");
  const std::string belongs = "--command-argument and --command-limit belong to a --command; name a program there\n";
  EXPECT_EQ(says({"--printer", "A", "--output", "o", "--command-argument", "x"}), belongs);
  EXPECT_EQ(says({"--printer", "A", "--output", "o", "--command-limit", "9"}), belongs);
  EXPECT_NE(says({"--printer", "A", "--output", ""}).find("--output: it is empty"), std::string::npos);
  EXPECT_NE(says({"--printer", "A", "--command", "/p", "--command-limit", "571"}).find("--command-limit"),
            std::string::npos);
}

TEST(PrintClientOptions, WithoutPrintersThoseOfTheUserAreChosen) {
  EXPECT_EQ(parseOptions({"--session", "5"}).exitCode, -1);
  const Options chosen = parseOptions(withPrinters({"--only", "a*", "--only", "b", "--except", "ab"})).options;
  EXPECT_EQ(chosen.only, (std::vector<std::string>{"a*", "b"}));
  EXPECT_EQ(chosen.except, (std::vector<std::string>{"ab"}));
  const ParsedOptions both = parseOptions(withPrinters({"--printer", "A,queue=a", "--only", "a"}));
  EXPECT_EQ(both.exitCode, 2);
  EXPECT_EQ(
      both.message,
      "--only and --except choose among this user's own printers, which come along without any --printer; leave out "
      "the one or the other\n");
}

TEST(PrintClientOptions, TakeQueuesAFolderOrAProgramWithItsArguments) {
  const Options folder =
      parseOptions(withPrinters({"--printer", "A,queue=a", "--printer", "B", "--output", "o"})).options;
  ASSERT_EQ(folder.targets.size(), 1u);
  EXPECT_EQ(folder.targets.at(L"A").queue, "a");
  EXPECT_EQ(folder.printers.size(), 2u);
  const ParsedOptions program =
      parseOptions(withPrinters({"--printer", "A", "--command", "/p", "--command-argument", "-d", "--command-argument",
                                 "a b", "--command-limit", "570"}));
  EXPECT_EQ(program.exitCode, -1) << program.message;
  EXPECT_EQ(program.options.command, "/p");
  EXPECT_EQ(program.options.commandArguments, (std::vector<std::string>{"-d", "a b"}));
  EXPECT_EQ(program.options.commandLimit, 570);
  EXPECT_EQ(parseOptions(withPrinters({"--printer", "A,queue=a"})).exitCode, -1);
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

TEST(PrintClientOptions, ARateIsForAServerOfAnotherMachine) {
  std::vector<std::string> arguments = {"--session", "5", "--printer", "L", "--output", "o", "--rate", "250KB"};
  EXPECT_EQ(
      parseOptions(arguments).message,
      "--rate is for a server of another machine, or one that is reached with --tls; leave out the one or add the "
      "other\n");
  arguments.insert(arguments.end(), {"--tls", "--key", "k"});
  EXPECT_EQ(parseOptions(arguments).options.rate, 250000u);
  EXPECT_EQ(parseOptions({"--rate", "250KB"}).options.rate, 250000u);
  EXPECT_EQ(
      parseOptions({"--session", "5", "--rate", "7"}).message,
      "--rate: a rate of 7 bytes a second is too low; 8000 is the least\nRun with --help for more information.\n");
}

TEST(PrintClientOptions, TakeWhatThePersonSeesOfTheJobs) {
  const ParsedOptions usual = parseOptions({"--session", "5", "--printer", "L", "--output", "o"});
  EXPECT_TRUE(usual.options.hasPage);
  EXPECT_TRUE(usual.options.hasNotices);
  EXPECT_FALSE(usual.options.showsPage);
  EXPECT_EQ(usual.options.keptDocuments, 20);
  const ParsedOptions less = parseOptions(
      {"--session", "5", "--printer", "L", "--output", "o", "--no-page", "--no-notices", "--keep-documents", "0"});
  ASSERT_EQ(less.exitCode, -1) << less.message;
  EXPECT_FALSE(less.options.hasPage);
  EXPECT_FALSE(less.options.hasNotices);
  EXPECT_EQ(less.options.keptDocuments, 0);
  EXPECT_TRUE(parseOptions({"--show"}).options.showsPage);
  EXPECT_EQ(parseOptions({"--show"}).exitCode, -1);
  EXPECT_EQ(parseOptions({"--keep-documents", "101"}).exitCode, 2);
}

Options serverAt(const std::string& host, int port) {
  Options options;
  options.host = host;
  options.port = port;
  return options;
}

TEST(PrintClientServers, EachPrintersNameSaysWhichOfSeveralServersItIsOn) {
  std::vector<Options> servers = {serverAt("print.example", 4711), serverAt("::1", 4712)};
  tellApart(servers);
  EXPECT_EQ(servers[0].nameThere(L"Laser-2"), L"Laser-2 on print.example");
  EXPECT_EQ(servers[1].nameThere(L"Laser-2"), L"Laser-2 on ::1");
  EXPECT_EQ(servers[0].label, "print.example:4711: ");
  EXPECT_EQ(servers[1].label, "[::1]:4712: ");
}

TEST(PrintClientServers, OnOneHostAreToldApartByTheirPorts) {
  std::vector<Options> servers = {serverAt("::1", 4711), serverAt("other", 4711), serverAt("::1", 4712)};
  tellApart(servers);
  EXPECT_EQ(servers[0].nameThere(L"Laser-2"), L"Laser-2 on [::1]:4711");
  EXPECT_EQ(servers[1].nameThere(L"Laser-2"), L"Laser-2 on other");
  EXPECT_EQ(servers[2].nameThere(L"Laser-2"), L"Laser-2 on [::1]:4712");
}

TEST(PrintClientServers, TheNamesAreThePersonsOwnWhereThereIsOne) {
  std::vector<Options> servers = {serverAt("print.example", 4711)};
  tellApart(servers);
  EXPECT_EQ(servers[0].nameThere(L"Laser-2"), L"Laser-2");
  EXPECT_EQ(servers[0].label, "");
}

TEST(PrintClientServers, ANameThatTheServerWouldFindTooLongStaysAsItIs) {
  std::vector<Options> servers = {serverAt("a", 1), serverAt("b", 1)};
  tellApart(servers);
  const std::wstring longest(195, L'x');  // and " on a"
  EXPECT_EQ(servers[0].nameThere(longest), longest + L" on a");
  EXPECT_EQ(servers[0].nameThere(longest + L"x"), longest + L"x");
}

}  // namespace
}  // namespace printclient
