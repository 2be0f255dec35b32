#include "admin/base/failure.h"
#include "admin/doctor/checks.h"

#include <gtest/gtest.h>

namespace admin {
namespace {

using Words = std::pair<std::string, std::string>;

// Cause and remedy; the finding and nothing when it is well.
template <typename Check>
Words saidBy(Check check) {
  try {
    return {check(), ""};
  } catch (const Failure& failure) {
    return {failure.what(), failure.remedy()};
  }
}

ServiceFacts service(DWORD state, bool isDisabled) {
  ServiceFacts facts;
  facts.state = state;
  facts.process = 7;
  facts.isDisabled = isDisabled;
  return facts;
}

TEST(SpoolerCheck, ASpoolerThatRunsIsWell) {
  EXPECT_EQ(saidBy([] { return checkSpooler(service(SERVICE_RUNNING, false), false); }), Words("runs, process 7", ""));
}

TEST(SpoolerCheck, OneThatIsStoppedDisabledOrMissingIsNot) {
  EXPECT_EQ(saidBy([] { return checkSpooler(service(SERVICE_STOPPED, false), false); }),
            Words("the service Spooler is stopped",
                  "Start it: net start Spooler. When it ends again, the event log (System, source Service Control "
                  "Manager) says why."));
  for (const bool printsHere : {false, true}) {
    EXPECT_EQ(
        saidBy([&] { return checkSpooler(service(SERVICE_STOPPED, true), printsHere); }),
        Words("the service Spooler is disabled",
              "Let it start: sc config Spooler start= auto, and net start Spooler. When it is disabled again "
              "afterwards, a group policy does that: Computer Configuration, Windows Settings, Security Settings, "
              "System Services, Print Spooler."));
  }
  EXPECT_EQ(saidBy([] { return checkSpooler(service(SERVICE_RUNNING, true), false); }).first,
            "the service Spooler is disabled, and runs until the machine starts again");
  EXPECT_EQ(saidBy([] { return checkSpooler(std::nullopt, false); }).first, "the service Spooler is missing");
}

TEST(SpoolerCheck, ASpoolerWithinTheProgramsNeedsNoService) {
  EXPECT_EQ(saidBy([] { return checkSpooler(service(SERVICE_STOPPED, false), true); }).first,
            "it is a part of each program that prints");
  EXPECT_EQ(saidBy([] { return checkSpooler(std::nullopt, true); }).first, "it is a part of each program that prints");
}

SpoolerPrinter printer(const std::wstring& name, const std::wstring& port) {
  return {name, port, L"Generic PostScript", L"winprint", L""};
}

TEST(QueueCheck, PrintersOfOtherPortsAreNotLookedAt) {
  SpoolerPrinter other = printer(L"Other", L"LPT1:");
  other.isPaused = other.isGoing = other.isOffline = true;
  EXPECT_EQ(checkQueues({L"CPP5"}, {other}), "there are none yet");
  EXPECT_EQ(checkQueues({L"CPP5"}, {other, printer(L"Laser", L"CPP5")}), "1 is ready to print");
  EXPECT_EQ(checkQueues({L"CPP5", L"CPP6"}, {printer(L"Ink", L"CPP6"), printer(L"Laser", L"CPP5")}),
            "2 are ready to print");
}

TEST(QueueCheck, EachThatStandsStillIsNamedWithWhatToDo) {
  SpoolerPrinter going = printer(L"Gone", L"CPP5");
  going.isGoing = true;
  EXPECT_EQ(
      saidBy([&] { return checkQueues({L"CPP5"}, {going}); }),
      Words("printer \"Gone\" is deleted, and it and its port \"CPP5\" stay until the last job has left its queue",
            "Let the job print, or delete it from the queue; when it does not go, restart the spooler."));
  SpoolerPrinter paused = printer(L"Laser", L"CPP5");
  paused.isPaused = true;
  SpoolerPrinter offline = printer(L"Ink", L"CPP5");
  offline.isOffline = true;
  EXPECT_EQ(
      saidBy([&] {
        return checkQueues({L"CPP5"}, {paused, offline});
      }),
      Words("printer \"Laser\" is paused: its jobs wait; printer \"Ink\" is offline: its jobs wait",
            "Take \"Pause Printing\" back in the menu of its queue. Take \"Use Printer Offline\" back in the menu "
            "of its queue."));
  SpoolerPrinter another = printer(L"Desk", L"CPP5");
  another.isPaused = true;
  EXPECT_EQ(saidBy([&] {
              return checkQueues({L"CPP5"}, {paused, another});
            }).second,
            "Take \"Pause Printing\" back in the menu of its queue.");
}

}  // namespace
}  // namespace admin
