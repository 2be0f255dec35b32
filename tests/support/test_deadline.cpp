#include "tests/support/test_deadline.h"

#include <cstdlib>

namespace tests {

void TestDeadline::use() {
  if (std::getenv("MG_LONG_TESTS") != nullptr) return;
  ::testing::UnitTest::GetInstance()->listeners().Append(new TestDeadline);  // which owns it
}

}  // namespace tests
