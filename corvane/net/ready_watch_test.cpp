#include "corvane/net/ready_watch.h"

#include "tests/support/corvane/link_fixture.h"

#include <array>
#include <map>

namespace {

using corvane::ReadyWatch;
using corvane::Socket;

// Counts what a watch tells, by its numbers.
class Told {
 public:
  void tell(std::uint64_t number) {
    const std::lock_guard guard(m_lock);
    ++m_times[number];
    m_changed.notify_all();
  }
  bool await(std::uint64_t number, int times) {
    std::unique_lock guard(m_lock);
    return m_changed.wait_for(guard, std::chrono::seconds(20), [&] { return m_times[number] >= times; });
  }
  int times(std::uint64_t number) {
    const std::lock_guard guard(m_lock);
    return m_times[number];
  }

 private:
  std::mutex m_lock;
  std::condition_variable m_changed;
  std::map<std::uint64_t, int> m_times;
};

class ReadyWatchTest : public ::testing::Test {
 protected:
  static void say(Socket& socket) {
    const std::array<unsigned char, 1> byte{};
    const Socket::Piece piece(byte);
    socket.send(std::span(&piece, 1));
  }
  static void hear(Socket& socket) {
    unsigned char byte = 0;
    EXPECT_EQ(1u, socket.receive({&byte, 1}, corvane::after(20000)));
  }

  Told m_told;
  ReadyWatch m_watch{[this](std::uint64_t number) { m_told.tell(number); }};
  NarrowPair m_one;
  NarrowPair m_other;
};

TEST_F(ReadyWatchTest, TellsOnceForEachWatchAndNothingOfAHandleThatSaysNothing) {
  ASSERT_TRUE(m_watch.watch(*m_one.accepted.idleHandle(), 1));
  ASSERT_TRUE(m_watch.watch(*m_other.accepted.idleHandle(), 2));
  say(m_one.dialed);
  EXPECT_TRUE(m_told.await(1, 1));
  say(m_one.dialed);
  // It is told of this one, and was not of the second byte in front of it.
  say(m_other.dialed);
  EXPECT_TRUE(m_told.await(2, 1));
  EXPECT_EQ(1, m_told.times(1));
  ASSERT_TRUE(m_watch.watch(*m_one.accepted.idleHandle(), 3));
  EXPECT_TRUE(m_told.await(3, 1)) << "the bytes are there already";
  hear(m_one.accepted);
  hear(m_one.accepted);
  ASSERT_TRUE(m_watch.watch(*m_one.accepted.idleHandle(), 4));
  ASSERT_TRUE(m_watch.watch(*m_other.accepted.idleHandle(), 5));
  EXPECT_TRUE(m_told.await(5, 1));
  EXPECT_EQ(0, m_told.times(4));
}

TEST_F(ReadyWatchTest, TellsOfAnEndOnEitherSide) {
  ASSERT_TRUE(m_watch.watch(*m_one.accepted.idleHandle(), 1));
  ASSERT_TRUE(m_watch.watch(*m_other.accepted.idleHandle(), 2));
  m_one.dialed.close();
  m_other.accepted.shutdown();
  EXPECT_TRUE(m_told.await(1, 1));
  EXPECT_TRUE(m_told.await(2, 1));
}

TEST_F(ReadyWatchTest, AHandleThatIsClosedIsForgottenAndItsNumberMayComeAgain) {
  const int handle = *m_one.accepted.idleHandle();
  ASSERT_TRUE(m_watch.watch(handle, 1));
  m_one.accepted.close();
  EXPECT_FALSE(m_watch.watch(handle, 2));
  NarrowPair again;
  ASSERT_TRUE(m_watch.watch(*again.accepted.idleHandle(), 3));
  say(again.dialed);
  EXPECT_TRUE(m_told.await(3, 1));
  EXPECT_EQ(0, m_told.times(1));
}

TEST_F(ReadyWatchTest, EndsWithHandlesThatAreWatched) {
  ReadyWatch watch([this](std::uint64_t number) { m_told.tell(number); });
  ASSERT_TRUE(watch.watch(*m_one.accepted.idleHandle(), 1));
}

}  // namespace
