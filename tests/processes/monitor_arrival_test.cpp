#include "tests/processes/scene.h"
#include "tests/processes/wine_host.h"

#include <cstdlib>
#include <fstream>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/personality.h>
#include <thread>

namespace tests {
namespace {

bool longTests() {
  return std::getenv("MG_LONG_TESTS") != nullptr;
}

class MonitorArrival : public ::testing::Test {
 protected:
  void SetUp() override {
    MG_SKIP_WITHOUT_WINDOWS_PROGRAMS();
    m_scene = std::make_unique<Scene>();
    m_wine = std::make_unique<WineHost>(*m_scene);
  }

  static std::vector<std::string> patternOf(std::size_t size, std::size_t writeSize) {
    return {"--pattern", std::to_string(size), "--write-size", std::to_string(writeSize)};
  }

  std::unique_ptr<Scene> m_scene;
  std::unique_ptr<WineHost> m_wine;
};

TEST_F(MonitorArrival, EveryByteArrivesInDeliveryMode1) {
  const auto client = m_scene->startClient(5, {"Laser-2,format=raw"});
  for (const std::size_t size : {0, 1, 5, 32767, 32768, 32769, 70000, 5000000}) {
    for (const std::size_t writeSize : {1, 4096, 1000000}) {
      if (size == 5000000 && writeSize == 1 && !longTests()) continue;
      const std::string name = std::to_string(size) + " by " + std::to_string(writeSize);
      ASSERT_TRUE(m_wine->print("Laser-2 (session 5)", name, patternOf(size, writeSize))) << m_wine->diagnosis();
      ASSERT_TRUE(m_scene->content(5, name + ".prn") == WineHost::pattern(size)) << name;
    }
  }
}

// Its heap may else lie where Windows has a page of its own, and it ends with 1 before it has done anything.
TEST_F(MonitorArrival, AProgramUnderWineIsNotPlacedAtRandom) {
  if (std::system("setarch -R true") != 0) GTEST_SKIP() << "the system does not permit it";
  const auto host = m_wine->start("port_host.exe", {"--port", "CPP5", "--printer", "Laser", "--hold-after", "OpenPort"},
                                  ChildProcess::Input::kLines);
  host->waitForLine("holding after OpenPort");
  unsigned long personality = 0;
  std::ifstream("/proc/" + std::to_string(host->id()) + "/personality") >> std::hex >> personality;
  EXPECT_NE(personality & ADDR_NO_RANDOMIZE, 0u);
  host->say("go on");
  EXPECT_EQ(host->wait(), 1) << host->output();  // nobody has such a printer
}

TEST_F(MonitorArrival, DataThatAreNotPostScriptArriveAsTheyAreInDeliveryMode2) {
  const auto client = m_scene->startClient(5, {"Laser-2,format=pdf"});
  for (const std::size_t size : {5, 32767, 32768, 32769, 70000, 5000000}) {
    const std::string name = std::to_string(size);
    ASSERT_TRUE(m_wine->print("Laser-2 (session 5)", name, patternOf(size, 1000000))) << m_wine->diagnosis();
    ASSERT_TRUE(m_scene->content(5, name + ".prn") == WineHost::pattern(size)) << name;
  }
}

TEST_F(MonitorArrival, PostScriptBecomesAPdfInDeliveryMode2) {
  const auto client = m_scene->startClient(5, {"Laser-2,format=pdf"});
  const std::string letter = std::string(MG_SOURCE_DIR) + "/examples/letter.ps";
  ASSERT_TRUE(
      m_wine->print("Laser-2 (session 5)", "letter", {"--file", WineHost::windowsPath(letter), "--write-size", "4096"}))
      << m_wine->diagnosis();
  const std::string pdf = m_scene->content(5, "letter.pdf");
  EXPECT_EQ(pdf.substr(0, 5), "%PDF-");
  EXPECT_NE(pdf.find("%%EOF", pdf.size() - 1024), std::string::npos);
  m_scene->server().waitForLine(
      "\"letter\" on \"Laser-2 (session 5)\" (session 5) was delivered: " + std::to_string(pdf.size()) + " bytes.");
}

TEST_F(MonitorArrival, PrintersOfEveryNamePrintInDeliveryMode2AndTheirFilesAreRemoved) {
  const std::string letter = std::string(MG_SOURCE_DIR) + "/examples/letter.ps";
  const std::vector<std::string> names = {
      "日本語", "ＡＢ", "Büro €", "Ωmega", "🖨", "100 % 'a' $HOME", "aux", std::string(150, 'n')};
  std::vector<std::string> printers;
  for (const std::string& name : names)
    printers.push_back(name + ",format=pdf");
  const auto client = m_scene->startClient(5, printers);
  const std::vector<std::string> before = m_wine->temporaryFiles();
  for (std::size_t i = 0; i < names.size(); ++i) {
    const std::string document = "letter " + std::to_string(i);
    ASSERT_TRUE(m_wine->print(names[i] + " (session 5)", document, {"--file", WineHost::windowsPath(letter)}))
        << names[i] << m_wine->diagnosis();
    EXPECT_EQ(m_scene->content(5, document + ".pdf").substr(0, 5), "%PDF-") << names[i];
  }
  EXPECT_THAT(m_wine->temporaryFiles(), testing::UnorderedElementsAreArray(before));
}

TEST_F(MonitorArrival, LessThanFiveBytesCountAsPostScriptAndAreNotPrintedInDeliveryMode2) {
  const auto client = m_scene->startClient(5, {"Laser-2,format=pdf"});
  for (const std::size_t size : {0, 1, 2, 3, 4}) {
    EXPECT_FALSE(m_wine->print("Laser-2 (session 5)", "short", patternOf(size, 4096))) << size;
    client->waitForLine("not printed \"short\": no data came");
  }
  EXPECT_THAT(m_scene->files(5), ::testing::IsEmpty());
}

TEST_F(MonitorArrival, EveryByteArrivesInDeliveryMode3) {
  const auto client = m_scene->startClient(5, {"Laser-2"});
  std::string name = "streamed";
  int number = 1;
  for (const std::size_t size : {0, 1, 5, 32767, 32768, 32769, 70000, 5000000}) {
    auto arguments = patternOf(size, 4096);
    arguments.insert(arguments.end(), {"--mode", "3", "--printer", "Laser-2 (session 5)"});
    const auto host = m_wine->start("stream_host.exe", arguments);
    ASSERT_EQ(host->wait(), 0) << host->output();
    ASSERT_TRUE(m_scene->content(5, name + ".prn") == WineHost::pattern(size)) << size;
    name = "streamed (" + std::to_string(++number) + ")";
  }
}

TEST_F(MonitorArrival, TwoSessionsPrintAtTheSameTimeEachToItsOwnClient) {
  const auto first = m_scene->startClient(5, {"Laser-2"});
  const auto second = m_scene->startClient(6, {"Laser-2"});
  std::vector<std::unique_ptr<ChildProcess>> hosts;
  for (const char* session : {"5", "6"}) {
    std::vector<std::string> arguments = {"--port",     std::string("CPP") + session,
                                          "--printer",  std::string("Laser-2 (session ") + session + ")",
                                          "--document", std::string("of ") + session};
    const auto data = patternOf(5000000, 4096);
    arguments.insert(arguments.end(), data.begin(), data.end());
    hosts.push_back(m_wine->start("port_host.exe", arguments));
  }
  for (const auto& host : hosts)
    EXPECT_EQ(host->wait(), 0) << host->output();
  EXPECT_TRUE(m_scene->content(5, "of 5.prn") == WineHost::pattern(5000000));
  EXPECT_TRUE(m_scene->content(6, "of 6.prn") == WineHost::pattern(5000000));
}

TEST_F(MonitorArrival, TheWindowsBuildsOfServerAndClientCarryJobsToo) {
  const auto server = m_wine->start("aps.exe", {"--listen", "127.0.0.1:0", "--no-keys"});
  const std::string line = server->waitForLine("aps listens on 127.0.0.1:");
  const int port = std::stoi(line.substr(line.rfind(':') + 1));
  const auto client = m_wine->start("printclient.exe",
                                    {"--server", "127.0.0.1:" + std::to_string(port), "--session", "6", "--printer",
                                     "B\xC3\xBCro,format=raw", "--output", WineHost::windowsPath(m_scene->output(6))});
  client->waitForLine("ready: the server knows \"B\xC3\xBCro (session 6)\"");
  m_wine->useServer(port);
  EXPECT_TRUE(m_wine->print("B\xC3\xBCro (session 6)", "Brief \xE2\x82\xAC", patternOf(70000, 4096)))
      << m_wine->diagnosis();
  client->waitForLine("printed \"Brief \xE2\x82\xAC\": 70000 bytes to Brief \xE2\x82\xAC.prn");
  EXPECT_TRUE(m_scene->content(6, "Brief \xE2\x82\xAC.prn") == WineHost::pattern(70000));
  for (ChildProcess* process : {client.get(), server.get()}) {
    process->signal(SIGKILL);  // Wine has no console to press Ctrl-C on
    process->wait();
  }
}

}  // namespace
}  // namespace tests
