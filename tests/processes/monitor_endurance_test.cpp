// Many documents through one load of the print monitor: what the spooler's process holds at the end is what it held
// at the beginning. The times are printed, for scripts/test-long to judge.

#include "tests/processes/process_watch.h"
#include "tests/processes/scene.h"
#include "tests/processes/wine_host.h"

#include <cstdio>
#include <cstdlib>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <stdexcept>
#include <utility>

namespace tests {
namespace {

constexpr std::size_t kDocumentBytes = 10000;
// Wine's own memory comes and goes by some pages.
constexpr std::size_t kGrowthKilobytes = 1024;

// The time of one document, from "2000 documents, median 3120 us".
long long medianOf(const std::string& line) {
  int documents = 0;
  long long median = 0;
  if (std::sscanf(line.c_str(), "%d documents, median %lld us", &documents, &median) != 2) {
    throw std::runtime_error("no report: " + line);
  }
  return median;
}

TEST(MonitorEndurance, ManyDocumentsLeaveNothingBehindInTheSpooler) {
  MG_SKIP_WITHOUT_WINDOWS_PROGRAMS();
  const bool isLong = std::getenv("MG_LONG_TESTS") != nullptr;
  const int all = isLong ? 5000 : 200;
  const int step = isLong ? 1000 : 50;
  Scene scene;
  WineHost wine(scene);
  const auto client = scene.startClient(5, {"Laser-2,format=raw"});
  const auto host = wine.start(
      "port_host.exe",
      {"--port", "CPP5", "--printer", "Laser-2 (session 5)", "--document", "Report", "--pattern",
       std::to_string(kDocumentBytes), "--repeat", std::to_string(all), "--report-every", std::to_string(step)},
      ChildProcess::Input::kLines);
  std::vector<long long> medians;
  std::vector<Held> held, wineServer;  // Wine's server has what is behind the handles
  for (int printed = step; printed <= all; printed += step) {
    medians.push_back(medianOf(host->waitForLine(" documents, ")));
    std::printf("endurance: the monitor under Wine: median of the %d documents before %d: %lld us\n", step, printed,
                medians.back());
    host->waitForLine("holding after " + std::to_string(printed));
    held.push_back(heldBy(host->id()));
    wineServer.push_back(heldBy(wine.server()));
    host->say("go on");
  }
  EXPECT_EQ(host->wait(), 0) << host->output();
  std::printf(
      "endurance: the monitor under Wine: %d jobs, median of the first %d %lld us, of the last %d %lld us, "
      "ratio %.3f\n",
      all, step, medians.front(), step, medians.back(),
      static_cast<double>(medians.back()) / static_cast<double>(medians.front()));
  const double firstTime = held[1].processorSeconds - held[0].processorSeconds;
  const double lastTime = held.back().processorSeconds - held[held.size() - 2].processorSeconds;
  std::printf(
      "endurance: the monitor under Wine: processor time of documents %d to %d %.0f us each, of the last %d %.0f "
      "us, ratio %.3f\n",
      step + 1, 2 * step, firstTime * 1e6 / step, step, lastTime * 1e6 / step, lastTime / firstTime);
  for (const auto& [who, looks] : {std::pair("the spooler", held), std::pair("Wine's server", wineServer)}) {
    const Held &first = looks.front(), &last = looks.back();
    std::printf("endurance: %s: %zu and %zu KiB, %zu and %zu threads, %zu and %zu descriptors\n", who, first.kilobytes,
                last.kilobytes, first.threads, last.threads, first.descriptors, last.descriptors);
    // Wine's own services may leave meanwhile.
    EXPECT_LE(last.threads, first.threads) << who;
    EXPECT_LE(last.descriptors, first.descriptors) << who;
    EXPECT_LE(last.kilobytes, first.kilobytes + kGrowthKilobytes) << who;
  }
  const std::string pattern = WineHost::pattern(kDocumentBytes);
  EXPECT_EQ(scene.files(5).size(), static_cast<std::size_t>(all));
  for (int number = 1; number <= all; ++number)
    ASSERT_TRUE(scene.content(5, "Report " + std::to_string(number) + ".prn") == pattern) << number;
}

}  // namespace
}  // namespace tests
