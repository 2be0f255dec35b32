#include "tests/sweeps/sweep.h"

#include "tests/support/failing_new.h"
#include "tests/sweeps/ledger.h"

#include <gtest/gtest.h>
#include <string>
#include <vector>

namespace {

// A broken clean-up fails at most of the numbers; the first few tell enough.
constexpr int kEnoughFailures = 3;

int countComplaints() {
  return testing::UnitTest::GetInstance()->current_test_info()->result()->total_part_count();
}

void runWithoutThrowing(Scenario& scenario) {
  try {
    scenario.run();
  } catch (...) {
    ADD_FAILURE() << "an exception left the operation";
  }
}

void expectNothingLeft(const guarded_heap::Mark& mark, const Scenario& scenario) {
  std::vector<guarded_heap::Block> left = mark.left();
  std::erase_if(left, [&](const guarded_heap::Block& block) { return scenario.isLeftOnPurpose(block); });
  EXPECT_TRUE(left.empty()) << guarded_heap::describe(left);
  EXPECT_EQ(ledger::countOpen(), 0u) << "handles, keys or files are left open";
}

// One round: the failure, if the disturbance brings one, and everything that must hold after it.
template <class Disturb>
bool round(World& world, Scenario& scenario, Disturb&& runDisturbed) {
  const int complaints = countComplaints();
  const guarded_heap::Mark mark;
  scenario.prepare();
  const bool failed = runDisturbed();
  scenario.check();
  if (!failed) scenario.checkWhole();
  world.expectLocksFree();
  runWithoutThrowing(scenario);
  scenario.check();
  scenario.checkRepeated();
  scenario.tidy();
  world.restoreRecords();
  // What a complaint is kept in is left as well.
  if (countComplaints() == complaints) expectNothingLeft(mark, scenario);
  return failed;
}

template <class Disturb>
int sweep(World& world, Scenario& scenario, const std::string& what, Disturb&& runDisturbed) {
  // What is made once per process is made before anything is counted.
  for (int i = 0; i < 2; ++i) {
    scenario.prepare();
    runWithoutThrowing(scenario);
    scenario.check();
    scenario.tidy();
    world.restoreRecords();
  }
  int failures = 0;
  for (int nth = 1;; ++nth) {
    const int before = countComplaints();
    bool failed = false;
    {
      SCOPED_TRACE(what + " " + std::to_string(nth));
      failed = round(world, scenario, [&] { return runDisturbed(nth); });
    }
    if (countComplaints() != before && ++failures == kEnoughFailures) return nth;
    if (!failed) return nth - 1;
  }
}

}  // namespace

int sweepAllocations(World& world, Scenario& scenario) {
  return sweep(world, scenario, "allocation", [&](int nth) {
    const FailingNew failing(nth);
    runWithoutThrowing(scenario);
    return failing.hasFailed();
  });
}

int sweepCalls(World& world, Scenario& scenario, std::initializer_list<DWORD> errors) {
  int count = 0;
  for (const DWORD error : errors) {
    count += sweep(world, scenario, "error " + std::to_string(error) + " from call", [&](int nth) {
      world.seams().failNth(nth, error);
      runWithoutThrowing(scenario);
      const bool failed = world.seams().hasFailed();
      world.seams().failNth(0);
      return failed;
    });
  }
  return count;
}
