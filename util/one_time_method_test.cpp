#include "util/one_time_method.h"

#include <functional>
#include <gtest/gtest.h>
#include <stdexcept>
#include <thread>

namespace {

class Method : public OneTimeMethod {
 public:
  std::function<void(std::int32_t)> body = [](std::int32_t) {};
  int runs = 0;

 protected:
  void runMethod(std::int32_t argument) override {
    ++runs;
    body(argument);
  }
};

}  // namespace

TEST(OneTimeMethod, RunsOnceAndAnswersSuccessThenDone) {
  Method method;
  EXPECT_EQ(method.state(), 6);
  EXPECT_EQ(method.run(false, 1), 8);
  EXPECT_EQ(method.run(false, 1), 3);
  EXPECT_EQ(method.run(true, 1), 3);
  EXPECT_EQ(method.state(), 3);
  EXPECT_EQ(method.runs, 1);
}

TEST(OneTimeMethod, HandsItsArgumentInAndItsResultOut) {
  Method method;
  method.body = [&](std::int32_t argument) { method.setResult(argument + 1); };
  std::int32_t value = 4711;
  EXPECT_EQ(method.result(nullptr), 1);
  EXPECT_EQ(method.result(&value), 7);
  EXPECT_EQ(value, 4711);
  method.run(false, 41);
  EXPECT_EQ(method.result(&value), 8);
  EXPECT_EQ(value, 42);
}

TEST(OneTimeMethod, HasMinusOneForAResultThatItsMethodDidNotSet) {
  Method method;
  method.run(false, 0);
  std::int32_t value = 0;
  EXPECT_EQ(method.result(&value), 8);
  EXPECT_EQ(value, -1);
}

TEST(OneTimeMethod, AnswersRunningInsteadOfWaitingForItself) {
  Method method;
  std::int32_t waited = 0;
  std::int32_t ranAgain = 0;
  std::int32_t early = 0;
  std::int32_t value = 0;
  method.body = [&](std::int32_t) {
    waited = method.wait(INFINITE);
    ranAgain = method.run(true, 0);
    early = method.result(&value);
  };
  method.run(false, 0);
  EXPECT_EQ(waited, 4);
  EXPECT_EQ(ranAgain, 4);
  EXPECT_EQ(early, 7);
  EXPECT_EQ(method.runs, 1);
}

TEST(OneTimeMethod, TimesOutWhileTheMethodHasNotFinished) {
  Method method;
  EXPECT_EQ(method.wait(0), 9);
  method.run(false, 0);
  EXPECT_EQ(method.wait(0), 8);
  EXPECT_EQ(method.wait(INFINITE), 8);
}

TEST(OneTimeMethod, LetsOtherThreadsSeeTheStateOrWaitForTheEnd) {
  Method method;
  Signal inside;
  Signal goOn;
  method.body = [&](std::int32_t) {
    inside.set();
    goOn.wait();
  };
  std::jthread running([&] { EXPECT_EQ(method.run(false, 0), 8); });
  inside.wait();
  EXPECT_EQ(method.run(false, 0), 4);
  EXPECT_EQ(method.wait(0), 9);
  std::jthread waiting([&] { EXPECT_EQ(method.run(true, 0), 3); });
  goOn.set();
  waiting.join();
  running.join();
  EXPECT_EQ(method.runs, 1);
}

TEST(OneTimeMethod, CountsAsFinishedWhenItsMethodThrows) {
  Method method;
  method.body = [](std::int32_t) { throw std::runtime_error("from the method"); };
  EXPECT_THROW(method.run(false, 0), std::runtime_error);
  EXPECT_EQ(method.run(true, 0), 3);
  EXPECT_EQ(method.wait(INFINITE), 8);
}
