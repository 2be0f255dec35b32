// The main function of the test binaries that have none of their own.

#include "tests/support/test_deadline.h"

#include <gmock/gmock.h>

int main(int count, char** arguments) {
  testing::InitGoogleMock(&count, arguments);
  tests::TestDeadline::use();
  return RUN_ALL_TESTS();
}
