#include "corvane/wire/heartbeat.h"
#include "corvane/wire/link.h"
#include "tests/support/failing_new.h"

#include <atomic>
#include <functional>
#include <gtest/gtest.h>
#include <thread>

namespace {

using namespace corvane;

// What only beats: it does something, and nothing ever comes.
class BeatenStream final : public Stream {
 public:
  explicit BeatenStream(std::function<void()> onBeat) : m_onBeat(std::move(onBeat)) {}

  void setPatience(const Patience&) override {}
  void send(std::span<const Piece>) override { m_onBeat(); }
  bool hasRoom() const noexcept override { return true; }
  std::optional<std::size_t> receive(std::span<unsigned char>, std::optional<Deadline>) override {
    return std::nullopt;
  }
  void shutdown() noexcept override { m_isShut = true; }
  void close() noexcept override {}
  bool peerHasClosed() const noexcept override { return m_isShut; }
  std::string peerName() const override { return "nobody"; }
  std::vector<unsigned char> localEndpoint() const override { return {}; }
  std::vector<unsigned char> peerEndpoint() const override { return {}; }

 private:
  const std::function<void()> m_onBeat;
  std::atomic<bool> m_isShut{false};
};

void awaitMore(const std::atomic<int>& count) {
  for (const int before = count; count == before;)
    std::this_thread::yield();
}

TEST(HeartbeatMemory, ARoundWithoutMemoryIsLeftOutAndEveryLinkBeatsInTheNextOne) {
  std::atomic<int> ofFirst{0}, ofSecond{0}, failed{0};
  std::unique_ptr<FailingNew> failing;  // of the heartbeat's thread
  const auto first = std::make_shared<Link>(std::make_unique<BeatenStream>([&] {
    if (!failing) failing = std::make_unique<FailingNew>(1);
    failed = failing->hasFailed() ? 1 : 0;
    ++ofFirst;
  }));
  const auto second = std::make_shared<Link>(std::make_unique<BeatenStream>([&] { ++ofSecond; }));
  Heartbeat heartbeat(Patience{std::chrono::seconds(120), std::chrono::milliseconds(1), std::chrono::seconds(120)});
  heartbeat.watch(first);
  awaitMore(ofFirst);
  EXPECT_EQ(failed, 0);
  heartbeat.watch(second);  // a round needs memory for one more
  awaitMore(ofSecond);
  awaitMore(ofFirst);
  EXPECT_EQ(failed, 1);
  EXPECT_FALSE(first->hasEnded());
  EXPECT_FALSE(second->hasEnded());
  EXPECT_FALSE(first->peerHasClosed());
}

}  // namespace
