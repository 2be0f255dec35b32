#include "server/launcher.h"

#include <chrono>
#include <csignal>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <iterator>
#include <stdexcept>
#include <stdlib.h>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>

namespace aps {
namespace {

namespace fs = std::filesystem;
using ::testing::HasSubstr;
using ::testing::Not;

// Programs are started for real; each test's command is a script that is written for it.
class LauncherTest : public ::testing::Test {
 protected:
  LauncherTest() {
    std::string pattern = (fs::temp_directory_path() / "mg_launcher_XXXXXX").string();
    if (mkdtemp(pattern.data()) == nullptr) throw std::runtime_error("no folder " + pattern);
    m_folder = pattern;
    m_log = std::make_shared<Log>(m_folder / "log");
  }
  ~LauncherTest() override { fs::remove_all(m_folder); }

  Launcher::Settings script(const std::string& body) {
    const fs::path path = m_folder / "command";
    std::ofstream(path) << "#!/bin/sh\n" << body;
    chmod(path.c_str(), 0700);
    Launcher::Settings settings;
    settings.command = path;
    return settings;
  }

  static Launch notepad() {
    return {L"notepad.exe", L"\"/PT \\\"$(id) `id` ; %PATH%\\\" \\\"\u00d6l\\\"\"", L"\u00d6l (session 5)", 5};
  }

  std::string content(const std::string& name) const {
    std::ifstream in(m_folder / name, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
  }

  // The log is written by the launcher's threads.
  void waitForLog(const std::string& text) const {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::minutes(1);
    while (content("log").find(text) == std::string::npos) {
      if (std::chrono::steady_clock::now() > deadline) throw std::runtime_error("never logged: " + text);
      std::this_thread::yield();
    }
  }

  void expectRefused(Launcher& launcher, const Launch& launch, const std::string& cause) const {
    EXPECT_FALSE(launcher.launch(launch));
    EXPECT_TRUE(m_log->flush(std::chrono::minutes(1)));
    EXPECT_THAT(content("log"), HasSubstr(" was not started: " + cause + "\n"));
  }

  // Ends the program that has put down its number, once it has; each is ended once.
  void endStarted() const {
    while (!fs::exists(m_folder / "command.id"))
      std::this_thread::yield();
    const int id = std::stoi(content("command.id"));
    fs::remove(m_folder / "command.id");
    kill(id, SIGTERM);
  }

  fs::path m_folder;
  std::shared_ptr<Log> m_log;
};

TEST_F(LauncherTest, HandsSessionProgramArgumentsAndPrinterOverAsTheyAre) {
  Launcher launcher(script("cd \"${0%/*}\"; printf '%s\\n' \"$#\" \"$@\" >seen"), m_log);
  EXPECT_TRUE(launcher.launch(notepad()));
  waitForLog(", ended with 0\n");
  EXPECT_EQ(content("seen"),
            "4\n5\nnotepad.exe\n\"/PT \\\"$(id) `id` ; %PATH%\\\" \\\"\xC3\x96l\\\"\"\n\xC3\x96l (session 5)\n");
  EXPECT_THAT(content("log"), HasSubstr("program \"notepad.exe\" with arguments \"\"/PT \\\"$(id) `id` ; %PATH%\\\" "
                                        "\\\"\xC3\x96l\\\"\"\" for printer \"\xC3\x96l (session 5)\" was started in "
                                        "session 5, process "));
}

TEST_F(LauncherTest, TakesTheProgramsNameInAnyCaseAndSaysHowItEnded) {
  Launcher launcher(script("exit 7"), m_log);
  Launch launch = notepad();
  launch.program = L"NotePad.EXE";
  EXPECT_TRUE(launcher.launch(launch));
  waitForLog("program \"NotePad.EXE\" of session 5, process ");
  waitForLog(", ended with 7\n");
}

TEST_F(LauncherTest, AProgramEndedByASignalHasItsNumberAbove128) {
  Launcher launcher(script("kill -9 $$"), m_log);
  EXPECT_TRUE(launcher.launch(notepad()));
  waitForLog(", ended with 137\n");
}

TEST_F(LauncherTest, RefusesEveryProgramThatIsNotNamed) {
  Launcher launcher(script("touch \"$0.ran\""), m_log);
  for (const wchar_t* program : {L"cmd.exe", L"notepad", L"notepad.exe ", L"C:\\notepad.exe", L""}) {
    Launch launch = notepad();
    launch.program = program;
    expectRefused(launcher, launch,
                  "aps starts only the programs that --launch-program names; name it there if sessions may have it");
  }
  EXPECT_FALSE(fs::exists(m_folder / "command.ran"));
}

TEST_F(LauncherTest, RefusesControlCharactersWhichWouldCutAnArgument) {
  Launcher launcher(script("exit 0"), m_log);
  for (std::wstring Launch::*text : {&Launch::arguments, &Launch::printer}) {
    Launch launch = notepad();
    launch.*text += std::wstring(L"\0 more", 6);
    expectRefused(
        launcher, launch,
        "its arguments contain a control character; the port monitor never sends one, so look for another sender");
  }
}

TEST_F(LauncherTest, WithoutACommandSaysWhatToDo) {
  Launcher launcher(Launcher::Settings(), m_log);
  expectRefused(launcher, notepad(),
                "aps was not told how to start programs in a session; start it with --launch-command and a program "
                "that does");
}

TEST_F(LauncherTest, ACommandThatDoesNotExistIsNamed) {
  Launcher::Settings settings;
  settings.command = m_folder / "missing";
  Launcher launcher(settings, m_log);
  expectRefused(launcher, notepad(),
                "the command \"" + settings.command +
                    "\" does not start: No such file or directory; --launch-command must name a program that aps may "
                    "run");
}

TEST_F(LauncherTest, RefusesPastTheLimitUntilAProgramHasEnded) {
  Launcher::Settings settings = script("echo $$ >\"$0.part\"; mv \"$0.part\" \"$0.id\"; exec tail -f /dev/null");
  settings.limit = 1;
  Launcher launcher(settings, m_log);
  EXPECT_TRUE(launcher.launch(notepad()));
  expectRefused(launcher, notepad(),
                "1 started programs are running, which is the limit; end some, or start aps with a higher "
                "--max-launched");
  endStarted();
  waitForLog(", ended with 143\n");
  // The line comes just before the place is free.
  while (!launcher.launch(notepad()))
    std::this_thread::yield();
  launcher.endAll();
  endStarted();
}

TEST_F(LauncherTest, HandsNoDescriptorsOver) {
  const int held = open((m_folder / "held").c_str(), O_RDWR | O_CREAT, 0600);
  Launcher launcher(script("ls -l /proc/$$/fd >\"$0.fds\""), m_log);
  EXPECT_TRUE(launcher.launch(notepad()));
  waitForLog(", ended with 0\n");
  close(held);
  const std::string descriptors = content("command.fds");
  EXPECT_THAT(descriptors, HasSubstr(" 0 -> /dev/null\n"));
  EXPECT_THAT(descriptors, HasSubstr(" 2 -> /dev/null\n"));
  EXPECT_THAT(descriptors, Not(HasSubstr("/held\n")));
}

TEST_F(LauncherTest, HandsNoBlockedAndNoIgnoredSignalsOver) {
  // No shell, because a shell unblocks its signals itself.
  Launcher::Settings settings = script("");
  std::ofstream(settings.command) << "#!/usr/bin/awk -f\nBEGIN {\n  while ((getline line <\"/proc/self/status\") > 0)\n"
                                     "    if (line ~ /^Sig(Blk|Ign)/) print line >\""
                                  << (m_folder / "signals").string() << "\"\n  exit\n}\n";
  sigset_t set, before;
  sigemptyset(&set);
  sigaddset(&set, SIGTERM);
  pthread_sigmask(SIG_BLOCK, &set, &before);
  const auto pipeBefore = std::signal(SIGPIPE, SIG_IGN);
  const auto sizeBefore = std::signal(SIGXFSZ, SIG_IGN);
  Launcher launcher(settings, m_log);
  EXPECT_TRUE(launcher.launch(notepad()));
  waitForLog(", ended with 0\n");
  std::signal(SIGPIPE, pipeBefore);
  std::signal(SIGXFSZ, sizeBefore);
  pthread_sigmask(SIG_SETMASK, &before, nullptr);
  const std::string signals = content("signals");
  EXPECT_THAT(signals, HasSubstr("SigBlk:\t0000000000000000\n"));
  const std::string ignoring = "SigIgn:\t";
  const auto ignored = std::stoull(signals.substr(signals.find(ignoring) + ignoring.size()), nullptr, 16);
  EXPECT_EQ(ignored >> (SIGPIPE - 1) & 1, 0u) << signals;
  EXPECT_EQ(ignored >> (SIGXFSZ - 1) & 1, 0u) << signals;
}

TEST_F(LauncherTest, LeavesRunningProgramsAloneAtItsEndAndStartsNoneAfterwards) {
  Launcher launcher(script("echo $$ >\"$0.part\"; mv \"$0.part\" \"$0.id\"; exec tail -f /dev/null"), m_log);
  EXPECT_TRUE(launcher.launch(notepad()));
  while (!fs::exists(m_folder / "command.id"))
    std::this_thread::yield();
  launcher.endAll();
  const int id = std::stoi(content("command.id"));
  EXPECT_EQ(kill(id, 0), 0);
  kill(id, SIGTERM);
  expectRefused(launcher, notepad(), "aps is stopping; print again when it is back");
}

}  // namespace
}  // namespace aps
