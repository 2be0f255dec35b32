// What a service manager that starts aps is told, and when it is told that aps is alive.

#include "corvane/trust/key.h"
#include "tests/processes/monitor_peer.h"
#include "tests/processes/notified_manager.h"
#include "tests/processes/process_table.h"
#include "tests/processes/scene.h"

#include <cerrno>
#include <filesystem>
#include <fstream>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <iterator>
#include <signal.h>
#include <sys/ptrace.h>
#include <sys/wait.h>
#include <system_error>

namespace tests {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::MatchesRegex;
using ::testing::Not;
using ::testing::StartsWith;

// Holds one thread of a program that this process has started, by its number, and no other thread of it.
class HeldThread {
 public:
  explicit HeldThread(pid_t thread) : m_thread(thread) {
    if (ptrace(PTRACE_SEIZE, thread, nullptr, nullptr) != 0 ||
        ptrace(PTRACE_INTERRUPT, thread, nullptr, nullptr) != 0) {
      throw std::system_error(errno, std::generic_category(), "ptrace");
    }
    int status = 0;
    waitpid(thread, &status, __WALL);
    EXPECT_TRUE(WIFSTOPPED(status));
  }
  ~HeldThread() { ptrace(PTRACE_DETACH, m_thread, nullptr, nullptr); }
  HeldThread(const HeldThread&) = delete;
  HeldThread& operator=(const HeldThread&) = delete;

 private:
  const pid_t m_thread;
};

std::string statusOf(const Scene& scene) {
  return "STATUS=listens on 127.0.0.1:" + std::to_string(scene.port());
}

std::string readyOf(const Scene& scene) {
  return "READY=1\nMAINPID=" + std::to_string(scene.server().id()) + "\n" + statusOf(scene);
}

std::string unansweredOf(const Scene& scene) {
  return "127.0.0.1:" + std::to_string(scene.port()) + " does not answer this server's own call: nobody takes the call";
}

// The next sign of life. On a busy machine a call may have been too slow before, which is told and no failure.
std::string nextSign(const NotifiedManager& manager, const Scene& scene) {
  std::string text = manager.next();
  for (int i = 0; i < 1000 && text == "STATUS=" + unansweredOf(scene); ++i)
    text = manager.next();
  return text;
}

long long monotonicMicroseconds() {
  timespec now{};
  clock_gettime(CLOCK_MONOTONIC, &now);
  return now.tv_sec * 1000000LL + now.tv_nsec / 1000;
}

TEST(ServiceManager, IsToldOfTheStartOfEachReopenedLogAndOfTheEndAndOfNothingElse) {
  const NotifiedManager manager;
  Scene scene({"--log", "{folder}/aps.log"}, manager.launcher());
  EXPECT_EQ(manager.next(), readyOf(scene));
  for (int i = 0; i < 2; ++i) {
    const long long before = monotonicMicroseconds();
    std::filesystem::rename(scene.folder() / "aps.log", scene.folder() / "aps.log.1");
    scene.server().signal(SIGHUP);
    const std::string reloading = manager.next();
    EXPECT_THAT(reloading, MatchesRegex("RELOADING=1\nMONOTONIC_USEC=[0-9]+\nSTATUS=reopens its log"));
    const long long when = std::stoll(reloading.substr(reloading.find("USEC=") + 5));
    EXPECT_GE(when, before);
    EXPECT_LE(when, monotonicMicroseconds());
    EXPECT_EQ(manager.next(), "READY=1\n" + statusOf(scene));
    std::ifstream reopened(scene.folder() / "aps.log");
    EXPECT_THAT(std::string(std::istreambuf_iterator<char>(reopened), {}), HasSubstr(" the log was reopened\n"))
        << "it is written when the manager is told";
  }
  scene.server().signal(SIGTERM);
  EXPECT_EQ(scene.server().wait(), 0);
  EXPECT_THAT(manager.rest(), ElementsAre("STOPPING=1\nSTATUS=ends its connections"));
}

TEST(ServiceManager, AHangUpEndsNothingWhereTheLogIsNoFile) {
  const NotifiedManager manager;
  Scene scene({}, manager.launcher());
  EXPECT_EQ(manager.next(), readyOf(scene));
  scene.server().signal(SIGHUP);
  EXPECT_THAT(manager.next(), HasSubstr("RELOADING=1\n"));
  EXPECT_EQ(manager.next(), "READY=1\n" + statusOf(scene));
  const auto client = scene.startClient(5, {"Laser-2"});
}

TEST(ServiceManager, ItIsReadyWhenItListensForOtherMachinesAsWell) {
  const NotifiedManager manager;
  Scene keys;
  std::filesystem::create_directory(keys.folder() / "keys");
  std::filesystem::permissions(keys.folder() / "keys", std::filesystem::perms::owner_all);
  Scene scene({"--keys", (keys.folder() / "keys").string(), "--listen-clients", "127.0.0.1:0"},
              manager.launcher("4000000"));
  const std::string other = scene.server().waitForLine("aps listens for print clients on ");
  EXPECT_EQ(manager.next(),
            readyOf(scene) + ", for print clients of other machines on " + other.substr(other.rfind(' ') + 1));
  EXPECT_EQ(manager.next(), "WATCHDOG=1") << "both are called, and take the call";
}

TEST(ServiceManager, AServerThatCannotListenIsNeverReady) {
  const NotifiedManager manager;
  Scene first;
  auto command = manager.launcher();
  for (const std::string& word : Scene::serverCommand("127.0.0.1:" + std::to_string(first.port()), {}))
    command.push_back(word);
  ChildProcess second(command);
  EXPECT_EQ(second.wait(), 1);
  EXPECT_THAT(manager.rest(), IsEmpty());
}

TEST(ServiceManager, SignsOfLifeComeAgainAndAgainWhileItServes) {
  const NotifiedManager manager;
  Scene scene({}, manager.launcher("20000"));
  EXPECT_EQ(manager.next(), readyOf(scene));
  for (int i = 0; i < 20; ++i)
    EXPECT_THAT(nextSign(manager, scene), StartsWith("WATCHDOG=1"));
  const auto client = scene.startClient(5, {"Laser-2"});
  MonitorPeer peer(scene.port());
  EXPECT_TRUE(peer.attach(L"Laser-2 (session 5)")) << "peers are served beside them";
  EXPECT_THAT(nextSign(manager, scene), StartsWith("WATCHDOG=1"));
}

TEST(ServiceManager, ASignOfLifeIsTheseBytesAndLeavesNothingInTheLog) {
  const NotifiedManager manager;
  Scene scene({}, manager.launcher("4000000"));
  EXPECT_EQ(manager.next(), readyOf(scene));
  EXPECT_EQ(manager.next(), "WATCHDOG=1");
  scene.server().signal(SIGTERM);
  EXPECT_EQ(scene.server().wait(), 0);
  const std::string said = scene.server().output();
  for (const char* word : {"refused", "ended", "call"})
    EXPECT_THAT(said, Not(HasSubstr(word)));
}

// Everything but the thread that takes connections runs on; a clock alone would go on saying that all is well.
TEST(ServiceManager, SignsOfLifeEndWhenTheThreadThatAcceptsHangsAndComeBackWithIt) {
  const NotifiedManager manager;
  Scene scene({}, manager.launcher("200000"));
  EXPECT_EQ(manager.next(), readyOf(scene));
  EXPECT_EQ(nextSign(manager, scene), "WATCHDOG=1");
  {
    const HeldThread accepting(scene.server().id());
    manager.rest();
    // One call may have been answered before.
    std::string text = manager.next();
    if (text.starts_with("WATCHDOG=1")) text = manager.next();
    EXPECT_EQ(text, "STATUS=" + unansweredOf(scene));
    for (int i = 0; i < 8; ++i)
      EXPECT_EQ(manager.next(), "STATUS=" + unansweredOf(scene)) << "two of the times have passed without a sign";
    scene.server().waitForLine(" " + unansweredOf(scene) +
                               "; the service manager ends this server unless that changes");
    scene.server().signal(SIGHUP);
    EXPECT_THAT(nextSign(manager, scene), HasSubstr("RELOADING=1\n")) << "its other threads run";
    EXPECT_EQ(manager.next(), "READY=1\n" + statusOf(scene));
  }
  EXPECT_EQ(nextSign(manager, scene), "WATCHDOG=1\n" + statusOf(scene));
  scene.server().waitForLine(" this server's own calls are answered again");
}

TEST(ServiceManager, NoSignOfLifeFollowsTheEnd) {
  const NotifiedManager manager;
  Scene scene({}, manager.launcher("2000"));
  EXPECT_EQ(manager.next(), readyOf(scene));
  EXPECT_THAT(nextSign(manager, scene), StartsWith("WATCHDOG=1"));
  scene.server().signal(SIGTERM);
  EXPECT_EQ(scene.server().wait(), 0);
  const auto rest = manager.rest();
  ASSERT_THAT(rest, Not(IsEmpty()));
  EXPECT_EQ(rest.back(), "STOPPING=1\nSTATUS=ends its connections");
}

TEST(ServiceManager, OneThatIsNotThereIsALineOfTheLogAndHindersNobody) {
  Scene scene({}, {"/usr/bin/env", "NOTIFY_SOCKET=/nowhere/notify"});
  scene.server().waitForLine(
      " the service manager at /nowhere/notify cannot be told: No such file or directory; it may take this server for "
      "one that does not start or hangs, and end it");
  const auto client = scene.startClient(5, {"Laser-2"});
  scene.server().signal(SIGTERM);
  EXPECT_EQ(scene.server().wait(), 0);
}

TEST(ServiceManager, IsNoneOfTheBusinessOfProgramsThatTheServerStarts) {
  const NotifiedManager manager;
  auto launcher = manager.launcher("60000000");
  Scene folder;
  const std::string script = (folder.folder() / "command").string();
  std::ofstream(script) << "#!/bin/sh\nenv >'" << script << ".part'; mv '" << script << ".part' '" << script
                        << ".env'\n";
  std::filesystem::permissions(script, std::filesystem::perms::owner_all);
  Scene scene({"--launch-command", script}, launcher);
  const auto client = scene.startClient(5, {"Laser-2"});
  MonitorPeer peer(scene.port());
  ASSERT_TRUE(peer.launch(L"notepad.exe", L"\"a.txt\"", L"Laser-2 (session 5)"));
  ASSERT_TRUE(comesTrue([&] { return std::filesystem::exists(script + ".env"); }, 60));
  std::ifstream in(script + ".env");
  const std::string environment(std::istreambuf_iterator<char>(in), {});
  EXPECT_THAT(environment, HasSubstr("PATH="));
  EXPECT_THAT(environment, Not(HasSubstr("NOTIFY_SOCKET")));
  EXPECT_THAT(environment, Not(HasSubstr("WATCHDOG_")));
}

}  // namespace
}  // namespace tests
