// Held jobs of a server and a print client that are programs of Windows.

#include "programs/text.h"
#include "tests/end_to_end/administration_fixture.h"
#include "tests/processes/keys.h"
#include "tests/processes/monitor_peer.h"
#include "tests/processes/process_table.h"

#include <fstream>
#include <iterator>
#include <signal.h>

namespace tests {
namespace {

namespace fs = std::filesystem;
using ::testing::AllOf;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;

constexpr wchar_t kHeldPrinter[] = L"Laser-2 (session 5)";

class AdministrationOfHeldJobs : public testing::Test {
 protected:
  AdministrationOfHeldJobs() {
    machine.clean();
    for (const char* name : {"monitor", "session-5"})
      keys.make(name);
    fs::remove_all(data());
    fs::create_directories(data() / "out");
  }
  void TearDown() override {
    if (server) kill();
    machine.clean();
    fs::remove_all(data());
  }

  fs::path data() const { return machine.path() / "drive_c/held-jobs-test"; }
  void start() {
    server = std::make_unique<ChildProcess>(
        WinePrefix::command(windowsProgram("aps.exe"),
                            {"--listen", "127.0.0.1:" + std::to_string(port), "--keys", windowsPath(keys.folder()),
                             "--hold", "C:\\held-jobs-test\\held", "--client-wait", "0", "--pace", "5"}));
    const std::string line = server->waitForLine("aps listens on 127.0.0.1:");
    port = std::stoi(line.substr(line.rfind(':') + 1));
  }
  void kill() {
    machine.tool("taskkill", {"/f", "/im", "aps.exe"});
    server->wait();
    server.reset();
  }
  std::unique_ptr<ChildProcess> startClient() const {
    auto client = std::make_unique<ChildProcess>(
        WinePrefix::command(windowsProgram("printclient.exe"),
                            {"--server", "127.0.0.1:" + std::to_string(port), "--session", "5", "--printer",
                             "Laser-2,format=raw", "--output", "C:\\held-jobs-test\\out", "--key",
                             windowsPath(keys.path("session-5")), "--no-page", "--no-notices", "--pace", "5"}));
    client->waitForLine("ready: ");
    return client;
  }
  static void stop(std::unique_ptr<ChildProcess>& client) {
    client->signal(SIGINT);
    EXPECT_EQ(client->wait(), 0) << client->output();
    client.reset();
  }
  // The client came once, so that the session is known.
  void makeKnown() {
    auto client = startClient();
    stop(client);
    EXPECT_TRUE(comesTrue([&] { return fs::exists(data() / "held" / "sessions"); }, 60));
    server->waitForLine("session 5: the print client has gone");
  }
  // The answer to the job's end; 0 when it was refused.
  int print(const std::wstring& document, const std::string& content) {
    MonitorPeer peer(port, corvane::Identity::monitor(), keys.path("monitor"));
    if (!peer.attach(kHeldPrinter)) return 0;
    peer.startJob({L"Laser-2 - Job #17", L"Laser-2", document, L"RAW"}, {1, 1, 1, 1});
    peer.writeJob(content);
    return peer.endJob();
  }
  static std::string contentOf(const fs::path& path) {
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
  }
  static std::vector<std::string> namesIn(const fs::path& folder, const std::string& suffix = "") {
    std::vector<std::string> names;
    for (const auto& entry : fs::directory_iterator(folder)) {
      const std::string name = entry.path().filename().string();
      if (name.ends_with(suffix) && !name.starts_with(".")) names.push_back(name);
    }
    std::sort(names.begin(), names.end());
    return names;
  }
  std::vector<std::string> held(const std::string& suffix = ".job") const { return namesIn(data() / "held", suffix); }
  std::vector<std::string> documents() const {
    std::vector<std::string> contents;
    for (const std::string& name : namesIn(data() / "out"))
      contents.push_back(contentOf(data() / "out" / name));
    return contents;
  }
  void install() {
    const auto result = machine.administer(
        {"install", "--no-services", "--port", std::to_string(port), "--key", windowsPath(keys.path("monitor"))});
    EXPECT_EQ(result.code, 0) << result.output;
  }

  Machine& machine = Machine::get();
  Keys keys;
  int port = 0;
  std::unique_ptr<ChildProcess> server;
};

// Every byte there is.
std::string everything(std::size_t size, int from) {
  std::string text(size, '\0');
  for (std::size_t i = 0; i < size; ++i)
    text[i] = static_cast<char>((i * 31 + i / 251 + static_cast<std::size_t>(from)) & 0xff);
  return text;
}

TEST_F(AdministrationOfHeldJobs, ArriveInOrderAndWholeAlsoWhenTheServerWasKilled) {
  start();
  makeKnown();
  const std::string one = everything(300001, 1), two = everything(65536, 2), three = everything(7, 3);
  EXPECT_EQ(print(L"1", one), 1);
  EXPECT_EQ(print(L"2", two), 1);
  EXPECT_TRUE(comesTrue([&] { return held().size() == 2; }, 60));
  kill();
  EXPECT_EQ(held().size(), 2u);
  start();
  EXPECT_EQ(print(L"3", three), 1);
  EXPECT_TRUE(comesTrue([&] { return held().size() == 3; }, 60));
  auto client = startClient();
  client->waitForLine("printed \"1\": 300001 bytes");
  client->waitForLine("printed \"2\": 65536 bytes");
  client->waitForLine("printed \"3\": 7 bytes");
  EXPECT_TRUE(comesTrue([&] { return held().empty(); }, 60));
  EXPECT_TRUE(comesTrue([&] { return held(".sent").empty(); }, 60));  // which goes behind its job
  EXPECT_THAT(held(".part"), IsEmpty());
  const auto arrived = documents();
  ASSERT_EQ(arrived.size(), 3u);
  EXPECT_TRUE(arrived[0] == one);
  EXPECT_TRUE(arrived[1] == two);
  EXPECT_TRUE(arrived[2] == three);
  stop(client);
}

TEST_F(AdministrationOfHeldJobs, OfAnotherKeyAreNeverDelivered) {
  start();
  makeKnown();
  EXPECT_EQ(print(L"Secret", "for the first one"), 1);
  EXPECT_TRUE(comesTrue([&] { return held().size() == 1; }, 60));
  fs::remove(keys.path("session-5"));
  keys.make("session-5");
  auto client = startClient();
  EXPECT_EQ(print(L"Letter", "for the second one"), 1);
  client->waitForLine("printed \"Letter\": ");
  kill();
  start();
  client->waitForLine("ready: ");
  EXPECT_EQ(print(L"Letter", "once more"), 1);
  client->waitForLine("printed \"Letter\": ");
  EXPECT_EQ(held().size(), 1u);
  EXPECT_THAT(documents(), ::testing::UnorderedElementsAre("for the second one", "once more"));
  stop(client);
}

// Wine has an access list in the bits of owner, group and others; the administrators are in the group's. What is in the
// folder gets its rights from there on Windows only; here the folder lets nobody else through to it.
TEST_F(AdministrationOfHeldJobs, AreInAFolderThatOnlyTheAccountOfTheServerMayUse) {
  start();
  makeKnown();
  EXPECT_EQ(print(L"Letter", "hello"), 1);
  EXPECT_TRUE(comesTrue([&] { return held().size() == 1; }, 60));
  EXPECT_EQ(fs::status(data() / "held").permissions() & fs::perms::others_all, fs::perms::none);
  EXPECT_NE(fs::status(data() / "out").permissions() & fs::perms::others_all, fs::perms::none) << "of the other folder";
}

TEST_F(AdministrationOfHeldJobs, AreCalledHeldAndNotDeliveredByThePrintCommand) {
  start();
  makeKnown();
  install();
  const auto up =
      machine.administer({"session", "up", "5", "--processor", "mgtestproc", "--driver", "Generic PostScript"});
  EXPECT_EQ(up.code, 0) << up.output;
  const auto printed = machine.administer({"print", "Laser-2 (session 5)", windowsPath(kLetter)});
  EXPECT_EQ(printed.code, 0) << printed.output;
  EXPECT_THAT(printed.output, AllOf(HasSubstr("job 1 on \"Laser-2 (session 5)\" is held until the client of session 5 "
                                              "is back, 6565 bytes"),
                                    Not(HasSubstr("delivered"))));
  auto client = startClient();
  client->waitForLine("printed \"letter.ps\": ");
  stop(client);
}

TEST_F(AdministrationOfHeldJobs, AreShownByStatusAndToldByTheWatch) {
  start();
  makeKnown();
  install();
  EXPECT_THAT(machine.administer({"status"}).output,
              AllOf(HasSubstr("session 5: print client gone since "), Not(HasSubstr(" held, "))));
  auto watch = machine.start({"watch", "--processor", "mgtestproc", "--driver", "Generic PostScript"});
  watch->waitForLine("watching the sessions");
  EXPECT_EQ(print(L"1", "hello"), 1);
  EXPECT_EQ(print(L"2", "world!"), 1);
  EXPECT_TRUE(comesTrue([&] { return held().size() == 2; }, 60));
  EXPECT_THAT(machine.administer({"status"}).output, HasSubstr("\n  2 jobs are held, 11 B, the oldest since "));
  EXPECT_THAT(machine.administer({"status", "--json"}).output,
              AllOf(HasSubstr("\"held\": {"), HasSubstr("\"jobs\": 2,"), HasSubstr("\"bytes\": 11,")));
  auto client = startClient();
  client->waitForLine("printed \"2\": ");
  watch->waitForLine("session 5: job 17 on \"Laser-2 (session 5)\" was held, and has been delivered");
  watch->waitForLine("session 5: job 17 on \"Laser-2 (session 5)\" was held, and has been delivered");
  watch->signal(SIGINT);
  EXPECT_EQ(watch->wait(), 0) << watch->output();
  stop(client);
}

}  // namespace
}  // namespace tests
