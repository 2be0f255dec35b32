#include "tests/support/test_deadline.h"

#include <csignal>
#include <cstdio>
#include <cstring>
#include <unistd.h>

namespace tests {
namespace {

char s_message[512];  // made when a test starts, because a signal handler may not

void giveUp(int) {
  [[maybe_unused]] const ssize_t written = ::write(STDERR_FILENO, s_message, std::strlen(s_message));
  ::_exit(1);
}

}  // namespace

void TestDeadline::OnTestStart(const ::testing::TestInfo& test) {
  std::snprintf(s_message, sizeof s_message, "\n%s.%s: not over after %d seconds\n[  FAILED  ] %s.%s\n",
                test.test_suite_name(), test.name(), kTestSeconds, test.test_suite_name(), test.name());
  std::signal(SIGALRM, giveUp);
  ::alarm(kTestSeconds);
}

void TestDeadline::OnTestEnd(const ::testing::TestInfo&) {
  ::alarm(0);
}

}  // namespace tests
