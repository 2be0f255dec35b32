// Many connections that do nothing, or nothing good, beside those that print.

#include "corvane/components/component_server.h"
#include "corvane/records/exception.h"
#include "corvane/records/messages.h"
#include "corvane/trust/crypto.h"
#include "corvane/trust/handshake.h"
#include "corvane/wire/link.h"
#include "protocol/names.h"
#include "tests/processes/administration_peer.h"
#include "tests/processes/keys.h"
#include "tests/processes/monitor_peer.h"
#include "tests/processes/scene.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdlib>
#include <future>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <iostream>
#include <signal.h>
#include <sys/resource.h>
#include <thread>

namespace tests {
namespace {

using corvane::Identity;
using ::testing::HasSubstr;

corvane::Socket dial(const Scene& scene) {
  return corvane::Socket::connect("127.0.0.1", static_cast<std::uint16_t>(scene.port()), false);
}

void haveDescriptors(rlim_t count) {
  rlimit limit{};
  ASSERT_EQ(::getrlimit(RLIMIT_NOFILE, &limit), 0);
  ASSERT_GE(limit.rlim_max, count);
  if (limit.rlim_cur < count) limit.rlim_cur = count;
  ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &limit), 0);
}

// Connections that are open and do nothing: some say nothing at all, the others only say hello, with or without a
// proof.
class Crowd {
 public:
  Crowd(const Scene& scene, int count, const Keys* keys) {
    for (int i = 0; i < count; ++i) {
      if (i % 2 == 0) {
        m_silent.push_back(dial(scene));
        continue;
      }
      m_saidHello.push_back(std::make_unique<corvane::Link>(dial(scene)));
      corvane::HelloValues hello = {{L"process", L"17"}};
      if (keys != nullptr) hello.insert({{L"identity", L"monitor"}, {L"nonce", std::wstring(64, L'0')}});
      try {
        m_saidHello.back()->sayHello(hello, corvane::after(60000));
      } catch (const CS_Exception&) {
        // One that came later has taken its place already.
      }
    }
  }

 private:
  std::vector<corvane::Socket> m_silent;
  std::vector<std::unique_ptr<corvane::Link>> m_saidHello;
};

// The exit code of a program that was asked to end; when it has not within ten seconds, it is asked again, which ends
// it at once with another code.
int endOf(ChildProcess& program) {
  program.signal(SIGTERM);
  const auto begin = std::chrono::steady_clock::now();
  auto code = std::async(std::launch::async, [&] { return program.wait(); });
  if (code.wait_for(std::chrono::seconds(10)) == std::future_status::timeout) program.signal(SIGTERM);
  const int ended = code.get();
  std::cout << "it ended after " << std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count()
            << " s\n";
  return ended;
}

void printReport(MonitorPeer& peer, const std::wstring& document) {
  ASSERT_TRUE(peer.attach(kLaserPrinter));
  peer.startJob({L"j", L"", document, L""}, {1, 1, 1, 1});
  peer.writeJob("hello");
  EXPECT_EQ(peer.endJob(), 1);
}

TEST(Crowds, TwoThousandConnectionsThatDoNothingHinderNobody) {
  haveDescriptors(4000);
  for (const bool hasKeys : {false, true}) {
    const Keys keys;
    const std::string monitorKey = keys.make("monitor");
    for (const int session : {5, 6})
      keys.make("session-" + std::to_string(session));
    Scene scene(hasKeys ? keys.serverOptions() : std::vector<std::string>());
    const auto client = [&](int session) {
      auto command = scene.clientCommand(session, {"Laser-2"});
      if (hasKeys) command.insert(command.end(), {"--key", keys.path("session-" + std::to_string(session))});
      auto started = std::make_unique<ChildProcess>(command);
      started->waitForLine("ready: ");
      return started;
    };
    const auto monitor = [&] {
      return hasKeys ? std::make_unique<MonitorPeer>(scene.port(), Identity::monitor(), monitorKey)
                     : std::make_unique<MonitorPeer>(scene.port());
    };
    const auto first = client(5);
    const auto idle = monitor();
    EXPECT_TRUE(idle->printerInfo(kLaserPrinter));
    const Crowd crowd(scene, 2000, hasKeys ? &keys : nullptr);
    EXPECT_TRUE(idle->printerInfo(kLaserPrinter)) << "who was there before stays";
    printReport(*monitor(), L"Report");
    EXPECT_EQ(scene.content(5, "Report.txt"), "hello");
    const auto second = client(6);
    const auto tool = hasKeys ? std::make_unique<AdministrationPeer>(scene.port(), monitorKey)
                              : std::make_unique<AdministrationPeer>(scene.port());
    EXPECT_EQ(tool->status().sessions.size(), 2u);
    EXPECT_EQ(endOf(scene.server()), 0) << "and they do not hold up its end";
  }
}

TEST(Crowds, AServerThatIsToEndWaitsForNobody) {
  Scene scene({"--client-wait", "60"});
  const auto client = scene.startClient(5, {"Laser-2"});
  const Crowd crowd(scene, 20, nullptr);
  // A job whose client takes nothing, until the server's thread stands in its send.
  auto stuck = std::make_unique<MonitorPeer>(scene.port());
  ASSERT_TRUE(stuck->attach(kLaserPrinter));
  stuck->startJob({L"j", L"", L"Report", L""}, {1, 1, 1, 1});
  client->waitForLine("receiving ");
  client->signal(SIGSTOP);
  std::atomic<int> written{0};
  auto writer = std::async(std::launch::async, [&] {
    try {
      for (;; ++written)
        stuck->writeJob(std::string(1024 * 1024, 'x'));
    } catch (const CS_Exception&) {
    }
  });
  for (int last = -1; last != written;) {  // it gets no further
    last = written;
    writer.wait_for(std::chrono::milliseconds(200));
  }
  // An answer that waits for a print client, and a tool that waits for news.
  MonitorPeer waiting(scene.port());
  auto asked =
      std::async(std::launch::async, [&] { EXPECT_THROW(waiting.printerInfo(L"Ink (session 6)"), CS_Exception); });
  scene.server().waitForLine("; the answer waits for its print client");
  AdministrationPeer tool(scene.port());
  auto news = std::async(std::launch::async, [&] {
    try {
      tool.notices(0, 5000);
    } catch (const CS_Exception&) {
    }
  });
  EXPECT_EQ(endOf(scene.server()), 0) << scene.server().output();
  client->signal(SIGCONT);
  asked.get();
  news.get();
  writer.get();
}

// Connections of somebody who has heard everything and has no key.
class Attacker {
 public:
  Attacker(const Scene& scene, const std::string& keyFile) : m_scene(scene) {
    // A true hello of the monitor, overheard.
    const corvane::Key key = corvane::Key::read(keyFile);
    corvane::Link link(dial(scene));
    corvane::Challenge challenge{Identity::monitor(), m_nonce, {}, link.peerEndpoint()};
    const auto theirs = link.sayHello(hello(), corvane::after(60000));
    challenge.listenersNonce = corvane::fromHex(theirs.at(L"nonce")).value();
    m_recorded = corvane::toHex(proofOf(corvane::Prover::kDialer, key, challenge));
    EXPECT_TRUE(isServed(link, m_recorded)) << "it was a good one then";
  }

  // True when the server has served it.
  bool attack(int number) {
    corvane::Link link(dial(m_scene));
    try {
      switch (number % 4) {
        case 0:  // says nothing about who it is
          link.sayHello({{L"process", L"17"}}, corvane::after(60000));
          return isServed(link, m_recorded);
        case 1:  // the proof of the other connection
          link.sayHello(hello(), corvane::after(60000));
          return isServed(link, m_recorded);
        case 2:  // the server's own proof
          return isServed(link, link.sayHello(hello(), corvane::after(60000)).at(L"proof"));
        default: {  // a hello that is cut somewhere, and what would follow it
          const std::vector<unsigned char> cut(static_cast<std::size_t>(1 + number % 19), 1);
          link.sendFrames(cut);
          return false;
        }
      }
    } catch (const CS_Exception&) {
      return false;
    }
  }

 private:
  // Ends the connection as soon as a reply comes, which would be one too many.
  class Replies : public corvane::FrameHandler {
   public:
    explicit Replies(corvane::Link& link) : m_link(link) {}
    void onFrame(corvane::Frame& frame) override {
      if (frame.header.kind != corvane::FrameKind::kReply) return;
      wereThere = true;
      m_link.end(L"served");
    }
    void onBatchEnd() override {}
    void onBatchAbandoned() noexcept override {}
    void onLinkEnd(const std::wstring&) override {}
    bool wereThere = false;

   private:
    corvane::Link& m_link;
  };

  corvane::HelloValues hello() const {
    return {{L"process", L"17"}, {L"identity", L"monitor"}, {L"nonce", corvane::toHex(m_nonce)}};
  }

  // Proves, and asks for the printers of session 5.
  static bool isServed(corvane::Link& link, const std::wstring& proof) {
    Replies replies(link);
    link.setHandler(&replies);
    try {
      link.announceProof(proof);
      corvane::FrameHeader create;
      create.kind = corvane::FrameKind::kCreate;
      create.component = 1;
      link.sendText(create, protocol::kPortMonitorClientClass);
      corvane::FrameHeader ask;
      ask.kind = corvane::FrameKind::kRequest;
      ask.flags = 2;
      ask.number = 6;
      ask.component = 1;
      ask.correlation = 1;
      corvane::ValueWriter values;
      values.writeInt(5);
      link.send(ask, values);
      link.serve();
    } catch (const CS_Exception&) {
    }
    link.setHandler(nullptr);
    return replies.wereThere;
  }

  const Scene& m_scene;
  const corvane::Bytes32 m_nonce{};
  std::wstring m_recorded;
};

// How long a job takes, the median of some.
std::chrono::microseconds jobTime(const Scene& scene, const std::string& key, const std::string& name, int count) {
  std::vector<std::chrono::microseconds> times;
  for (int i = 0; i < count; ++i) {
    const auto begin = std::chrono::steady_clock::now();
    MonitorPeer peer(scene.port(), Identity::monitor(), key);
    printReport(peer, std::wstring(name.begin(), name.end()) + std::to_wstring(i));
    times.push_back(std::chrono::duration_cast<std::chrono::microseconds>(std::chrono::steady_clock::now() - begin));
  }
  std::nth_element(times.begin(), times.begin() + count / 2, times.end());
  return times[static_cast<std::size_t>(count / 2)];
}

// MG_LONG_TESTS=1: 10,000 connections. What it measures is printed and never asserted.
TEST(Crowds, OfUnprovenReplayedReflectedAndCutConnectionsNoneIsServedAndJobsArriveMeanwhile) {
  const int count = std::getenv("MG_LONG_TESTS") != nullptr ? 10000 : 400;
  CS_ComponentServer::initialize(0, 0);
  const Keys keys;
  const std::string key = keys.make("monitor");
  keys.make("session-5");
  Scene scene(keys.serverOptions());
  auto command = scene.clientCommand(5, {"Laser-2"});
  command.insert(command.end(), {"--key", keys.path("session-5")});
  ChildProcess client(command);
  client.waitForLine("ready: ");

  Attacker attacker(scene, key);
  jobTime(scene, key, "warm", 20);
  const auto before = jobTime(scene, key, "before", 100);
  std::atomic<int> tried{0};
  std::atomic<int> served{0};
  std::vector<std::jthread> threads;
  const auto begin = std::chrono::steady_clock::now();
  for (int i = 0; i < 4; ++i) {
    threads.emplace_back([&] {
      for (int number = tried++; number < count; number = tried++)
        if (attacker.attack(number)) ++served;
    });
  }
  std::vector<std::chrono::microseconds> during;
  do {
    during.push_back(jobTime(scene, key, "during " + std::to_string(during.size()) + " ", 1));
  } while (tried < count);
  for (std::jthread& thread : threads)
    thread.join();
  const auto seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count();
  EXPECT_EQ(served, 0);
  std::nth_element(during.begin(), during.begin() + static_cast<std::ptrdiff_t>(during.size() / 2), during.end());
  const auto median = during[during.size() / 2];
  std::cout << count << " connections without a key in " << seconds << " s: " << served << " served; a job took "
            << median.count() << " us meanwhile (median of " << during.size() << "), " << before.count()
            << " us before: ratio " << static_cast<double>(median.count()) / static_cast<double>(before.count())
            << "\n";
}

}  // namespace
}  // namespace tests
