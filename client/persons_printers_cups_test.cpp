// The printers of a real scheduler (cupsd), each test's own.

#include "client/persons_printers.h"
#include "tests/support/paper/print_scheduler.h"
#include "tests/support/paper/virtual_printer.h"

#include <functional>
#include <future>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <stdexcept>

namespace printclient {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

// On a thread of its own: what libcups knows of the scheduler it keeps for each thread.
template <class Result>
Result apart(const std::function<Result()>& call) {
  return std::async(std::launch::async, call).get();
}

std::vector<PrinterOption> list(PersonsPrinters& printers) {
  return apart<std::vector<PrinterOption>>([&] { return printers.list(); });
}

bool hasChanged(PersonsPrinters& printers) {
  return apart<bool>([&] { return printers.hasChanged(); });
}

std::vector<std::string> names(PersonsPrinters& printers) {
  std::vector<std::string> all;
  for (const PrinterOption& found : list(printers))
    all.push_back(found.target.queue + (found.printer.isDefault ? "!" : ""));
  return all;
}

TEST(PersonsPrintersTest, AreTheQueuesOfTheSchedulerWithWhatItKnowsOfThem) {
  tests::PaperPlace place;
  tests::VirtualPrinter printer(place);
  tests::PrintScheduler scheduler(place);
  scheduler.addQueue("desk", printer.uri(), {"-m", "everywhere", "-D", "By the door", "-L", "Room 7"});
  scheduler.addQueue("labels", "socket://127.0.0.1:1", {"-m", "raw"});
  scheduler.administer({"/usr/sbin/lpadmin", "-d", "desk"});
  PersonsPrinters printers({});
  const std::vector<PrinterOption> found = list(printers);
  ASSERT_EQ(found.size(), 2u);
  EXPECT_EQ(found[0].target.queue, "desk");
  EXPECT_EQ(found[0].printer.name(), L"desk");
  EXPECT_EQ(found[0].printer.texts[1],
            L"By the door, black and white, one-sided, 600 dpi, paper Letter, A4, Env10, EnvDL, Legal");
  EXPECT_EQ(found[0].printer.resolution, 600);
  EXPECT_EQ(found[0].printer.texts[2], L"Room 7");
  EXPECT_EQ(found[0].printer.texts[6], L"Printer - IPP Everywhere");
  EXPECT_TRUE(found[0].printer.isDefault);
  EXPECT_EQ(found[0].printer.format, protocol::DataFormat::kPdf);
  EXPECT_EQ(found[1].target.queue, "labels");
  EXPECT_FALSE(found[1].printer.isDefault);
  EXPECT_EQ(found[1].printer.texts[1], L"labels, black and white, one-sided");
  EXPECT_EQ(found[1].printer.resolution, 0);
  EXPECT_EQ(found[1].printer.format, protocol::DataFormat::kRaw);
  PersonsPrinters some({{"d*", "l*"}, {"?esk"}});
  EXPECT_THAT(names(some), ElementsAre("labels"));
}

TEST(PersonsPrintersTest, AChangeIsToldOnce) {
  tests::PaperPlace place;
  tests::PrintScheduler scheduler(place);
  PersonsPrinters printers({});
  EXPECT_THAT(names(printers), IsEmpty());
  EXPECT_FALSE(hasChanged(printers));
  scheduler.addQueue("b", "socket://127.0.0.1:1", {"-m", "raw"});
  EXPECT_TRUE(hasChanged(printers));
  EXPECT_FALSE(hasChanged(printers));
  scheduler.addQueue("a", "socket://127.0.0.1:1", {"-m", "raw"});
  EXPECT_TRUE(hasChanged(printers));
  scheduler.administer({"/usr/sbin/lpadmin", "-d", "b"});
  EXPECT_TRUE(hasChanged(printers));
  EXPECT_THAT(names(printers), ElementsAre("a", "b!"));
  scheduler.administer({"/usr/sbin/lpadmin", "-d", "a"});
  EXPECT_TRUE(hasChanged(printers));
  scheduler.administer({"/usr/sbin/lpadmin", "-p", "b", "-L", "Room 7"});
  EXPECT_TRUE(hasChanged(printers));
  scheduler.administer({"/usr/sbin/lpadmin", "-x", "b"});
  EXPECT_TRUE(hasChanged(printers));
  EXPECT_FALSE(hasChanged(printers));
  EXPECT_THAT(names(printers), ElementsAre("a!"));
}

std::string causeFor(Options options) {
  return apart<std::string>([&]() -> std::string {
    try {
      PersonsPrinters::addTo(options);
      return "";
    } catch (const std::runtime_error& failure) {
      return failure.what();
    }
  });
}

TEST(PersonsPrintersTest, WithoutASchedulerOrAPrinterThereIsACause) {
  tests::PaperPlace place;
  EXPECT_EQ(
      causeFor({}),
      "the printers of this user are not known: no print scheduler (CUPS) answers at 127.0.0.1; start it, or name "
      "printers with --printer");
  tests::PrintScheduler scheduler(place);
  EXPECT_EQ(causeFor({}),
            "this user has no printers on this machine; add one to the system, or name one with --printer");
  scheduler.addQueue("b", "socket://127.0.0.1:1", {"-m", "raw"});
  EXPECT_EQ(causeFor({}), "");
  Options chosen;
  chosen.only = {"a"};
  EXPECT_EQ(
      causeFor(chosen),
      "this user has no printer that --only and --except leave; see their names in the system's list of printers, "
      "or name one with --printer");
}

}  // namespace
}  // namespace printclient
