#include "corvane/records/exception.h"
#include "corvane/records/messages.h"
#include "corvane/wire/link.h"

#include <atomic>
#include <functional>
#include <gtest/gtest.h>
#include <memory>
#include <thread>
#include <vector>

// When the end of a link closes its stream: as soon as no thread is in a call with it, once, and nothing is asked of it
// behind that.
namespace {

using namespace corvane;

// Takes everything, and counts what is asked of it.
class CountedStream final : public Stream {
 public:
  struct Counts {
    std::atomic<int> shutdowns{0}, closes{0}, sends{0}, late{0};
    std::function<void()> inSend;
  };
  explicit CountedStream(Counts& counts) : m_counts(counts) {}

  void setPatience(const Patience&) override {}
  void send(std::span<const Piece>) override {
    if (m_counts.closes > 0) ++m_counts.late;
    ++m_counts.sends;
    if (m_counts.inSend) m_counts.inSend();
    if (m_counts.closes > 0) ++m_counts.late;
  }
  bool hasRoom() const noexcept override { return true; }
  std::optional<std::size_t> receive(std::span<unsigned char>, std::optional<Deadline>) override { return 0; }
  void shutdown() noexcept override {
    if (m_counts.closes > 0) ++m_counts.late;
    ++m_counts.shutdowns;
  }
  void close() noexcept override { ++m_counts.closes; }
  bool peerHasClosed() const noexcept override { return false; }
  std::string peerName() const override { return "nobody"; }
  std::vector<unsigned char> localEndpoint() const override { return {}; }
  std::vector<unsigned char> peerEndpoint() const override { return {}; }

 private:
  Counts& m_counts;
};

class LinkEndTest : public ::testing::Test {
 protected:
  static void send(Link& link) { link.send({}, ValueWriter()); }

  CountedStream::Counts m_counts;
  Link m_link{std::make_unique<CountedStream>(m_counts)};
};

TEST_F(LinkEndTest, ALinkThatNoThreadUsesIsClosedAtOnceAndNeverAgain) {
  m_link.end(L"closed for the night");
  EXPECT_EQ(1, m_counts.closes);
  EXPECT_EQ(0, m_counts.shutdowns);
  m_link.end(L"once more");
  for (int i = 0; i < 3; ++i) {
    try {
      send(m_link);
      FAIL() << "it has ended";
    } catch (const CS_Exception& failure) {
      EXPECT_EQ(kConnectionLost, failure.number());
      EXPECT_STREQ(L"closed for the night", failure.detail());
    }
  }
  EXPECT_EQ(1, m_counts.closes);
  EXPECT_EQ(0, m_counts.shutdowns);
  EXPECT_EQ(0, m_counts.sends);
}

TEST_F(LinkEndTest, ALinkThatAThreadUsesIsShutDownAndClosedByThatThread) {
  m_counts.inSend = [this] {
    m_link.end(L"while it is used");
    EXPECT_EQ(1, m_counts.shutdowns);
    EXPECT_EQ(0, m_counts.closes);
    EXPECT_THROW(send(m_link), CS_Exception);  // another use, which is over at once
    EXPECT_EQ(0, m_counts.closes);
  };
  m_link.beat();  // a send that lets nothing out when the link ends in it
  EXPECT_EQ(1, m_counts.shutdowns);
  EXPECT_EQ(1, m_counts.closes);
  EXPECT_EQ(1, m_counts.sends);
}

TEST(LinkEnd, ThreadsThatUseALinkWhileItEndsFindItOpenOrEndedAndItIsClosedOnce) {
  for (int round = 0; round < 300; ++round) {
    CountedStream::Counts counts;
    Link link(std::make_unique<CountedStream>(counts));
    std::vector<std::jthread> senders;
    for (int i = 0; i < 3; ++i) {
      senders.emplace_back([&link] {
        try {
          for (;;)
            link.send({}, ValueWriter());
        } catch (const CS_Exception&) {
          // It has ended.
        }
      });
    }
    while (counts.sends < 5)
      std::this_thread::yield();
    link.end(L"over");
    senders.clear();
    EXPECT_EQ(1, counts.closes);
    EXPECT_GE(1, counts.shutdowns);
    EXPECT_EQ(0, counts.late);
  }
}

}  // namespace
