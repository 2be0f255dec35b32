#include "admin/commands/invocation.h"

#include <gmock/gmock.h>
#include <nlohmann/json.hpp>
#include <sstream>

namespace admin {
namespace {

using ::testing::HasSubstr;

TEST(CommandLine, HelpListsTheCommandsAndTheExitCodes) {
  const auto parsed = parseCommandLine({"--help"});
  EXPECT_EQ(parsed->code, ExitCode::kDone);
  EXPECT_FALSE(parsed->invocation.run);
  for (const char* word :
       {"install", "uninstall", "ports", "session", "status", "print", "printers", "visible", "doctor", "watch",
        "invite", "drivers", "jobs", "cancel", "support", "0 done", "7 outcome of a job unknown"}) {
    EXPECT_THAT(parsed->message, HasSubstr(word));
  }
}

TEST(CommandLine, SaysTheNameAndTheVersion) {
  const auto parsed = parseCommandLine({"--version"});
  EXPECT_EQ(parsed->code, ExitCode::kDone);
  EXPECT_FALSE(parsed->invocation.run);
  EXPECT_EQ(parsed->message, "mgprintmon 4.0.1.0\n");
}

TEST(ExitCodes, HaveTheNumbersOfTheirTable) {
  EXPECT_EQ(static_cast<int>(ExitCode::kDone), 0);
  EXPECT_EQ(static_cast<int>(ExitCode::kFailed), 1);
  EXPECT_EQ(static_cast<int>(ExitCode::kUsage), 2);
  EXPECT_EQ(static_cast<int>(ExitCode::kNotFound), 3);
  EXPECT_EQ(static_cast<int>(ExitCode::kAccessDenied), 4);
  EXPECT_EQ(static_cast<int>(ExitCode::kInUse), 5);
  EXPECT_EQ(static_cast<int>(ExitCode::kServerAway), 6);
  EXPECT_EQ(static_cast<int>(ExitCode::kUnknownOutcome), 7);
}

TEST(CommandLine, EveryCommandHasExamplesAndJson) {
  const std::vector<std::vector<std::string>> commands = {
      {"install"},          {"uninstall"},       {"ports", "list"},   {"ports", "add"},
      {"ports", "delete"},  {"session", "list"}, {"session", "up"},   {"session", "down"},
      {"status"},           {"print"},           {"printers"},        {"visible"},
      {"doctor"},           {"watch"},           {"invite"},          {"jobs"},
      {"cancel"},           {"drivers"},         {"drivers", "list"}, {"drivers", "map"},
      {"drivers", "unmap"}, {"support"}};
  for (std::vector<std::string> command : commands) {
    command.push_back("--help");
    const auto parsed = parseCommandLine(command);
    EXPECT_EQ(parsed->code, ExitCode::kDone) << command[0];
    EXPECT_THAT(parsed->message, HasSubstr("Examples:\n  mgprintmon " + command[0])) << command[0];
    EXPECT_THAT(parsed->message, HasSubstr("--json")) << command[0];
  }
}

TEST(CommandLine, ThatIsWrongEndsWithTwoAndSaysWhy) {
  const std::vector<std::vector<std::string>> wrong = {{},
                                                       {"frobnicate"},
                                                       {"ports"},
                                                       {"ports", "add"},
                                                       {"session", "up", "0"},
                                                       {"install", "--port", "70000"},
                                                       {"install", "--driver-package", "driver.inf"},
                                                       {"drivers", "map", "HP*"},
                                                       {"drivers", "unmap"},
                                                       {"doctor", "--yes"},
                                                       {"print", "Laser"}};
  for (const std::vector<std::string>& words : wrong) {
    const auto parsed = parseCommandLine(words);
    EXPECT_EQ(parsed->code, ExitCode::kUsage);
    EXPECT_FALSE(parsed->invocation.run);
    EXPECT_FALSE(parsed->message.empty());
  }
}

TEST(CommandLine, DriversAloneListsThem) {
  EXPECT_TRUE(parseCommandLine({"drivers"})->invocation.run);
}

TEST(CommandLine, NumbersAreTakenUpToTheirBoundsAndNotPastThem) {
  struct Bound {
    std::vector<std::string> command;
    std::string option;
    int lowest, highest;
  };
  const std::vector<Bound> bounds = {{{"print", "Laser", "a.ps"}, "--copies", 1, 9999},
                                     {{"print", "Laser", "a.ps"}, "--wait", 0, 86400},
                                     {{"print", "Laser", "a.ps"}, "--server-port", 1, 65535},
                                     {{"session", "up", "5"}, "--server-port", 1, 65535},
                                     {{"watch"}, "--grace", 0, 86400},
                                     {{"watch"}, "--server-port", 1, 65535},
                                     {{"doctor"}, "--server-port", 1, 65535},
                                     {{"status"}, "--server-port", 1, 65535},
                                     {{"install"}, "--port", 1, 65535}};
  const auto codeOf = [](std::vector<std::string> words, const std::string& option, int number) {
    words.insert(words.end(), {option, std::to_string(number)});
    return parseCommandLine(words)->code;
  };
  for (const auto& [command, option, lowest, highest] : bounds) {
    EXPECT_EQ(codeOf(command, option, lowest), ExitCode::kDone) << command[0] << option;
    EXPECT_EQ(codeOf(command, option, highest), ExitCode::kDone) << command[0] << option;
    EXPECT_EQ(codeOf(command, option, lowest - 1), ExitCode::kUsage) << command[0] << option;
    EXPECT_EQ(codeOf(command, option, highest + 1), ExitCode::kUsage) << command[0] << option;
  }
}

TEST(Invocation, AFailureIsSaidWithItsRemedyAndEndsWithItsCode) {
  Invocation invocation;
  invocation.run = [](Output&) -> ExitCode { throw Failure(ExitCode::kInUse, "the port is used", "Free it."); };
  std::ostringstream out, errors;
  Output output(out, errors, false);
  EXPECT_EQ(runInvocation(invocation, output), ExitCode::kInUse);
  EXPECT_EQ(out.str(), "");
  EXPECT_EQ(errors.str(), "mgprintmon: the port is used\n  Free it.\n");
}

TEST(Invocation, AFailureIsOneJsonDocumentForAMachine) {
  Invocation invocation;
  invocation.run = [](Output&) -> ExitCode { throw Failure(ExitCode::kInUse, "the port is used", "Free it."); };
  std::ostringstream out, errors;
  Output output(out, errors, true);
  runInvocation(invocation, output);
  EXPECT_EQ(Json::parse(out.str()),
            (Json{{"error", {{"code", 5}, {"what", "the port is used"}, {"remedy", "Free it."}}}}));
  EXPECT_EQ(errors.str(), "");
}

TEST(Output, SaysLinesOrJsonAndNeverBoth) {
  std::ostringstream out, errors;
  Output lines(out, errors, false);
  lines.line("a line");
  lines.facts({{"a", 1}});
  lines.event({{"b", 2}});
  EXPECT_EQ(out.str(), "a line\n");
  out.str("");
  Output json(out, errors, true);
  json.line("a line");
  json.event({{"b", 2}});
  json.facts({{"a", 1}});
  EXPECT_EQ(out.str(), "{\"b\":2}\n{\n  \"a\": 1\n}\n");
}

}  // namespace
}  // namespace admin
