#include "tests/support/test_deadline.h"
#include "tests/sweeps/first_start.h"

#include <cstdlib>
#include <cstring>
#include <gtest/gtest.h>

// "sweeps_tests first-start 3" is a process of its own for one test; anything else runs the tests.
int main(int count, char** arguments) {
  if (count == 3 && std::strcmp(arguments[1], "first-start") == 0) return firstStart(std::atoi(arguments[2]));
  testing::InitGoogleTest(&count, arguments);
  tests::TestDeadline::use();
  return RUN_ALL_TESTS();
}
