#include "server/own_calls.h"

#include <atomic>
#include <gtest/gtest.h>
#include <memory>
#include <mutex>
#include <thread>

namespace aps {
namespace {

// Accepts at an address as the server does, until it is stopped; what is no own call is counted.
class Accepting {
 public:
  Accepting(OwnCalls& calls, const std::string& address)
      : m_listener(address), m_thread([this, &calls] {
          while (auto socket = m_listener.accept()) {
            if (!calls.answer(*socket)) ++m_others;
          }
        }) {}
  ~Accepting() {
    m_listener.stop();
    m_thread.join();
  }
  Accepting(const Accepting&) = delete;
  Accepting& operator=(const Accepting&) = delete;

  std::string address() const { return m_listener.address(); }
  std::uint16_t port() const { return m_listener.port(); }
  int others() const { return m_others; }

 private:
  corvane::Listener m_listener;
  std::atomic<int> m_others{0};
  std::thread m_thread;
};

const std::string kNobody = "nobody takes the call";

TEST(OwnCalls, AThreadThatAcceptsAnswersAfterItsLook) {
  int looks = 0;
  OwnCalls calls([&looks] { ++looks; });
  const Accepting accepting(calls, "127.0.0.1:0");
  EXPECT_EQ(calls.call(accepting.address(), corvane::after(60000)), "");
  EXPECT_EQ(calls.call(accepting.address(), corvane::after(60000)), "");
  EXPECT_EQ(looks, 2);
  EXPECT_EQ(accepting.others(), 0);
}

TEST(OwnCalls, ListenersOfEveryAddressAreCalledOnThisMachinesOwn) {
  OwnCalls calls([] {});
  for (const char* address : {"0.0.0.0:0", "[::1]:0", "[::]:0"}) {
    const Accepting accepting(calls, address);
    EXPECT_EQ(calls.call(accepting.address(), corvane::after(60000)), "") << address;
    EXPECT_EQ(accepting.others(), 0) << address;
  }
}

TEST(OwnCalls, APeerIsNoOwnCallAlsoNotWhileOneIsMade) {
  OwnCalls* own = nullptr;
  std::unique_ptr<corvane::Socket> peer, taken;
  corvane::Listener other("127.0.0.1:0");
  OwnCalls calls([&] {
    // A call is being made and is answered by this thread right now.
    peer = std::make_unique<corvane::Socket>(corvane::Socket::connect("127.0.0.1", other.port(), false));
    taken = std::make_unique<corvane::Socket>(*other.accept());
    EXPECT_FALSE(own->answer(*taken));
  });
  own = &calls;
  const Accepting accepting(calls, "127.0.0.1:0");
  EXPECT_EQ(calls.call(accepting.address(), corvane::after(60000)), "");
  ASSERT_TRUE(taken);
  EXPECT_FALSE(calls.answer(*taken)) << "nor afterwards";
}

TEST(OwnCalls, WhereNobodyAcceptsThereIsNoAnswer) {
  OwnCalls calls([] {});
  const corvane::Listener hung("127.0.0.1:0");
  EXPECT_EQ(calls.call(hung.address(), corvane::after(20)), kNobody);
}

TEST(OwnCalls, ALookThatDoesNotEndIsNoAnswer) {
  std::mutex hung;
  OwnCalls calls([&hung] { const std::lock_guard<std::mutex> guard(hung); });
  const Accepting accepting(calls, "127.0.0.1:0");
  {
    const std::lock_guard<std::mutex> guard(hung);
    EXPECT_EQ(calls.call(accepting.address(), corvane::after(20)), kNobody);
  }
  EXPECT_EQ(calls.call(accepting.address(), corvane::after(60000)), "");
}

TEST(OwnCalls, AListenerThatHasGoneRefuses) {
  OwnCalls calls([] {});
  std::string address;
  { address = corvane::Listener("127.0.0.1:0").address(); }
  EXPECT_EQ(calls.call(address, corvane::after(60000)), "Connection refused");
}

TEST(OwnCalls, OneWhoAcceptsAndAnswersNothingIsNoAnswer) {
  OwnCalls calls([] {});
  corvane::Listener listener("127.0.0.1:0");
  std::thread thread([&listener] { listener.accept(); });
  EXPECT_EQ(calls.call(listener.address(), corvane::after(60000)), "the call was not answered");
  thread.join();
}

TEST(OwnCalls, AStopEndsACallThatWaitsAndEveryLaterOne) {
  OwnCalls calls([] {});
  corvane::Listener hung("127.0.0.1:0");
  std::thread thread([&] {
    const auto taken = hung.accept();  // the call has come, and waits
    calls.stop();
  });
  EXPECT_EQ(calls.call(hung.address(), corvane::after(60000)), "the server stops");
  thread.join();
  EXPECT_EQ(calls.call(hung.address(), corvane::after(60000)), "the server stops");
}

}  // namespace
}  // namespace aps
