#pragma once

#include <gtest/gtest.h>

namespace tests {

// Ends the process as failed when one test takes longer than kTestSeconds, and says which one: a test that waits for
// ever fails by its own name, and long before ctest gives up the whole binary. Not where MG_LONG_TESTS is set.
//
// Natively the system's alarm watches, so that there is no thread that a test could find; on Windows a thread of its
// own does, past any import that a test has put itself before.
class TestDeadline : public ::testing::EmptyTestEventListener {
 public:
  static constexpr int kTestSeconds = 200;

  // Has all tests of this process watched. Called once, between the initialisation of GoogleTest and the first test.
  static void use();

  void OnTestStart(const ::testing::TestInfo& test) override;
  void OnTestEnd(const ::testing::TestInfo& test) override;
};

}  // namespace tests
