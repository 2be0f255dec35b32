#include "client/page/page_server.h"

#include "tests/support/client/page_fixture.h"

#include <boost/asio.hpp>
#include <gmock/gmock.h>
#include <list>
#include <thread>

namespace printclient {
namespace {

using boost::asio::ip::tcp;
using ::testing::EndsWith;
using ::testing::HasSubstr;
using ::testing::StartsWith;

// A peer of the server that does as the test says, with a minute for each answer.
class Peer {
 public:
  explicit Peer(const std::string& address) { connect(address); }

  Peer& say(const std::string& text) {
    m_stream << text << std::flush;
    return *this;
  }
  // Until the connection ends.
  std::string all() { return {std::istreambuf_iterator<char>(m_stream), {}}; }
  std::string until(const std::string& end) {
    std::string text;
    for (char c = 0; !text.ends_with(end) && m_stream.get(c);)
      text += c;
    return text;
  }
  // A whole answer that says its length.
  std::string answer() {
    std::string head = until("\r\n\r\n");
    const std::size_t at = head.find("Content-Length: ");
    return head + take(at == std::string::npos ? 0 : std::stoul(head.substr(at + 16)));
  }
  std::string take(std::size_t size) {
    std::string bytes(size, '\0');
    m_stream.read(bytes.data(), static_cast<std::streamsize>(size));
    return bytes;
  }
  // Says that nothing more comes, and goes on reading.
  void endOwnHalf() { m_stream.socket().shutdown(tcp::socket::shutdown_send); }

 private:
  void connect(const std::string& address) {
    const std::string host = address.substr(7, address.find('/', 7) - 7);
    m_stream.expires_after(std::chrono::minutes(1));
    m_stream.connect(host.substr(0, host.find(':')), host.substr(host.find(':') + 1));
    if (!m_stream) ADD_FAILURE() << "nobody listens at " << address;
  }

  tcp::iostream m_stream;
};

class PageServerTest : public PageFixture {
 protected:
  ~PageServerTest() override { m_server.reset(); }
  void start(const PageServer::Limits& limits = {}) {
    m_server = std::make_unique<PageServer>(m_guard, *m_answers, board(), limits);
  }
  Peer peer() const { return Peer(m_guard.address()); }
  std::string text(const std::string& path, const std::string& more = "", const std::string& method = "GET") const {
    const PageRequest made = request(method, path);
    std::string all = method + " " + made.target + " HTTP/1.1\r\nHost: " + made.host + "\r\n";
    if (!made.origin.empty()) all += "Origin: " + made.origin + "\r\n";
    return all + more + "\r\n";
  }
  void awaitConnections(std::size_t count) const {
    while (m_server->connectionCount() != count)
      std::this_thread::yield();
  }

  std::unique_ptr<PageServer> m_server;
};

TEST_F(PageServerTest, AnswersOneRequestAfterAnotherOnAConnectionOfThePerson) {
  start();
  Peer person = peer();
  for (int i = 0; i < 3; ++i) {
    const std::string answer = person.say(text("")).answer();
    EXPECT_THAT(answer, StartsWith("HTTP/1.1 200 OK\r\n"));
    EXPECT_THAT(answer, HasSubstr("\r\nConnection: keep-alive\r\n"));
    EXPECT_THAT(answer, HasSubstr("\r\nContent-Security-Policy: default-src 'none'; script-src 'self'; "));
    EXPECT_THAT(answer, EndsWith("</html>\n"));
  }
  person.say(text("", "Connection: close\r\n"));
  EXPECT_THAT(person.all(), HasSubstr("\r\nConnection: close\r\n"));
}

TEST_F(PageServerTest, AStrangerGetsOneLineAndTheEnd) {
  start();
  const std::string host = request("GET", "").host;
  EXPECT_THAT(peer().say("GET / HTTP/1.1\r\nHost: " + host + "\r\n\r\n").all(),
              EndsWith("\r\n\r\nThere is nothing here. Open the page with \"printclient --show\".\n"));
  std::string wrong = text("events");
  wrong[10] = wrong[10] == '0' ? '1' : '0';
  EXPECT_THAT(peer().say(wrong).all(), StartsWith("HTTP/1.1 404 Not Found\r\n"));
  EXPECT_THAT(peer().say(text("events", "Host: evil.example\r\n")).all(), StartsWith("HTTP/1.1 403 Forbidden\r\n"));
  EXPECT_THAT(peer().say(text("", "Origin: http://evil.example\r\n")).all(), StartsWith("HTTP/1.1 403 "));
  EXPECT_THAT(peer().say(text("jobs/1/again", "Origin: http://evil.example\r\n", "POST")).all(),
              StartsWith("HTTP/1.1 403 "));
}

TEST_F(PageServerTest, WhatIsTooLargeOrNoRequestIsRefusedAndSoIsNoOther) {
  start();
  EXPECT_THAT(peer().say(text("", "X: " + std::string(9000, 'x') + "\r\n")).all(), StartsWith("HTTP/1.1 431 "));
  EXPECT_THAT(peer().say("GET /" + std::string(20000, 'x')).all(), StartsWith("HTTP/1.1 431 "));
  EXPECT_THAT(peer().say(text("", "Content-Length: 5000\r\n", "POST") + std::string(5000, 'x')).all(),
              StartsWith("HTTP/1.1 431 "));
  EXPECT_THAT(peer().say("\x16\x03\x01 hello\r\n\r\n").all(), StartsWith("HTTP/1.1 400 "));
  EXPECT_THAT(peer().say(text("")).answer(), StartsWith("HTTP/1.1 200 "));
}

TEST_F(PageServerTest, APeerThatTakesItsTimeIsEndedAndHoldsUpNobody) {
  PageServer::Limits limits;
  limits.request = limits.idle = std::chrono::milliseconds(300);
  start(limits);
  Peer silent = peer();
  Peer slow = peer();
  slow.say("GET / HT");
  Peer person = peer();
  EXPECT_THAT(person.say(text("")).answer(), StartsWith("HTTP/1.1 200 "));
  EXPECT_EQ(silent.all(), "");
  EXPECT_EQ(slow.all(), "");
  EXPECT_EQ(person.all(), "") << "idle";
  awaitConnections(0);
}

TEST_F(PageServerTest, StrangersTakeNobodysPlaceButTheirOwn) {
  PageServer::Limits limits;
  limits.connections = 8;
  start(limits);
  Peer stream = peer();
  EXPECT_THAT(stream.say(text("events")).until("\n\n"), StartsWith("HTTP/1.1 200 OK"));
  std::list<Peer> strangers;
  for (int i = 0; i < 30; ++i) {
    strangers.emplace_back(m_guard.address());
    EXPECT_THAT(peer().say(text("", "Connection: close\r\n")).all(), StartsWith("HTTP/1.1 200 ")) << i;
  }
  EXPECT_EQ(strangers.front().all(), "") << "it was the oldest";
  EXPECT_LE(m_server->connectionCount(), 8u);
  BoardJob job;
  job.title = "after all";
  board().add(job);
  EXPECT_THAT(stream.until("\"title\":\"after all\""), EndsWith("\"title\":\"after all\""));
}

TEST_F(PageServerTest, WhereAllPlacesAreThePersonsAFurtherConnectionIsTurnedAway) {
  PageServer::Limits limits;
  limits.connections = 3;
  start(limits);
  std::list<Peer> streams;
  for (int i = 0; i < 3; ++i)
    streams.emplace_back(m_guard.address()).say(text("events")).until("\n\n");
  EXPECT_EQ(peer().say(text("")).all(), "");
  streams.clear();
  awaitConnections(0);
  EXPECT_THAT(peer().say(text("")).answer(), StartsWith("HTTP/1.1 200 "));
}

TEST_F(PageServerTest, TheStreamTellsWhatThereIsAndThenWhatChanges) {
  start();
  const std::uint64_t number = print(L"Report", kPdf);
  Peer person = peer();
  const std::string head = person.say(text("events")).until("\r\n\r\n");
  EXPECT_THAT(head, HasSubstr("Content-Type: text/event-stream; charset=utf-8\r\n"));
  EXPECT_THAT(head, HasSubstr("Connection: close\r\n"));
  const std::string first = person.until("\n\n");
  EXPECT_THAT(first, StartsWith("data: {\"count\":"));
  EXPECT_THAT(first, HasSubstr("\"order\":[1]"));
  EXPECT_THAT(first, HasSubstr("\"title\":\"Report\""));
  board().change(number, [](BoardJob& job) { job.cause = "a word"; });
  const std::string second = person.until("\n\n");
  EXPECT_THAT(second, HasSubstr("\"cause\":\"a word\""));
  EXPECT_THAT(second, ::testing::Not(HasSubstr("\"order\"")));
}

TEST_F(PageServerTest, AStreamWithoutNewsShowsThatItLives) {
  PageServer::Limits limits;
  limits.sign = std::chrono::milliseconds(1);
  start(limits);
  Peer person = peer();
  person.say(text("events")).until("data: ");
  EXPECT_THAT(person.until(": here\n\n"), EndsWith("\n\n: here\n\n"));
}

TEST_F(PageServerTest, AStreamThatIsClosedOrHalfClosedEnds) {
  start();
  Peer half = peer();
  half.say(text("events")).until("\n\n");
  half.endOwnHalf();
  half.all();
  Peer talks = peer();
  talks.say(text("events")).until("\n\n");
  talks.say(text("events"));
  talks.all();
  awaitConnections(0);
}

TEST_F(PageServerTest, AStreamThatNobodyReadsIsEndedAndTheOthersGoOn) {
  PageServer::Limits limits;
  limits.send = std::chrono::milliseconds(300);
  limits.pause = std::chrono::milliseconds(1);
  start(limits);
  std::vector<std::uint64_t> numbers;
  for (std::size_t i = 0; i < JobBoard::kMost; ++i) {
    BoardJob job;
    job.title = std::string(4000, 'x');
    numbers.push_back(board().add(job));
  }
  Peer stuck = peer();
  stuck.say(text("events")).until("\n\n");
  Peer person = peer();
  do {
    for (const std::uint64_t number : numbers)
      board().change(number, [](BoardJob& job) { ++job.bytes; });
    EXPECT_THAT(person.say(text("")).answer(), StartsWith("HTTP/1.1 200 "));
  } while (m_server->connectionCount() > 1);
}

TEST_F(PageServerTest, ADocumentComesWholeAlsoWhenItHasGoneMeanwhile) {
  start();
  const std::string data = "%PDF-1.4 " + std::string(700000, 'x') + "\n%%EOF\n";
  print(L"Report", data);
  Peer person = peer();
  const std::string answer = person.say(text("jobs/1/view")).until("\r\n\r\n");
  EXPECT_THAT(answer, HasSubstr("Content-Type: application/pdf\r\n"));
  m_documents->dropOld(KeptDocuments::Clock::now() + std::chrono::hours(9));
  EXPECT_EQ(person.take(data.size()), data);
  EXPECT_THAT(person.say(text("jobs/1/view")).answer(), StartsWith("HTTP/1.1 404 "));
}

#ifndef _WIN32
std::size_t descriptors() {
  return static_cast<std::size_t>(
      std::distance(std::filesystem::directory_iterator("/proc/self/fd"), std::filesystem::directory_iterator()));
}
std::size_t threads() {
  return static_cast<std::size_t>(
      std::distance(std::filesystem::directory_iterator("/proc/self/task"), std::filesystem::directory_iterator()));
}
#else
std::size_t descriptors() {
  return 0;
}
std::size_t threads() {
  return 0;
}
#endif

TEST_F(PageServerTest, AThousandStreamsLeaveNothingBehind) {
  start();
  { peer().say(text("events")).until("\n\n"); }
  awaitConnections(0);
  const std::size_t threadsBefore = threads();
  std::size_t before = 0;
  // A connection is counted no more before its descriptor is closed, and not yet before it is accepted.
  while (before != descriptors())
    before = descriptors();
  for (int i = 0; i < 1000; ++i) {
    Peer person = peer();
    person.say(text("events"));
    if (i % 2 == 0) person.until("\n\n");
  }
  { peer().say(text("events")).until("\n\n"); }
  awaitConnections(0);
  for (int look = 0; look < 1000 && descriptors() != before; ++look)
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  EXPECT_EQ(descriptors(), before);
  EXPECT_EQ(threads(), threadsBefore);
}

TEST_F(PageServerTest, EndsWhileItsPeersAreInTheMiddleOfThings) {
  start();
  print(L"Report", "%PDF-1.4 " + std::string(30000000, 'x') + "\n%%EOF\n");
  std::list<Peer> peers;
  for (const std::string& what : {std::string(), std::string("GET /"), text("events"), text("jobs/1/view")})
    peers.emplace_back(m_guard.address()).say(what);
  peers.back().until("\r\n\r\n");
  m_server.reset();
  peers.front().all();
}

}  // namespace
}  // namespace printclient
