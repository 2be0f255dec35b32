// Where the programs write what they have to say: pipes that nobody reads, full disks, files that are renamed.

#include "corvane/records/exception.h"
#include "corvane/trust/key.h"
#include "tests/processes/administration_peer.h"
#include "tests/processes/keys.h"
#include "tests/processes/monitor_peer.h"
#include "tests/processes/scene.h"

#include <algorithm>
#include <fcntl.h>
#include <fstream>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <iterator>
#include <signal.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>

namespace tests {
namespace {

namespace fs = std::filesystem;
using ::testing::AllOf;
using ::testing::Contains;
using ::testing::HasSubstr;

// A pipe of one page whose reading end is open and never read. The programs get it by its path.
class UnreadPipe {
 public:
  UnreadPipe() {
    if (pipe2(m_ends, O_CLOEXEC) != 0 || fcntl(m_ends[1], F_SETPIPE_SZ, 4096) < 0) throw std::runtime_error("no pipe");
  }
  ~UnreadPipe() {
    close(m_ends[0]);
    close(m_ends[1]);
  }
  UnreadPipe(const UnreadPipe&) = delete;
  UnreadPipe& operator=(const UnreadPipe&) = delete;

  std::string path() const { return "/proc/" + std::to_string(getpid()) + "/fd/" + std::to_string(m_ends[1]); }
  // Whether another byte finds no place.
  bool isFull() const {
    int waiting = 0;
    return ioctl(m_ends[0], FIONREAD, &waiting) == 0 && waiting > 4096 - 512;
  }

 private:
  int m_ends[2];
};

std::string quoted(const std::vector<std::string>& command) {
  std::string text;
  for (const std::string& word : command)
    text += "'" + word + "' ";
  return text;
}

// The command with one of its outputs redirected.
std::vector<std::string> redirected(const std::vector<std::string>& command, const std::string& redirection) {
  return {"/bin/sh", "-c", "exec " + quoted(command) + redirection};
}

std::string content(const fs::path& path) {
  std::ifstream in(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(in), {}};
}

// Until the file holds the text; a program of its own writes it.
std::string waitForText(const fs::path& path, const std::string& text) {
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::minutes(1);
  while (true) {
    std::string all = content(path);
    if (all.find(text) != std::string::npos) return all;
    if (std::chrono::steady_clock::now() > deadline) throw std::runtime_error("no \"" + text + "\" in:\n" + all);
    std::this_thread::sleep_for(std::chrono::milliseconds(2));
  }
}

int portOf(ChildProcess& server) {
  const std::string line = server.waitForLine("aps listens on 127.0.0.1:");
  return std::stoi(line.substr(line.rfind(':') + 1));
}

int printThrough(int port) {
  MonitorPeer peer(port);
  EXPECT_TRUE(peer.attach(L"Laser-2 (session 5)"));
  peer.startJob({L"j", L"", L"A document with a title that takes some room on a line", L""}, {1, 1, 1, 1});
  peer.writeJob("hello");
  return peer.endJob();
}

TEST(Output, TheVersionOfAProgramIsItsNameAndFourNumbersAndNothingIsStarted) {
  for (const std::string name : {"aps", "printclient"}) {
    ChildProcess program({Scene::program(name), "--version"});
    EXPECT_EQ(program.wait(), 0);
    EXPECT_EQ(program.output(), name + " 4.0.1.0\n");
  }
}

TEST(Output, ALogThatNobodyReadsStopsNeitherTheServerNorItsJobsNorItsEnd) {
  const UnreadPipe unread;
  Scene scene;  // for its folder and client
  ChildProcess server(redirected(Scene::serverCommand("127.0.0.1:0", {}), "2>" + unread.path()));
  const int port = portOf(server);
  auto command = scene.clientCommand(5, {"Laser-2"});
  command[2] = "127.0.0.1:" + std::to_string(port);
  ChildProcess client(command);
  client.waitForLine("ready: ");
  for (int i = 0; i < 100; ++i) {
    MonitorPeer peer(port);
    EXPECT_FALSE(peer.attach(L"Nobody's"));
  }
  EXPECT_TRUE(unread.isFull());
  EXPECT_EQ(printThrough(port), 1);
  AdministrationPeer tool(port);
  EXPECT_EQ(tool.records(1000).size(), 100u);
  server.signal(SIGTERM);
  EXPECT_EQ(server.wait(), 0);
}

TEST(Output, AClientsOutputThatNobodyReadsStopsNoJob) {
  const UnreadPipe unread;
  Scene scene;
  ChildProcess client(redirected(scene.clientCommand(5, {"Laser-2"}), ">" + unread.path()));
  scene.server().waitForLine("session 5: a print client registers");
  for (int i = 0; i < 60; ++i)
    ASSERT_EQ(printThrough(scene.port()), 1);
  EXPECT_TRUE(unread.isFull());
  EXPECT_EQ(scene.files(5).size(), 60u);
  client.signal(SIGTERM);
  EXPECT_EQ(client.wait(), 0);
}

TEST(Output, AFullDiskBelowTheLogIsSaidToTheToolAndStopsNoJob) {
  Scene folder;
  const fs::path log = folder.folder() / "aps.log";
  fs::create_symlink("/dev/full", log);
  Scene scene({"--log", log.string()});
  const auto client = scene.startClient(5, {"Laser-2"});
  EXPECT_EQ(printThrough(scene.port()), 1);
  AdministrationPeer tool(scene.port());
  EXPECT_THAT(tool.records(10),
              Contains(HasSubstr(L" the log cannot be written: No space left on device; its lines are "
                                 L"lost until it can")));
  fs::remove(log);
  scene.server().signal(SIGHUP);
  EXPECT_THAT(waitForText(log, " the log was reopened\n"), HasSubstr(" lines are missing here: No space left on"));
}

TEST(Output, ALimitOnTheSizeOfFilesDoesNotEndTheServer) {
  Scene folder;
  const fs::path log = folder.folder() / "aps.log";
  ChildProcess server(
      {"/bin/sh", "-c", "ulimit -f 1; exec " + quoted(Scene::serverCommand("127.0.0.1:0", {"--log", log.string()}))});
  const int port = portOf(server);
  for (int i = 0; i < 30; ++i) {
    MonitorPeer peer(port);
    EXPECT_FALSE(peer.attach(L"Nobody's"));
  }
  AdministrationPeer tool(port);
  EXPECT_THAT(tool.records(100), Contains(HasSubstr(L" the log cannot be written: File too large; ")));
  EXPECT_LE(fs::file_size(log), 1024u);
}

TEST(Output, AHangupBeginsANewLogFileAndWithoutAFileEndsTheServer) {
  Scene folder;
  const fs::path log = folder.folder() / "aps.log";
  {
    Scene scene({"--log", log.string()});
    waitForText(log, " aps listens on ");
    struct stat facts {};
    ASSERT_EQ(stat(log.c_str(), &facts), 0);
    EXPECT_EQ(facts.st_mode & 07777, 0600u);
    fs::path old = log;
    old += ".old";
    fs::rename(log, old);
    scene.server().signal(SIGHUP);
    waitForText(log, " the log was reopened\n");
    scene.server().signal(SIGHUP);
    EXPECT_THAT(content(old), Not(HasSubstr("reopened")));
    AdministrationPeer(scene.port()).status();
  }
  EXPECT_THAT(content(log), HasSubstr(" aps stops\n"));
  Scene scene;
  scene.server().signal(SIGHUP);
  EXPECT_EQ(scene.server().wait(), 0);
}

TEST(Output, HelpGoesToTheStandardOutputAndWhatIsWrongWithACommandToTheStandardError) {
  for (const char* name : {"aps", "printclient"}) {
    ChildProcess help({"/bin/sh", "-c", "\"$0\" --help 2>/dev/null", Scene::program(name)});
    EXPECT_NO_THROW(help.waitForLine(std::string("Usage: ") + name));
    EXPECT_EQ(help.wait(), 0);
    ChildProcess mistake({"/bin/sh", "-c", "\"$0\" --no-such-option >/dev/null", Scene::program(name)});
    EXPECT_NO_THROW(mistake.waitForLine("Run with --help for more information."));
    EXPECT_EQ(mistake.wait(), 2);
  }
}

TEST(Output, APeerWithoutAKeyPushesNothingOutOfTheLog) {
  Keys keys;
  keys.make("monitor");
  const std::string monitor = keys.path("monitor");
  Scene scene(keys.serverOptions());
  {
    MonitorPeer peer(scene.port(), corvane::Identity::monitor(), monitor);
    EXPECT_FALSE(peer.attach(L"Nobody's"));
  }
  for (int i = 0; i < 1000; ++i)
    EXPECT_THROW(MonitorPeer{scene.port()}, CS_Exception);
  {
    MonitorPeer peer(scene.port(), corvane::Identity::monitor(), monitor);
    EXPECT_FALSE(peer.attach(L"Nobody else's"));
  }
  scene.server().waitForLine("\"Nobody else's\"");
  scene.server().signal(SIGTERM);
  EXPECT_EQ(scene.server().wait(), 0);
  const std::string log = scene.server().output();
  std::size_t refused = 0;
  for (std::size_t at = log.find(" refused: "); at != std::string::npos; at = log.find(" refused: ", at + 1))
    ++refused;
  EXPECT_EQ(refused, 2u + 10u + 1u) << log;
  EXPECT_THAT(log, HasSubstr("990 more of these within "));
}

}  // namespace
}  // namespace tests
