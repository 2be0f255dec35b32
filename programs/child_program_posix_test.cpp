#include "programs/child_program.h"
#include "tests/support/own_folder.h"

#include <cerrno>
#include <fcntl.h>
#include <filesystem>
#include <gtest/gtest.h>
#include <signal.h>
#include <stdlib.h>
#include <system_error>
#include <thread>
#include <unistd.h>

namespace programs {
namespace {

using std::chrono::steady_clock;

std::unique_ptr<ChildProgram> shell(const std::string& script, std::vector<std::string> arguments = {},
                                    std::vector<std::pair<std::string, std::string>> environment = {}) {
  ChildCommand command;
  command.program = "/bin/sh";
  command.arguments = {"-c", script, "sh"};
  command.arguments.insert(command.arguments.end(), arguments.begin(), arguments.end());
  command.environment = std::move(environment);
  command.keepsErrors = true;
  return ChildProgram::start(command);
}

TEST(ChildProgram, SaysHowItEndedAndItsLastLineOfErrors) {
  const auto program = shell("echo first >&2; printf ' last one \\n\\n' >&2; exit 7");
  EXPECT_EQ(program->wait(), 7);
  EXPECT_EQ(program->lastErrorLine(), "last one");
}

TEST(ChildProgram, TakesEveryArgumentAndValueAsItIs) {
  const std::string odd = "$(id) `id` ; \"x\" 'y' \\ %PATH% \xC3\x96\n* ";
  const auto program = shell("test \"$#\" = 1 && test \"$1\" = \"$OWN\"", {odd}, {{"OWN", odd}});
  EXPECT_EQ(program->wait(), 0);
}

TEST(ChildProgram, AValueReplacesThisProcessesOwnOfThatName) {
  setenv("MG_CHILD_TEST", "before", 1);
  const auto program =
      shell("echo \"$MG_CHILD_TEST $(env | grep -c '^MG_CHILD_TEST=')\" >&2", {}, {{"MG_CHILD_TEST", "own"}});
  EXPECT_EQ(program->wait(), 0);
  EXPECT_EQ(program->lastErrorLine(), "own 1");
  unsetenv("MG_CHILD_TEST");
}

TEST(ChildProgram, GetsNoDescriptorOfThisProcess) {
  const int held = open("/dev/null", O_RDWR);  // not marked to be closed
  ASSERT_GE(held, 3);
  const auto program = shell("test ! -e /proc/self/fd/" + std::to_string(held) + " && test -e /proc/self/fd/2");
  EXPECT_EQ(program->wait(), 0);
  close(held);
}

TEST(ChildProgram, MuchThatItSaysDoesNotHoldItUpAndItsEndIsKept) {
  const auto program =
      shell("i=0; while [ $i -lt 20000 ]; do echo 'line of errors' >&2; i=$((i+1)); done; echo end >&2");
  EXPECT_EQ(program->wait(), 0);
  EXPECT_EQ(program->lastErrorLine(), "end");
}

TEST(ChildProgram, IsEndedWithAllThatItHasStarted) {
  // The second one ignores the polite signal and holds the pipe.
  const auto program = shell("trap '' TERM; (while :; do sleep 1; done) & echo $! >&2; wait");
  std::string line;
  while (line.empty()) {
    EXPECT_EQ(program->wait(steady_clock::now() + std::chrono::milliseconds(1)), std::nullopt);
    line = program->lastErrorLine();
  }
  program->end();
  EXPECT_EQ(kill(static_cast<pid_t>(program->processId()), 0), -1);
  // Whoever adopted the other one may not have taken note of its end.
  const std::string status = "/proc/" + line + "/stat";
  const auto isGone = [&] {
    std::FILE* file = std::fopen(status.c_str(), "r");
    if (file == nullptr) return true;
    char state = 0;
    const int read = std::fscanf(file, "%*d %*s %c", &state);
    std::fclose(file);
    return read != 1 || state == 'Z';
  };
  while (!isGone())
    std::this_thread::yield();
  program->end();  // ends nothing a second time
}

TEST(ChildProgram, MayPutThingsInOrderWhenItIsEndedWhateverItSaysThen) {
  const OwnFolder folder("child_program");
  const std::string file = (folder.path() / "in order").string();
  const auto program = shell(
      "trap 'echo ending >&2; for i in 1 2 3 4 5 6 7 8 9; do /bin/true; done; : >\"$1\"; exit' TERM; echo ready >&2; "
      "tail -f /dev/null & wait",
      {file});
  while (program->lastErrorLine() != "ready")
    EXPECT_EQ(program->wait(steady_clock::now() + std::chrono::milliseconds(1)), std::nullopt);
  program->end();
  EXPECT_TRUE(std::filesystem::exists(file));
}

TEST(ChildProgram, AWaitEndsWithItsTimeOrWhenItIsLeft) {
  const auto program = shell("exec tail -f /dev/null");
  EXPECT_EQ(program->wait(steady_clock::now()), std::nullopt);
  std::thread leaving([&] { program->leave(); });
  EXPECT_EQ(program->wait(), std::nullopt);
  leaving.join();
  EXPECT_EQ(kill(static_cast<pid_t>(program->processId()), 0), 0);
  program->end();
}

TEST(ChildProgram, ThatDoesNotExistIsAnErrorOfTheSystem) {
  ChildCommand command;
  command.program = "/no such program";
  try {
    ChildProgram::start(command);
    FAIL() << "it started";
  } catch (const std::system_error& failure) {
    EXPECT_EQ(failure.code().value(), ENOENT);
  }
}

}  // namespace
}  // namespace programs
