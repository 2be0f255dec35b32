// Whole connections between peers with keys.

#include "corvane/base/text.h"
#include "corvane/components/connection.h"
#include "tests/support/corvane/echo_fixture.h"
#include "tests/support/corvane/key_files_fixture.h"

#include <array>

namespace {

using namespace echo;
using corvane::Identity;

class KeyConnectionTest : public EchoTest {
 protected:
  ~KeyConnectionTest() override {
    CS_Connection::destroy(m_dialed, true);
    m_listener.stop();
    if (m_server.joinable()) m_server.join();
    CS_Connection::destroy(m_accepted, true);
  }

  // Accepts one connection with the keys of the folder and serves it.
  void serveOne() {
    m_server = JoinedThread([this] {
      m_refusal = failureOf([&] {
        m_accepted = CS_Connection::accept(m_listener.accept(), &m_folder);
        m_identity = m_accepted->peerIdentity();
        m_accepted->setAdmission([this](const std::wstring& name) {
          m_asked = name;
          return name == L"Server" ? std::wstring() : L"not for you: " + name;
        });
        m_accepted->serve();
      });
    });
  }

  void dial(const Identity& identity, const std::string& file) { dial(identity, file, m_listener.port()); }
  void dial(const Identity& identity, const std::string& file, int port) {
    m_dialed = CS_Connection::create();
    m_dialed->useKey(identity, file);
    m_dialed->connect(OwnListener::wideHost().c_str(), port, CS_Connection::kDirect, false);
  }

  std::pair<int, std::wstring> failureOfDialing(const Identity& identity, const std::string& file) {
    return failureOf([&] { dial(identity, file); });
  }

  const keys::KeyFiles m_files;
  const corvane::KeyFolder m_folder = m_files.folder();
  OwnListener m_listener;
  CS_RCPtr<CS_Connection> m_dialed;
  CS_RCPtr<CS_Connection> m_accepted;
  JoinedThread m_server;
  std::pair<int, std::wstring> m_refusal;
  std::optional<Identity> m_identity;
  std::wstring m_asked;
};

TEST_F(KeyConnectionTest, TheProofTravelsInFrontOfTheFirstRequest) {
  serveOne();
  dial(Identity::session(5), m_files.add("session-5", '5'));
  EXPECT_EQ(42, twice(makeComponent(*m_dialed, L"Caller", L"Server"), 21));
  EXPECT_FALSE(m_dialed->peerIdentity());
  CS_Connection::destroy(m_dialed, true);
  m_server.join();
  EXPECT_EQ(m_identity, Identity::session(5));
  EXPECT_EQ(m_asked, L"Server");
}

TEST_F(KeyConnectionTest, AComponentThatThePeerMayNotHaveIsRefusedAndTheOthersAreServed) {
  serveOne();
  dial(Identity::monitor(), m_files.add("monitor", 'a'));
  const auto secret = makeComponent(*m_dialed, L"Caller", CS_Bridge::m_className);
  EXPECT_EQ(std::make_pair(kRequestRefused, std::wstring(L"not for you: ") + CS_Bridge::m_className),
            failureOf([&] { twice(secret, 1); }));
  EXPECT_EQ(42, twice(makeComponent(*m_dialed, L"Caller", L"Server"), 21));
}

TEST_F(KeyConnectionTest, AKeyThatIsAddedWhileTheServerRunsIsGoodAtOnce) {
  const keys::KeyFiles own;
  const std::string file = own.add("session-7", '7');
  serveOne();
  EXPECT_EQ(failureOfDialing(Identity::session(7), file).first, corvane::kNotProven);
  m_server.join();
  EXPECT_EQ(m_refusal.first, corvane::kNotProven);
  m_files.add("session-7", '7');
  serveOne();
  dial(Identity::session(7), file);
  EXPECT_EQ(42, twice(makeComponent(*m_dialed, L"Caller", L"Server"), 21));
}

TEST_F(KeyConnectionTest, WithAnUnusableKeyNobodyIsEvenDialled) {
  const std::string odd = m_files.write("odd.key", "odd");
  EXPECT_EQ(failureOfDialing(Identity::monitor(), odd),
            std::make_pair(corvane::kKeyNeeded, L"a key file holds 64 hexadecimal digits and nothing else, not so " +
                                                    corvane::fromUtf8(odd)));
  EXPECT_EQ(failureOfDialing(Identity::monitor(), m_files.path("none.key")).first, corvane::kKeyNeeded);
  EXPECT_EQ(failureOfDialing(Identity::monitor(), "").first, corvane::kKeyNeeded);
  serveOne();  // what it accepts first is the connection that is made now
  dial(Identity::monitor(), m_files.add("monitor", 'a'));
  EXPECT_EQ(42, twice(makeComponent(*m_dialed, L"Caller", L"Server"), 21));
}

// A program that listens in the server's place and passes everything on, both ways.
class Relay {
 public:
  explicit Relay(std::uint16_t port) {
    m_thread = JoinedThread([this, port] {
      corvane::Socket here = m_listener.accept();
      corvane::Socket there = corvane::Socket::connect(OwnListener::host(), port, false);
      const JoinedThread back([&] { pump(there, here); });
      pump(here, there);
    });
  }
  ~Relay() {
    m_listener.stop();
    m_thread.join();
  }
  std::uint16_t port() const { return m_listener.port(); }

 private:
  static void pump(corvane::Socket& from, corvane::Socket& to) {
    std::array<unsigned char, 4096> buffer;
    try {
      while (const std::size_t got = *from.receive(buffer, std::nullopt)) {
        const corvane::Socket::Piece pieces[] = {std::span(buffer).first(got)};
        to.send(pieces);
      }
    } catch (const CS_Exception&) {
    }
    to.shutdown();
  }

  OwnListener m_listener;
  JoinedThread m_thread;
};

TEST_F(KeyConnectionTest, AProgramBetweenTheTwoIsFoundOut) {
  serveOne();
  const std::string file = m_files.add("monitor", 'a');
  const Relay relay(m_listener.port());
  const auto failure = failureOf([&] { dial(Identity::monitor(), file, relay.port()); });
  EXPECT_EQ(failure.first, corvane::kNotProven);
  EXPECT_EQ(failure.second.find(L"the server has another key of \"monitor\" than this side: "), 0u);
  m_server.join();
  EXPECT_EQ(m_refusal.first, corvane::kNotProven);
}

TEST_F(KeyConnectionTest, NothingIsMadeForAPeerThatHasNotProvenItself) {
  m_files.add("session-5", '5');
  serveOne();
  m_dialed = CS_Connection::create();
  EXPECT_EQ(
      std::make_pair(corvane::kKeyNeeded,
                     std::wstring(L"the server serves only peers that prove who they are, and this one names no key")),
      failureOf([&] {
        m_dialed->connect(OwnListener::wideHost().c_str(), m_listener.port(), CS_Connection::kDirect, false);
      }));
  m_server.join();
  EXPECT_EQ(m_refusal, std::make_pair(corvane::kNotProven, L"Process " + std::to_wstring(corvane::processId()) +
                                                               L" says that it is \"nobody\": it has no key"));
  EXPECT_EQ(m_asked, L"");
}

}  // namespace
