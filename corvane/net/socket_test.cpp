#include "corvane/net/socket.h"

#include "corvane/base/limits.h"
#include "corvane/records/exception.h"
#include "corvane/records/messages.h"
#include "tests/support/corvane/socket_fixture.h"

#include <atomic>

#ifndef _WIN32
#include <csignal>
#include <pthread.h>
#endif

namespace {

using namespace corvane;
using namespace std::chrono_literals;

int option(std::intptr_t handle, int level, int name) {
  int value = 0;
  SocketLength length = sizeof value;
  EXPECT_EQ(0, ::getsockopt(native(handle), level, name, reinterpret_cast<char*>(&value), &length));
  return value;
}

std::vector<Socket::Piece> cutInto(std::span<const unsigned char> bytes, std::size_t length) {
  std::vector<Socket::Piece> pieces;
  for (std::size_t at = 0; at < bytes.size(); at += length)
    pieces.push_back(bytes.subspan(at, std::min(length, bytes.size() - at)));
  return pieces;
}

TEST(Socket, SendsAtOnceAndIsAskedWhetherItStillLives) {
  const NarrowPair pair;
  for (const std::intptr_t handle : {pair.dialedHandle, pair.acceptedHandle}) {
    EXPECT_NE(0, option(handle, IPPROTO_TCP, TCP_NODELAY));
    EXPECT_NE(0, option(handle, SOL_SOCKET, SO_KEEPALIVE));
  }
}

TEST(Socket, EveryByteOfASendInPartsArrivesInItsPlace) {
  const auto bytes = unlikeBytes(3 * kSendWindow + 12345);
  // Parts of one send end inside pieces, at their ends, and after more pieces than one call takes.
  for (const std::size_t length : {bytes.size(), std::size_t{70001}, std::size_t{4096}, std::size_t{333}}) {
    NarrowPair pair;
    std::vector<unsigned char> came;
    std::jthread receiver([&] { came = receiveAll(pair.accepted, bytes.size()); });
    pair.dialed.send(cutInto(bytes, length));
    receiver.join();
    EXPECT_TRUE(came == bytes) << "pieces of " << length << ": " << came.size() << " bytes, or others";
  }
}

TEST(Socket, PiecesWithoutBytesDoNotHoldUpASend) {
  NarrowPair pair;
  const auto bytes = unlikeBytes(10);
  const Socket::Piece pieces[] = {{}, std::span(bytes).first(4), {}, std::span(bytes).subspan(4), {}};
  pair.dialed.send(pieces);
  EXPECT_EQ(bytes, receiveAll(pair.accepted, bytes.size()));
}

// Sends until the send is refused, 64 MiB at most; says why.
std::pair<int, std::wstring> sendUntilRefused(Socket& socket, std::size_t atOnce) {
  const auto bytes = unlikeBytes(atOnce);
  const Socket::Piece pieces[] = {bytes};
  try {
    for (std::size_t sent = 0; sent < 64 * 1024 * 1024; sent += atOnce)
      socket.send(pieces);
  } catch (const CS_Exception& exception) {
    return {exception.number(), exception.detail()};
  }
  return {0, L"everything was taken"};
}

TEST(Socket, APeerThatTakesNothingIsGivenUpHoweverMuchIsSentAtOnce) {
  for (const std::size_t atOnce : {std::size_t{1}, std::size_t{5000}, std::size_t{8 * 1024 * 1024}}) {
    NarrowPair pair;
    pair.dialed.setPatience(Patience().faster(1000));
    const auto [number, reason] = sendUntilRefused(pair.dialed, atOnce);
    EXPECT_EQ(kConnectionLost, number);
    EXPECT_EQ(0u, reason.find(L"the other side takes no more data: ")) << std::string(reason.begin(), reason.end());
    EXPECT_NE(std::wstring::npos, reason.find(L" bytes in 120 ms of waiting"));
  }
}

TEST(Socket, APeerThatTakesAFewBytesAtATimeIsGivenUpToo) {
  // One large send, and many that each end soon.
  for (const std::size_t atOnce : {std::size_t{4 * 1024 * 1024}, std::size_t{1000}}) {
    NarrowPair pair;
    pair.dialed.setPatience(Patience().faster(1000));
    std::atomic<bool> refused{false};
    std::jthread trickle([&] {
      std::vector<unsigned char> few(100);
      while (!refused) {
        pair.accepted.receive(few, after(1));
        std::this_thread::yield();
        std::this_thread::sleep_for(1ms);  // this is what the test is about: a peer that takes its time
      }
    });
    EXPECT_EQ(kConnectionLost, sendUntilRefused(pair.dialed, atOnce).first);
    refused = true;
    trickle.join();
  }
}

TEST(Socket, APeerThatKeepsUpMayKeepItsSenderWaitingForMoreThanThatInTotal) {
  NarrowPair pair;
  const Patience patience = Patience().faster(200);
  pair.dialed.setPatience(patience);
  std::atomic<bool> done{false};
  std::jthread receiver([&] {
    std::vector<unsigned char> buffer(32 * 1024);
    while (!done) {
      receiveAll(pair.accepted, buffer.size());
      std::this_thread::sleep_for(1ms);  // the sender is the faster one and always waits
    }
  });
  const auto bytes = unlikeBytes(100000);
  const Socket::Piece pieces[] = {bytes};
  const auto until = std::chrono::steady_clock::now() + patience.send * 5 / 4;
  while (std::chrono::steady_clock::now() < until)
    EXPECT_NO_THROW(pair.dialed.send(pieces));
  done = true;
  pair.dialed.shutdown();
  receiver.join();
}

TEST(Socket, AReceiveEndsAtItsDeadlineAndTheNextOneGetsWhatComesThen) {
  NarrowPair pair;
  std::vector<unsigned char> buffer(100);
  EXPECT_EQ(std::nullopt, pair.accepted.receive(buffer, std::chrono::steady_clock::now()));
  EXPECT_EQ(std::nullopt, pair.accepted.receive(buffer, after(1)));
  const auto bytes = unlikeBytes(10);
  const Socket::Piece pieces[] = {bytes};
  pair.dialed.send(pieces);
  EXPECT_EQ(bytes, receiveAll(pair.accepted, bytes.size()));
}

TEST(Socket, NoByteIsLostBetweenReceivesThatDoNotWait) {
  NarrowPair pair;
  const auto bytes = unlikeBytes(20000);
  std::jthread sender([&] {
    for (const auto& piece : cutInto(bytes, 7)) {
      const Socket::Piece pieces[] = {piece};
      pair.dialed.send(pieces);
    }
  });
  std::vector<unsigned char> came(bytes.size());
  std::size_t count = 0;
  const auto until = after(20000);
  while (count < came.size() && std::chrono::steady_clock::now() < until) {
    const auto now = pair.accepted.receive(std::span(came).subspan(count), std::chrono::steady_clock::now());
    if (now) count += *now;
  }
  sender.join();
  EXPECT_EQ(bytes.size(), count);
  EXPECT_TRUE(came == bytes);
}

TEST(Socket, ShutdownEndsAReceiveAndASendThatWait) {
  NarrowPair pair;
  std::atomic<int> ended{0};
  std::jthread receiver([&] {
    std::vector<unsigned char> buffer(10);
    try {
      const auto came = pair.dialed.receive(buffer, std::nullopt);
      EXPECT_EQ(0u, came.value_or(1));
    } catch (const CS_Exception&) {
    }
    ++ended;
  });
  std::jthread sender([&] {
    EXPECT_EQ(kConnectionLost, sendUntilRefused(pair.dialed, 1024 * 1024).first);
    ++ended;
  });
  // The sender waits once the other side has got something, because that side holds less than is sent.
  EXPECT_EQ(1000u, receiveAll(pair.accepted, 1000).size());
  pair.dialed.shutdown();
  receiver.join();
  sender.join();
  EXPECT_EQ(2, ended);
}

#ifndef _WIN32

std::atomic<int> signalsTaken{0};

// Signals the thread until it has taken so many of them, or has ended.
void interrupt(std::jthread& thread, int times, const std::atomic<bool>& ended) {
  const int until = signalsTaken + times;
  // Again and again: ThreadSanitizer keeps a signal back until a later one interrupts the call.
  while (signalsTaken < until && !ended) {
    ::pthread_kill(thread.native_handle(), SIGUSR1);
    std::this_thread::yield();
  }
}

class SocketSignal : public ::testing::Test {
 protected:
  SocketSignal() {
    struct sigaction action {};
    action.sa_handler = [](int) { ++signalsTaken; };  // without SA_RESTART: a call that waits ends with EINTR
    ::sigaction(SIGUSR1, &action, &m_before);
  }
  ~SocketSignal() override { ::sigaction(SIGUSR1, &m_before, nullptr); }

  NarrowPair m_pair;

 private:
  struct sigaction m_before {};
};

TEST_F(SocketSignal, DoesNotEndAReceive) {
  for (const bool bounded : {false, true}) {
    std::vector<unsigned char> came(10);
    std::optional<std::size_t> count;
    std::atomic<bool> isReceiving{false};
    std::atomic<bool> ended{false};
    std::jthread receiver([&] {
      const auto deadline = bounded ? std::optional<Deadline>(after(60000)) : std::nullopt;
      isReceiving = true;
      EXPECT_NO_THROW(count = m_pair.accepted.receive(came, deadline));
      ended = true;
    });
    while (!isReceiving)
      std::this_thread::yield();
    interrupt(receiver, 200, ended);
    const auto bytes = unlikeBytes(10);
    const Socket::Piece pieces[] = {bytes};
    m_pair.dialed.send(pieces);
    receiver.join();
    EXPECT_EQ(10u, count);
    EXPECT_EQ(bytes, came);
  }
}

TEST(IdleSocket, ReturnsWithoutADeadlineTooAndGivesWhatComesAndTheEnd) {
  NarrowPair pair;
  ASSERT_TRUE(pair.accepted.returnWhenIdle(std::chrono::milliseconds(1010)));
  ASSERT_TRUE(pair.accepted.returnWhenIdle(std::chrono::milliseconds(10)));
  std::vector<unsigned char> came(10);
  EXPECT_EQ(std::nullopt, pair.accepted.receive(came, std::nullopt));
  EXPECT_EQ(std::nullopt, pair.accepted.receive(came, after(1)));
  const auto bytes = unlikeBytes(10);
  const Socket::Piece pieces[] = {bytes};
  pair.dialed.send(pieces);
  EXPECT_EQ(10u, pair.accepted.receive(came, std::nullopt));
  EXPECT_EQ(bytes, came);
  pair.dialed.shutdown();
  EXPECT_EQ(0u, pair.accepted.receive(came, std::nullopt));
}

TEST_F(SocketSignal, NeitherEndsASendNorDisturbsItsBytes) {
  const auto bytes = unlikeBytes(2 * 1024 * 1024);
  std::atomic<bool> ended{false};
  std::jthread sender([&] {
    const auto pieces = cutInto(bytes, 50001);
    EXPECT_NO_THROW(m_pair.dialed.send(pieces));
    ended = true;
    m_pair.dialed.shutdown();
  });
  std::vector<unsigned char> came(bytes.size());
  std::size_t count = 0;
  while (count < bytes.size()) {
    if (count < 200000) interrupt(sender, 10, ended);
    const auto now = m_pair.accepted.receive(std::span(came).subspan(count), after(20000));
    if (now.value_or(0) == 0) break;
    count += *now;
  }
  sender.join();
  EXPECT_TRUE(came == bytes);
}

#endif

}  // namespace
