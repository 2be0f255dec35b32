#include "programs/line_queue.h"

#include "tests/support/joined_thread.h"

#include <condition_variable>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <mutex>
#include <new>
#include <vector>

#ifndef _WIN32
#include <cerrno>
#include <fcntl.h>
#include <pthread.h>
#include <signal.h>
#include <unistd.h>
#endif

namespace programs {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

constexpr std::chrono::minutes kLong{1};

// An output that the test stops, breaks and reads. Outlives the queue through the pointer that both hold.
struct Paper {
  std::mutex lock;  // guards what follows
  std::condition_variable changed;
  std::vector<std::string> lines;
  std::string failure;
  bool isStopped = false;
  bool isOutOfMemory = false;
  bool isInWrite = false;
  bool isDue = false;
  bool isGone = false;
  bool isSigtermBlocked = false;

  void stop(bool stopped) {
    const std::lock_guard<std::mutex> guard(lock);
    isStopped = stopped;
    changed.notify_all();
  }
  // Until the thread of the queue waits in a write.
  void waitForWrite() {
    std::unique_lock<std::mutex> guard(lock);
    changed.wait(guard, [this] { return isInWrite; });
  }
  void breakWith(const std::string& why) {
    const std::lock_guard<std::mutex> guard(lock);
    failure = why;
  }
  std::vector<std::string> written() {
    const std::lock_guard<std::mutex> guard(lock);
    return lines;
  }
};

class PaperOutput : public LineOutput {
 public:
  explicit PaperOutput(std::shared_ptr<Paper> paper) : m_paper(std::move(paper)) {}
  ~PaperOutput() override {
    const std::lock_guard<std::mutex> guard(m_paper->lock);
    m_paper->isGone = true;
    m_paper->changed.notify_all();
  }

  std::string write(const std::string& text) override {
    std::unique_lock<std::mutex> guard(m_paper->lock);
    m_paper->isInWrite = true;
#ifndef _WIN32
    sigset_t blocked;
    pthread_sigmask(SIG_BLOCK, nullptr, &blocked);
    m_paper->isSigtermBlocked = sigismember(&blocked, SIGTERM) == 1;
#endif
    m_paper->changed.notify_all();
    m_paper->changed.wait(guard, [this] { return !m_paper->isStopped; });
    m_paper->isInWrite = false;
    if (m_paper->isOutOfMemory) throw std::bad_alloc();
    if (m_paper->failure.empty()) m_paper->lines.push_back(text);
    m_paper->changed.notify_all();
    return m_paper->failure;
  }
  std::string writeLost(std::uint64_t count, const std::string& why) override {
    return write("lost " + std::to_string(count) + ": " + why);
  }
  Clock::time_point dueAt() override {
    const std::lock_guard<std::mutex> guard(m_paper->lock);
    return m_paper->isDue ? Clock::now() : Clock::time_point::max();
  }
  std::vector<std::string> takeDue() override {
    const std::lock_guard<std::mutex> guard(m_paper->lock);
    m_paper->isDue = false;
    return {"due"};
  }

 private:
  const std::shared_ptr<Paper> m_paper;
};

class LineQueueTest : public ::testing::Test {
 protected:
  std::unique_ptr<LineQueue> makeQueue(std::size_t bytes = LineQueue::kBytes) {
    return std::make_unique<LineQueue>(std::make_unique<PaperOutput>(m_paper), bytes);
  }

  const std::shared_ptr<Paper> m_paper = std::make_shared<Paper>();
};

TEST_F(LineQueueTest, WritesLinesInTheirOrder) {
  const auto queue = makeQueue();
  for (const char* line : {"a", "b", "c"})
    EXPECT_TRUE(queue->put(line));
  ASSERT_TRUE(queue->flush(kLong));
  EXPECT_THAT(m_paper->written(), ElementsAre("a", "b", "c"));
}

TEST_F(LineQueueTest, WritesEverythingBeforeItEnds) {
  auto queue = makeQueue();
  for (int i = 0; i < 100; ++i)
    queue->put(std::to_string(i));
  queue.reset();
  EXPECT_EQ(m_paper->written().size(), 100u);
  EXPECT_EQ(m_paper->written().back(), "99");
}

TEST_F(LineQueueTest, NeverWaitsForAnOutputThatStandsStillAndSaysWhereLinesAreMissing) {
  const std::size_t three = 3 * (1 + LineQueue::kLineCost);
  const auto queue = makeQueue(three);
  m_paper->stop(true);
  queue->put("a");
  m_paper->waitForWrite();
  EXPECT_TRUE(queue->put("b"));
  EXPECT_TRUE(queue->put("c"));
  EXPECT_FALSE(queue->put("d"));
  EXPECT_FALSE(queue->put("e"));
  EXPECT_FALSE(queue->flush(std::chrono::milliseconds(0)));
  m_paper->stop(false);
  ASSERT_TRUE(queue->flush(kLong));
  EXPECT_TRUE(queue->put("f"));
  ASSERT_TRUE(queue->flush(kLong));
  EXPECT_THAT(m_paper->written(),
              ElementsAre("a", "b", "c", "lost 2: they came faster than they could be written", "f"));
}

TEST_F(LineQueueTest, ALineForWhichThereIsNoMemoryIsCountedAsMissing) {
  const auto queue = makeQueue();
  {
    const std::lock_guard<std::mutex> guard(m_paper->lock);
    m_paper->isOutOfMemory = true;
  }
  queue->put("a");
  ASSERT_TRUE(queue->flush(kLong));
  {
    const std::lock_guard<std::mutex> guard(m_paper->lock);
    m_paper->isOutOfMemory = false;
  }
  queue->put("b");
  ASSERT_TRUE(queue->flush(kLong));
  EXPECT_THAT(m_paper->written(), ElementsAre("lost 1: ", "b"));
}

TEST_F(LineQueueTest, SaysWhereLinesAreMissingBetweenThoseThatFoundAPlace) {
  const auto queue = makeQueue(2 * (4 + LineQueue::kLineCost));
  m_paper->stop(true);
  queue->put("a");
  m_paper->waitForWrite();
  EXPECT_FALSE(queue->put(std::string(200, 'x')));  // while none waits
  EXPECT_TRUE(queue->put("b"));
  EXPECT_FALSE(queue->put("c"));
  m_paper->stop(false);
  ASSERT_TRUE(queue->flush(kLong));
  EXPECT_THAT(m_paper->written(), ElementsAre("a", "lost 1: they came faster than they could be written", "b",
                                              "lost 1: they came faster than they could be written"));
}

TEST_F(LineQueueTest, TakesALineOfAnyLengthWhenItIsEmpty) {
  const auto queue = makeQueue(10);
  EXPECT_TRUE(queue->put(std::string(5000, 'x')));
  ASSERT_TRUE(queue->flush(kLong));
  EXPECT_TRUE(queue->put(std::string(5000, 'y')));
}

TEST_F(LineQueueTest, CountsLinesThatCannotBeWrittenAndSaysSoOnceTheyCan) {
  const auto queue = makeQueue();
  queue->put("a");
  ASSERT_TRUE(queue->flush(kLong));
  m_paper->breakWith("no space");
  for (const char* line : {"b", "c", "d"})
    queue->put(line);
  ASSERT_TRUE(queue->flush(kLong));
  m_paper->breakWith("");
  queue->put("e");
  ASSERT_TRUE(queue->flush(kLong));
  queue->put("f");
  ASSERT_TRUE(queue->flush(kLong));
  EXPECT_THAT(m_paper->written(), ElementsAre("a", "lost 3: no space", "e", "f"));
}

TEST_F(LineQueueTest, WritesWhatIsDueThoughNobodyPutsALine) {
  m_paper->isDue = true;
  const auto queue = makeQueue();
  std::unique_lock<std::mutex> guard(m_paper->lock);
  m_paper->changed.wait(guard, [this] { return !m_paper->lines.empty(); });
  EXPECT_THAT(m_paper->lines, ElementsAre("due"));
}

TEST_F(LineQueueTest, WritesWhatIsDueInFrontOfTheNextLine) {
  const auto queue = makeQueue();
  m_paper->stop(true);
  queue->put("a");
  m_paper->waitForWrite();
  queue->put("b");
  {
    const std::lock_guard<std::mutex> guard(m_paper->lock);
    m_paper->isDue = true;
  }
  m_paper->stop(false);
  ASSERT_TRUE(queue->flush(kLong));
  EXPECT_THAT(m_paper->written(), ElementsAre("a", "due", "b"));
}

#ifndef _WIN32
TEST_F(LineQueueTest, ItsThreadTakesNoSignals) {
  const auto queue = makeQueue();
  queue->put("a");
  ASSERT_TRUE(queue->flush(kLong));
  EXPECT_TRUE(m_paper->isSigtermBlocked);
  sigset_t ours;
  pthread_sigmask(SIG_BLOCK, nullptr, &ours);
  EXPECT_EQ(sigismember(&ours, SIGTERM), 0);
}
#endif

TEST_F(LineQueueTest, AnOutputThatStandsStillForEverHoldsUpNeitherTheEndNorMemoryThatIsStillUsed) {
  m_paper->stop(true);
  auto queue = makeQueue();
  queue->put("a");
  m_paper->waitForWrite();
  queue->put("b");
  queue.reset();
  EXPECT_THAT(m_paper->written(), IsEmpty());
  m_paper->stop(false);
  std::unique_lock<std::mutex> guard(m_paper->lock);
  m_paper->changed.wait(guard, [this] { return m_paper->isGone; });
  EXPECT_THAT(m_paper->lines, ElementsAre("a", "b"));
}

#ifndef _WIN32
// The two ends of a pipe.
class Pipe {
 public:
  Pipe() { EXPECT_EQ(::pipe(m_ends), 0); }
  ~Pipe() {
    closeReader();
    closeWriter();
  }
  Pipe(const Pipe&) = delete;
  Pipe& operator=(const Pipe&) = delete;

  int writer() const { return m_ends[1]; }
  void closeReader() {
    if (m_ends[0] >= 0) ::close(m_ends[0]);
    m_ends[0] = -1;
  }
  void closeWriter() {
    if (m_ends[1] >= 0) ::close(m_ends[1]);
    m_ends[1] = -1;
  }
  std::string read() const {
    char bytes[256];
    const ssize_t count = ::read(m_ends[0], bytes, sizeof bytes);
    return count > 0 ? std::string(bytes, static_cast<std::size_t>(count)) : "";
  }

 private:
  int m_ends[2];
};

TEST(DescriptorOutput, WritesAsItIsAndSaysHowMuchIsMissing) {
  Pipe pipe;
  const auto output = outputTo(pipe.writer());
  errno = EAGAIN;  // of something earlier
  EXPECT_EQ(output->write("a line\n"), "");
  EXPECT_EQ(pipe.read(), "a line\n");
  EXPECT_EQ(output->writeLost(1, "the disk is full"), "");
  EXPECT_EQ(pipe.read(), "1 line is missing here: the disk is full\n");
  EXPECT_EQ(output->writeLost(2, "it was away"), "");
  EXPECT_EQ(pipe.read(), "2 lines are missing here: it was away\n");
}

TEST(DescriptorOutput, SaysWhyNothingCanBeWritten) {
  const auto before = ::signal(SIGPIPE, SIG_IGN);
  Pipe pipe;
  pipe.closeReader();
  EXPECT_EQ(outputTo(pipe.writer())->write("a line\n"), "Broken pipe");
  ::signal(SIGPIPE, before);
}

// Whoever shares the descriptor may set it so.
TEST(DescriptorOutput, OneThatIsSetNotToWaitIsWaitedFor) {
  Pipe pipe;
  ASSERT_EQ(::fcntl(pipe.writer(), F_SETFL, O_NONBLOCK), 0);
  const std::string text(1000000, 'x');  // more than a pipe has room for
  std::size_t came = 0;
  JoinedThread reader([&] {
    for (std::string piece = pipe.read(); !piece.empty(); piece = pipe.read())
      came += piece.size();
  });
  EXPECT_EQ(outputTo(pipe.writer())->write(text), "");
  pipe.closeWriter();
  reader.join();
  EXPECT_EQ(came, text.size());
}

TEST(DescriptorOutput, OfAProgramIsThatOfTheSystem) {
  EXPECT_EQ(kStandardOutput, STDOUT_FILENO);
  EXPECT_EQ(kStandardError, STDERR_FILENO);
}
#endif

}  // namespace
}  // namespace programs
