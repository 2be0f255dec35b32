#include "tests/processes/monitor_peer.h"
#include "tests/processes/scene.h"

#include <cstdlib>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <random>
#include <thread>

namespace tests {
namespace {

using ::testing::ElementsAre;
using ::testing::EndsWith;

bool longTests() {
  return std::getenv("MG_LONG_TESTS") != nullptr;
}

// Bytes of every value in no order, the same for each run; the first one makes sure that they are no text.
std::string someData(std::size_t size) {
  std::mt19937 random(static_cast<unsigned>(size) + 1);
  std::string data(size, '\0');
  for (std::size_t i = 1; i < size; ++i)
    data[i] = static_cast<char>(random());
  return data;
}

int print(int port, const std::wstring& printer, int mode, const std::wstring& document, const std::string& data,
          std::size_t writeSize) {
  MonitorPeer peer(port);
  if (!peer.attach(printer)) return -100;
  peer.startJob({L"Laser-2 - Job #17", L"Laser-2", document, L"RAW"}, {1, 1, 1, mode});
  for (std::size_t at = 0; at < data.size(); at += writeSize)
    peer.writeJob(data.substr(at, writeSize));
  return peer.endJob();
}

TEST(Arrival, EveryByteArrivesInEverySizeOfJobAndOfWriteInBothDirectModes) {
  Scene scene;
  const auto client = scene.startClient(5, {"Laser-2"});
  for (const std::size_t size : {0, 1, 5, 32767, 32768, 32769, 70000, 5000000}) {
    for (const std::size_t writeSize : {1, 4096, 1000000}) {
      for (const int mode : {1, 3}) {
        if (size == 5000000 && writeSize == 1 && !longTests()) continue;
        const std::string name =
            std::to_string(size) + " by " + std::to_string(writeSize) + " in mode " + std::to_string(mode);
        const std::string data = someData(size);
        const std::wstring document(name.begin(), name.end());
        ASSERT_EQ(print(scene.port(), L"Laser-2 (session 5)", mode, document, data, writeSize), 1) << name;
        ASSERT_TRUE(scene.content(5, name + ".prn") == data) << name;
      }
    }
  }
}

TEST(Arrival, ManyJobsAtOnceArriveEachInItsOwnFile) {
  Scene scene;
  const auto first = scene.startClient(5, {"Laser-2"});
  const auto second = scene.startClient(6, {"Laser-2"});
  std::vector<std::jthread> jobs;
  std::array<int, 8> results = {};
  for (std::size_t i = 0; i < results.size(); ++i) {
    jobs.emplace_back([&scene, &results, i] {
      const std::wstring session = i % 2 == 0 ? L"5" : L"6";
      results[i] = print(scene.port(), L"Laser-2 (session " + session + L")", 1, L"job" + std::to_wstring(i),
                         someData(300000 + i), 10000 + i);
    });
  }
  for (std::jthread& job : jobs)
    job.join();
  EXPECT_THAT(results, ::testing::Each(1));
  EXPECT_THAT(scene.files(5), ElementsAre("job0.prn", "job2.prn", "job4.prn", "job6.prn"));
  EXPECT_THAT(scene.files(6), ElementsAre("job1.prn", "job3.prn", "job5.prn", "job7.prn"));
  for (std::size_t i = 0; i < results.size(); ++i) {
    EXPECT_TRUE(scene.content(i % 2 == 0 ? 5 : 6, "job" + std::to_string(i) + ".prn") == someData(300000 + i)) << i;
  }
}

TEST(Arrival, TheKindOfTheDataGivesTheExtension) {
  Scene scene;
  const auto client = scene.startClient(5, {"Laser-2,format=pdf"});
  const std::wstring printer = L"Laser-2 (session 5)";
  EXPECT_EQ(print(scene.port(), printer, 2, L"a", "%PDF-1.4\nbody\n%%EOF\n", 5), 1);
  EXPECT_EQ(print(scene.port(), printer, 1, L"b", "%!PS-Adobe-3.0\nshowpage\n", 5), 1);
  EXPECT_EQ(print(scene.port(), printer, 2, L"c", "plain text\n", 5), 1);
  EXPECT_EQ(print(scene.port(), printer, 3, L"d",
                  "\x1b"
                  "E",
                  5),
            1);
  EXPECT_THAT(scene.files(5), ElementsAre("a.pdf", "b.ps", "c.txt", "d.prn"));
}

TEST(Arrival, NothingIsOverwrittenAndNoNameLeavesTheFolder) {
  Scene scene;
  const auto client = scene.startClient(5, {"Laser-2"});
  for (int i = 0; i < 3; ++i) {
    EXPECT_EQ(print(scene.port(), L"Laser-2 (session 5)", 1, L"../a/b", "text " + std::to_string(i), 100), 1);
  }
  EXPECT_THAT(scene.files(5), ElementsAre("-a-b (2).txt", "-a-b (3).txt", "-a-b.txt"));
  EXPECT_EQ(scene.content(5, "-a-b (2).txt"), "text 1");
}

TEST(Arrival, AJobHasItsLinesInTheServersLogAndAtTheClient) {
  Scene scene;
  const auto client = scene.startClient(5, {"Laser-2"});
  print(scene.port(), L"Laser-2 (session 5)", 1, L"Report", "hello", 100);
  client->waitForLine("receiving \"Report\" for \"Laser-2\"");
  EXPECT_EQ(client->waitForLine("printed"), "printed \"Report\": 5 bytes to Report.txt");
  const std::string job = "printer \"Laser-2 (session 5)\", session 5, process 1234";
  scene.server().waitForLine("job attached: " + job);
  EXPECT_THAT(scene.server().waitForLine("job ended: " + job + ": "),
              EndsWith("; the print client has answered its end"));
}

}  // namespace
}  // namespace tests
