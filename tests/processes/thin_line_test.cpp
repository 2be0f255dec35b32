// Print clients behind a narrow line: what of a job goes over it, and how jobs share it.

#include "corvane/records/exception.h"
#include "tests/processes/keys.h"
#include "tests/processes/monitor_peer.h"
#include "tests/processes/scene.h"
#include "tests/support/joined_thread.h"
#include "tests/support/network/forwarder.h"
#include "tests/support/network/sample_document.h"

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <gtest/gtest.h>
#include <optional>
#include <random>
#include <signal.h>
#include <system_error>
#include <thread>

namespace tests {
namespace {

using corvane::Identity;

constexpr std::uint64_t kTwoMegabit = 250000;  // bytes a second

std::string noise(std::size_t size) {
  std::mt19937 random(3);
  std::string bytes(size, ' ');
  for (char& byte : bytes)
    byte = static_cast<char>(random());
  return bytes;
}

class ThinLineTest : public ::testing::Test {
 protected:
  ThinLineTest() {
    m_keys.make("monitor");
    m_keys.make("session-5");
  }

  void start(const LineQuality& line, const std::vector<std::string>& serverOptions = {},
             const std::vector<std::string>& clientOptions = {}) {
    m_client = nullptr;
    m_way.reset();
    std::vector<std::string> options = m_keys.serverOptions();
    options.insert(options.end(), {"--listen-clients", "127.0.0.1:0"});
    options.insert(options.end(), serverOptions.begin(), serverOptions.end());
    m_scene.emplace(options);
    const std::string said = m_scene->server().waitForLine("aps listens for print clients on ");
    m_way.emplace(static_cast<std::uint16_t>(std::stoi(said.substr(said.rfind(':') + 1))), line);
    auto command = m_scene->clientCommand(5, {"Laser"});
    command[2] = m_way->address();
    command.insert(command.end(), {"--tls", "--key", m_keys.path("session-5")});
    command.insert(command.end(), clientOptions.begin(), clientOptions.end());
    m_client = std::make_unique<ChildProcess>(command);
    m_client->waitForLine("ready: ");
  }

  std::unique_ptr<MonitorPeer> begin(const std::wstring& document) const {
    auto peer = std::make_unique<MonitorPeer>(m_scene->port(), Identity::monitor(), m_keys.path("monitor"));
    EXPECT_TRUE(peer->attach(L"Laser (session 5)"));
    peer->startJob({L"j", L"", document, L""}, {1, 1, 1, 1});
    return peer;
  }
  static void write(MonitorPeer& peer, const std::string& data) {
    for (std::size_t at = 0; at < data.size(); at += 65536)
      peer.writeJob(data.substr(at, 65536));
  }
  int print(const std::wstring& document, const std::string& data) const {
    const auto peer = begin(document);
    write(*peer, data);
    return peer->endJob();
  }

  // What came of the document; its file is named after it and what it has.
  std::string arrived(const std::string& document) const {
    for (const std::string& file : m_scene->files(5)) {
      if (file.starts_with(document + ".")) return m_scene->content(5, file);
    }
    return "no such file";
  }

  // What has passed when the print client has a file of that size, under whatever name: from then on it waits for the
  // disk only, while other jobs go on. Also when none comes.
  std::size_t passedWhenThereAre(std::size_t bytes) {
    namespace fs = std::filesystem;
    for (const auto end = corvane::after(20000); std::chrono::steady_clock::now() < end;) {
      const std::size_t passed = m_way->passedBack();
      std::error_code ignored;
      for (fs::recursive_directory_iterator at(m_scene->folder(), ignored); at != fs::end(at); at.increment(ignored))
        if (fs::file_size(*at, ignored) == bytes) return passed;
      std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    ADD_FAILURE() << "no file of " << bytes << " bytes comes";
    return m_way->passedBack();
  }

  const Keys m_keys;
  std::optional<Scene> m_scene;
  std::optional<Forwarder> m_way;
  std::unique_ptr<ChildProcess> m_client;
};

TEST_F(ThinLineTest, AJobTakesLittleMoreThanItsCompressedSizeAndArrivesByteForByte) {
  start({kTwoMegabit, std::chrono::milliseconds(20)});
  const std::string data = postScript(1500000);
  const std::size_t before = m_way->passedBack();
  ASSERT_EQ(print(L"long", data), 1);
  const auto passed = static_cast<double>(m_way->passedBack() - before);
  EXPECT_LE(passed, 1.15 * static_cast<double>(compressedSize(data)));
  EXPECT_TRUE(arrived("long") == data);
}

TEST_F(ThinLineTest, TheSecondOfTwoEqualJobsTakesAsMuchAsTheFirst) {
  start({10 * kTwoMegabit});
  const std::string data = postScript(100000);
  std::size_t passed[2];
  for (std::size_t& each : passed) {
    const std::size_t before = m_way->passedBack();
    ASSERT_EQ(print(L"twin", data), 1);
    each = m_way->passedBack() - before;
  }
  EXPECT_GT(passed[1], passed[0] - passed[0] / 20) << "what one job has in common with another shows in its length";
}

TEST_F(ThinLineTest, WhatDoesNotBecomeShorterGoesAsItIs) {
  start({});
  const std::string data = noise(3000000);
  const std::size_t before = m_way->passedBack();
  ASSERT_EQ(print(L"picture", data), 1);
  const std::size_t passed = m_way->passedBack() - before;
  EXPECT_GE(passed, data.size());
  EXPECT_LE(passed, data.size() + data.size() / 50);
  EXPECT_TRUE(arrived("picture") == data);
}

TEST(LineOfTheMachineItself, CarriesJobsAsTheyAreNeitherPackedNorCut) {
  Scene scene;
  Forwarder way(static_cast<std::uint16_t>(scene.port()));
  auto command = scene.clientCommand(5, {"Laser"});
  command[2] = way.address();
  ChildProcess client(command);
  client.waitForLine("ready: ");
  const std::string data = postScript(1000000);
  MonitorPeer peer(scene.port());
  ASSERT_TRUE(peer.attach(L"Laser (session 5)"));
  peer.startJob({L"j", L"", L"here", L""}, {1, 1, 1, 1});
  for (std::size_t at = 0; at < data.size(); at += 65536)
    peer.writeJob(data.substr(at, 65536));
  ASSERT_EQ(peer.endJob(), 1);
  EXPECT_GE(way.passedBack(), data.size());
  // More than a piece of a long line in one frame.
  const auto seen = way.seen();
  const std::string begin = data.substr(0, 60000);
  EXPECT_TRUE(std::any_of(seen.begin(), seen.end(),
                          [&](const std::string& bytes) { return bytes.find(begin) != std::string::npos; }));
}

TEST_F(ThinLineTest, WithoutCompressionEveryByteGoesOverIt) {
  start({}, {"--no-compression"});
  const std::string data = postScript(1000000);
  ASSERT_EQ(print(L"plain", data), 1);
  EXPECT_GE(m_way->passedBack(), data.size());
  EXPECT_TRUE(arrived("plain") == data);
}

// Without turns and a bound on what is on its way, all of the long job would lie in front of the short one, on the line
// and in the buffers of the systems.
TEST_F(ThinLineTest, AShortJobOvertakesALongOneWhateverTheLineHoldsBack) {
  LineQuality line{2 * kTwoMegabit, std::chrono::milliseconds(20)};
  line.queue = 4 * 1024 * 1024;
  start(line, {"--no-compression"});
  const std::string page = postScript(20000);
  const auto longJob = begin(L"long");
  const std::string data = noise(3000000);
  JoinedThread writer([&] { write(*longJob, data); });
  m_client->waitForLine("receiving \"long\"");
  for (const std::size_t from = m_way->passedBack(); m_way->passedBack() < from + 500000;)
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  const std::size_t before = m_way->passedBack();
  JoinedThread printer([&] { EXPECT_EQ(print(L"short", page), 1); });
  EXPECT_LE(passedWhenThereAre(page.size()) - before, 10 * page.size());
  printer.join();
  writer.join();
  EXPECT_EQ(longJob->endJob(), 1);
  EXPECT_TRUE(arrived("long") == data);
}

TEST_F(ThinLineTest, ASessionIsSentNoMoreThanTheRateThatTheServerOrItsClientSays) {
  using Options = std::vector<std::string>;
  for (const auto& [ofServer, ofClient] :
       {std::pair(Options{"--client-rate", "5=200KB", "--client-rate", "1MB"}, Options{}),
        std::pair(Options{"--client-rate", "6=10KB"}, Options{"--rate", "200KB"})}) {
    start({}, ofServer, ofClient);
    const std::string data = noise(200000);
    const auto from = std::chrono::steady_clock::now();
    ASSERT_EQ(print(L"slow", data), 1);
    EXPECT_GE(std::chrono::steady_clock::now() - from, std::chrono::milliseconds(700));
  }
}

TEST_F(ThinLineTest, AClientThatIsKilledWhileItsLineIsFullIsNoticedByTheJob) {
  start({kTwoMegabit, std::chrono::milliseconds(10)});
  const auto job = begin(L"cut");
  JoinedThread killer([&] {
    m_client->waitForLine("receiving \"cut\"");
    m_client->signal(SIGKILL);
    EXPECT_EQ(m_client->wait(), 256 + SIGKILL);
    m_way->cut();
  });
  EXPECT_THROW(
      {
        write(*job, noise(5000000));
        job->endJob();
      },
      CS_Exception);
  killer.join();
}

}  // namespace
}  // namespace tests
