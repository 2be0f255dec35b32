// Threads that wait on one link take turns reading it. Each seed is another course of events: who asks when, in which
// order and pieces the answers come, who gives up, looks for news or only talks, and how the link ends. Most is seen
// under ThreadSanitizer. MG_LONG_TESTS=1 tries two hundred times as many.
#include "tests/support/corvane/link_fixture.h"

#include <atomic>
#include <cstdlib>
#include <functional>
#include <random>

namespace {

using namespace corvane;

// Lets other threads go first, as the seed wants it.
class Chance {
 public:
  explicit Chance(unsigned seed) : m_random(seed) {}
  int below(int bound) { return static_cast<int>(m_random() % static_cast<unsigned>(bound)); }
  // On a busy machine each yield lasts as long as all others want to work, so there is one at most.
  void pause() {
    const int kind = below(8);
    if (kind >= 4) workFor(std::chrono::nanoseconds(100) * (1 << below(6)));
    if (kind == 6) std::this_thread::yield();
    if (kind == 7) std::this_thread::sleep_for(std::chrono::microseconds(below(200)));
  }

 private:
  static void workFor(std::chrono::nanoseconds time) {
    const auto end = std::chrono::steady_clock::now() + time;
    while (std::chrono::steady_clock::now() < end) {
    }
  }

  std::mt19937 m_random;
};

constexpr int kThreads = 4;
constexpr int kRounds = 12;
constexpr std::uint16_t kQuestion = 1;

// The other end: answers each question with its number, in the order and the pieces that the seed wants, and says
// something of its own in between. Ends the link after so many questions.
class Answers {
 public:
  Answers(Socket& socket, unsigned seed, int endsAfter) : m_socket(socket), m_chance(seed), m_endsAfter(endsAfter) {}

  void run() {
    FrameReader reader;
    while (m_answered < m_endsAfter) {
      auto frame = reader.next();
      // Before it waits for further questions it has answered those that it has.
      if (!frame && !m_open.empty() && m_chance.below(3) > 0) {
        answerOne();
        continue;
      }
      if (!frame) {
        if (reader.fill(m_socket, after(m_open.empty() ? 20000 : 1)) == FrameReader::Fill::kClosed) break;
        continue;
      }
      if (frame->header.number == kQuestion) m_open.push_back(frame->header);
    }
    m_chance.pause();
    m_socket.shutdown();
  }
  int pushed() const { return m_pushed; }

 private:
  void answerOne() {
    const auto at = m_open.begin() + m_chance.below(static_cast<int>(m_open.size()));
    FrameHeader header = *at;
    m_open.erase(at);
    header.kind = FrameKind::kReply;
    header.flags = 0;
    header.length = 4;
    std::vector<unsigned char> bytes(kFrameHeaderSize + 4);
    put(bytes, header);
    storeLittleEndian32(&bytes[kFrameHeaderSize], header.correlation);
    if (m_chance.below(2) == 0) {
      FrameHeader word;
      word.length = 4;
      word.number = static_cast<std::uint16_t>(m_pushed);
      std::vector<unsigned char> more(kFrameHeaderSize + 4);
      put(more, word);
      storeLittleEndian32(&more[kFrameHeaderSize], static_cast<std::uint32_t>(m_pushed++));
      bytes.insert(m_chance.below(2) == 0 ? bytes.begin() : bytes.end(), more.begin(), more.end());
    }
    for (std::span<const unsigned char> rest(bytes); !rest.empty();) {
      const auto piece = rest.first(std::min(rest.size(), static_cast<std::size_t>(1 + m_chance.below(48))));
      rest = rest.subspan(piece.size());
      const Socket::Piece pieces[] = {piece};
      m_socket.send(pieces);
      m_chance.pause();
    }
    ++m_answered;
  }
  static void put(std::vector<unsigned char>& bytes, const FrameHeader& header) {
    const EncodedHeader encoded = encodeHeader(header);
    std::copy(encoded.begin(), encoded.end(), bytes.begin());
  }

  Socket& m_socket;
  Chance m_chance;
  const int m_endsAfter;
  std::vector<FrameHeader> m_open;
  int m_answered = 0;
  int m_pushed = 0;
};

void askByTurns(Link& link, Chance own) {
  for (int round = 0; round < kRounds; ++round) {
    try {
      own.pause();
      if (own.below(4) == 0) link.lookForNews();
      Link::Pending pending(link, 0);
      FrameHeader header;
      header.number = kQuestion;
      header.flags = kFlagWantsReply;
      header.correlation = pending.correlation();
      own.below(4) == 0 ? link.send(header, ValueWriter()) : link.sendAwaited(header, ValueWriter());
      own.pause();
      if (own.below(5) == 0) continue;  // the reply finds nobody
      const auto bytes = pending.wait(after(own.below(6) == 0 ? 0 : 20000));
      ASSERT_EQ(4u, bytes.size());
      ASSERT_EQ(pending.correlation(), loadLittleEndian32(bytes.data()));
    } catch (const CS_Exception& exception) {
      if (exception.number() == kReplyTimedOut) continue;
      ASSERT_EQ(kConnectionLost, exception.number());
      return;
    }
  }
}

void tryCourse(unsigned seed) {
  NarrowPair pair;
  Link link(std::move(pair.dialed));
  FrameTaker taker;
  std::atomic<int> reading{0};
  int words = 0;  // written by the thread that reads, which is one at a time
  taker.take = [&](const Frame& frame) {
    EXPECT_EQ(1, ++reading) << "two threads read";
    if (frame.header.kind == FrameKind::kReply) {
      link.complete(frame);
    } else {
      EXPECT_EQ(words, static_cast<int>(frame.header.number)) << "out of order";
      ++words;
    }
    --reading;
  };
  link.setHandler(&taker);
  Chance chance(seed);
  // Some end in the middle.
  const int questions = kThreads * kRounds;
  Answers answers(pair.accepted, seed + 1000000, chance.below(4) == 0 ? chance.below(questions) : questions);
  std::jthread peer([&] {
    try {
      answers.run();
    } catch (const CS_Exception&) {
      // The link has ended while it was speaking.
    }
  });
  std::vector<std::jthread> threads;
  for (unsigned thread = 0; thread < kThreads; ++thread) {
    threads.emplace_back(askByTurns, std::ref(link), Chance(seed * kThreads + thread));
  }
  for (auto& thread : threads)
    thread.join();
  link.end(L"the course is over");
  peer.join();
  EXPECT_LE(words, answers.pushed());
}

TEST(TurnTest, ThreadsThatReadByTurnsGetTheirOwnRepliesWhateverTheCourseOfEvents) {
  CS_ComponentServer::initialize(0, 0);
  const unsigned seeds = std::getenv("MG_LONG_TESTS") != nullptr ? 20000 : 100;
  for (unsigned seed = 1; seed <= seeds && !::testing::Test::HasFailure(); ++seed) {
    SCOPED_TRACE("seed " + std::to_string(seed));
    tryCourse(seed);
  }
}

}  // namespace
