#include "server/options.h"

#include "programs/data_folder.h"

#include <gtest/gtest.h>

namespace aps {
namespace {

TEST(ApsOptions, ListenOnLoopbackByDefault) {
  const ParsedOptions parsed = parseOptions({});
  EXPECT_EQ(parsed.exitCode, -1);
  EXPECT_EQ(parsed.options.listen, "127.0.0.1:4711");
}

TEST(ApsOptions, SayTheNameAndTheVersion) {
  for (const std::vector<std::string>& words : {std::vector<std::string>{"--version"}, {"invite", "--version"}}) {
    const ParsedOptions parsed = parseOptions(words);
    EXPECT_EQ(parsed.exitCode, 0);
    EXPECT_EQ(parsed.message, "aps 4.0.1.0\n");
  }
}

TEST(ApsOptions, TakeTheAddressTheLogAndTheBounds) {
  const ParsedOptions parsed = parseOptions({"--listen", "[::1]:0", "--log", "a b.log", "--max-connections", "7",
                                             "--max-sessions", "8", "--max-printers", "9"});
  EXPECT_EQ(parsed.exitCode, -1) << parsed.message;
  EXPECT_EQ(parsed.options.listen, "[::1]:0");
  EXPECT_EQ(parsed.options.logFile, "a b.log");
  EXPECT_EQ(parsed.options.maxConnections, 7u);
  EXPECT_EQ(parsed.options.limits.sessions, 8u);
  EXPECT_EQ(parsed.options.limits.printers, 9u);
}

TEST(ApsOptions, TakeRatesAndCompressionForClientsOfOtherMachinesOnly) {
  EXPECT_TRUE(parseOptions({}).options.packsJobs);
  const ParsedOptions parsed = parseOptions({"--listen-clients", "0.0.0.0:1", "--keys", "k", "--client-rate", "250KB",
                                             "--client-rate", "5=1MB", "--no-compression"});
  EXPECT_EQ(parsed.exitCode, -1) << parsed.message;
  EXPECT_EQ(parsed.options.clientRates.of(4), 250000u);
  EXPECT_EQ(parsed.options.clientRates.of(5), 1000000u);
  EXPECT_FALSE(parsed.options.packsJobs);
  for (const std::vector<std::string>& alone :
       {std::vector<std::string>{"--no-compression"}, {"--client-rate", "250KB"}, {"--client-rate", "5=250KB"}}) {
    EXPECT_EQ(parseOptions(alone).exitCode, 2);
    EXPECT_EQ(parseOptions(alone).message,
              "--client-rate and --no-compression are for print clients of other machines, which come to "
              "--listen-clients; give their address there, or leave these out\n");
  }
  EXPECT_EQ(parseOptions({"--client-rate", "fast"}).exitCode, 2);
  EXPECT_EQ(parseOptions({"--client-rate", "fast"}).message,
            "--client-rate: \"fast\" is not a rate; an example is 250KB, which are bytes a second\n");
}

TEST(ApsOptions, TakeAnAddressForMetricsAndExplainWhatIsNone) {
  EXPECT_EQ(parseOptions({}).options.metrics, "");
  EXPECT_EQ(parseOptions({"--metrics", "9464"}).options.metrics, "9464");
  EXPECT_EQ(parseOptions({"--metrics", ""}).exitCode, 2);
  const ParsedOptions wrong = parseOptions({"--metrics", "here"});
  EXPECT_EQ(wrong.exitCode, 2);
  EXPECT_EQ(
      wrong.message,
      "--metrics: \"here\" is not an address and port; an example is 127.0.0.1:9464 (9464 alone means the same, and "
      "port 0 takes any free port)\n");
}

TEST(ApsOptions, TakeALogOfJobsOnlyBesideTheirHistory) {
  EXPECT_EQ(parseOptions({}).options.jobLog, "");
  EXPECT_EQ(parseOptions({"--history", "h", "--job-log", "jobs.json"}).options.jobLog, "jobs.json");
  EXPECT_EQ(parseOptions({"--history", "h", "--job-log", ""}).exitCode, 2);
  const ParsedOptions alone = parseOptions({"--job-log", "jobs.json"});
  EXPECT_EQ(alone.exitCode, 2);
  EXPECT_EQ(
      alone.message,
      "--job-log takes the records of jobs from their history, which numbers them and keeps what the log cannot be "
      "given: name a file for it with --history\n");
}

TEST(ApsOptions, TheHelpOfInviteSaysWhereTheKeysAreNamed) {
  EXPECT_NE(parseOptions({"invite", "--help"}).message.find("--keys FOLDER of aps may stand here, too"),
            std::string::npos);
}

TEST(ApsOptions, TakeAPaceThatTheirHelpDoesNotShow) {
  EXPECT_EQ(parseOptions({}).options.pace, 1);
  EXPECT_EQ(parseOptions({"--pace", "100"}).options.pace, 100);
  EXPECT_GT(parseOptions({"--pace", "0"}).exitCode, 0);
  EXPECT_EQ(parseOptions({"--help"}).message.find("pace"), std::string::npos);
}

TEST(ApsOptions, PeersNeedKeysUnlessItIsTypedThatTheyDoNot) {
  EXPECT_EQ(parseOptions({}).options.keys, programs::keyFolder());
  EXPECT_FALSE(parseOptions({}).options.namesKeys);
  EXPECT_EQ(parseOptions({"--keys", "a b"}).options.keys, "a b");
  EXPECT_TRUE(parseOptions({"--keys", "a b"}).options.namesKeys);
  EXPECT_EQ(parseOptions({"--no-keys"}).options.keys, "");
  EXPECT_TRUE(parseOptions({"--no-keys"}).options.namesKeys);
  EXPECT_EQ(parseOptions({"--no-keys", "--keys", "a b"}).exitCode, 2);
#ifdef _WIN32
  EXPECT_TRUE(programs::keyFolder().ends_with("\\Marrowgate\\Keys")) << programs::keyFolder();
#else
  EXPECT_EQ(programs::keyFolder(), "/var/lib/aps/keys");
#endif
}

TEST(ApsOptions, AnInvitationIsForAKey) {
  EXPECT_EQ(parseOptions({"invite", "5", "--address", "print.example:4712"}).options.keys, programs::keyFolder());
  const ParsedOptions without = parseOptions({"invite", "5", "--address", "print.example:4712", "--no-keys"});
  EXPECT_EQ(without.exitCode, 2);
  EXPECT_EQ(without.message, "aps invite: an invitation is for a key; leave --no-keys out\n");
}

#ifdef _WIN32
TEST(ApsOptions, AServiceHasALogWithoutAWord) {
  EXPECT_EQ(parseOptions({"--service"}).options.logFile, programs::serviceLog());
  EXPECT_EQ(parseOptions({"--service", "--log", "a b"}).options.logFile, "a b");
  EXPECT_EQ(parseOptions({}).options.logFile, "");
}
#endif

TEST(ApsOptions, TakeFilesOfKeysThatHaveNames) {
  EXPECT_EQ(parseOptions({}).options.newKey, "");
  EXPECT_EQ(parseOptions({"--new-key", "monitor.key"}).options.newKey, "monitor.key");
  for (const char* option : {"--keys", "--new-key"}) {
    EXPECT_EQ(parseOptions({option}).exitCode, 2);
    const ParsedOptions empty = parseOptions({option, ""});
    EXPECT_EQ(empty.exitCode, 2);
    EXPECT_NE(empty.message.find("it names nothing"), std::string::npos) << empty.message;
  }
}

TEST(ApsOptions, TakeTheFileOfSessionsAndTheTimeToWaitForThem) {
  EXPECT_EQ(parseOptions({}).options.state, "");
  EXPECT_EQ(parseOptions({}).options.limits.clientWait, std::chrono::seconds(20));
  const ParsedOptions parsed = parseOptions({"--state", "a b", "--client-wait", "60"});
  EXPECT_EQ(parsed.exitCode, -1) << parsed.message;
  EXPECT_EQ(parsed.options.state, "a b");
  EXPECT_EQ(parsed.options.limits.clientWait, std::chrono::seconds(60));
  EXPECT_EQ(parseOptions({"--client-wait", "0"}).options.limits.clientWait, std::chrono::seconds(0));
  for (const std::vector<std::string>& wrong : {std::vector<std::string>{"--state", ""},
                                                {"--client-wait", "61"},
                                                {"--client-wait", "-1"},
                                                {"--client-wait", "x"}})
    EXPECT_EQ(parseOptions(wrong).exitCode, 2) << wrong[1];
}

TEST(ApsOptions, TakeThePrograms) {
  EXPECT_EQ(parseOptions({}).options.launching.programs, std::vector<std::string>{"notepad.exe"});
  const ParsedOptions parsed =
      parseOptions({"--launch-program", "write.exe", "--launch-program", "a b.exe", "--max-launched", "3"});
  EXPECT_EQ(parsed.exitCode, -1) << parsed.message;
  EXPECT_EQ(parsed.options.launching.programs, (std::vector<std::string>{"write.exe", "a b.exe"}));
  EXPECT_EQ(parsed.options.launching.limit, 3u);
}

TEST(ApsOptions, TakeACommandOnlyWhereTheSystemStartsNothingInASession) {
  const ParsedOptions parsed = parseOptions({"--launch-command", "a b"});
#ifdef _WIN32
  EXPECT_GT(parsed.exitCode, 0);
#else
  EXPECT_EQ(parsed.exitCode, -1) << parsed.message;
  EXPECT_EQ(parsed.options.launching.command, "a b");
#endif
}

TEST(ApsOptions, RefuseAnAddressThatIsNotThisMachine) {
  const ParsedOptions parsed = parseOptions({"--listen", "0.0.0.0:4711"});
  EXPECT_EQ(parsed.exitCode, 2);
  EXPECT_EQ(parsed.message,
            "--listen: aps listens there on this machine's own addresses only, 127.0.0.1 or [::1], not on \"0.0.0.0\"; "
            "print clients of other machines come to --listen-clients\n");
}

TEST(ApsOptions, RefuseWhatIsNoPort) {
  for (const char* address : {"127.0.0.1", "127.0.0.1:", "127.0.0.1:x", "127.0.0.1:65536", "127.0.0.1:123456"}) {
    EXPECT_EQ(listenRefusal(address), "\"" + std::string(address) +
                                          "\" is not an address and port; an example is 127.0.0.1:4711 (port 0 takes "
                                          "any free port)");
  }
}

TEST(ApsOptions, ExplainAnUnknownOption) {
  const ParsedOptions parsed = parseOptions({"--lissten", "127.0.0.1:1"});
  EXPECT_GT(parsed.exitCode, 0);
  EXPECT_NE(parsed.message.find("--lissten"), std::string::npos);
}

TEST(ApsOptions, PrintClientsOfOtherMachinesNeedKeys) {
  const ParsedOptions both =
      parseOptions({"--keys", "k", "--listen-clients", "0.0.0.0:4712", "--listen-clients", "[::]:4712"});
  EXPECT_EQ(both.exitCode, -1) << both.message;
  EXPECT_EQ(both.options.listenClients, (std::vector<std::string>{"0.0.0.0:4712", "[::]:4712"}));
  EXPECT_EQ(parseOptions({"--listen-clients", "0.0.0.0:4712"}).exitCode, -1);
  const ParsedOptions without = parseOptions({"--listen-clients", "0.0.0.0:4712", "--no-keys"});
  EXPECT_EQ(without.exitCode, 2);
  EXPECT_EQ(without.message,
            "--listen-clients takes print clients over the network, and each must have the key of its session: leave "
            "--no-keys out\n");
}

// As docs/operations.md says.
TEST(ApsOptions, HoldSoManyJobsForSoLongWhereNothingIsTyped) {
  const HoldStore::Limits usual = parseOptions({}).options.holdLimits;
  EXPECT_EQ(usual.megabytes, 200);
  EXPECT_EQ(usual.jobs, 100);
  EXPECT_EQ(usual.totalMegabytes, 2000);
  EXPECT_EQ(usual.totalJobs, 2000);
  EXPECT_EQ(usual.days, 7);
}

TEST(ApsOptions, HoldJobsForTheKeysOfSessionsAndWithinLimitsOfWhichNobodyHasMoreThanHalf) {
  EXPECT_EQ(parseOptions({}).options.hold, "");
  const ParsedOptions parsed = parseOptions({"--keys", "k", "--hold", "h", "--hold-size", "10", "--hold-jobs", "20",
                                             "--hold-total", "30", "--hold-total-jobs", "40", "--hold-days", "50"});
  EXPECT_EQ(parsed.exitCode, -1) << parsed.message;
  EXPECT_EQ(parsed.options.hold, "h");
  EXPECT_EQ(parsed.options.holdLimits.megabytes, 10);
  EXPECT_EQ(parsed.options.holdLimits.jobs, 20);
  EXPECT_EQ(parsed.options.holdLimits.totalMegabytes, 30);
  EXPECT_EQ(parsed.options.holdLimits.totalJobs, 40);
  EXPECT_EQ(parsed.options.holdLimits.days, 50);
  EXPECT_EQ(parseOptions({"--keys", "k", "--hold", "h"}).exitCode, -1);
  EXPECT_EQ(parseOptions({"--hold", "h", "--no-keys"}).exitCode, 2);
  EXPECT_EQ(
      parseOptions({"--hold", "h", "--no-keys"}).message,
      "--hold keeps jobs for the key of their session, and without keys a job has no owner: leave --no-keys out\n");
  EXPECT_EQ(
      parseOptions({"--keys", "k", "--hold", "h", "--hold-size", "1001"}).message,
      "--hold-size 1001 and --hold-total 2000: one session could take the room of all others; let it have half of "
      "all at most\n");
  EXPECT_EQ(
      parseOptions({"--keys", "k", "--hold", "h", "--hold-total-jobs", "199"}).message,
      "--hold-jobs 100 and --hold-total-jobs 199: one session could take the places of all others; let it have half "
      "of all at most\n");
  EXPECT_EQ(parseOptions({"--keys", "k", "--hold", ""}).exitCode, 2);
}

}  // namespace
}  // namespace aps
