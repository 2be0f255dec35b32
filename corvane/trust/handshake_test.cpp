// The handshake of two sides that prove who they are, and what does not pass for a proof.

#include "corvane/trust/handshake.h"

#include "corvane/components/component_server.h"
#include "corvane/records/exception.h"
#include "corvane/records/messages.h"
#include "corvane/trust/crypto.h"
#include "tests/support/corvane/key_files_fixture.h"
#include "tests/support/joined_thread.h"
#include "tests/support/own_listener.h"

#include <functional>
#include <gtest/gtest.h>

namespace corvane {
namespace {

using keys::KeyFiles;

// How one side of a handshake ended: number 0 when it was content.
struct Outcome {
  int number = 0;
  std::wstring detail;
  std::optional<Identity> identity;
};

template <class Action>
Outcome outcomeOf(Action&& action) {
  Outcome outcome;
  try {
    outcome.identity = action();
  } catch (const CS_Exception& exception) {
    outcome.number = exception.number();
    outcome.detail = exception.detail();
  }
  return outcome;
}

Bytes32 filled(unsigned char byte) {
  Bytes32 bytes;
  bytes.fill(byte);
  return bytes;
}

class HandshakeKeysTest : public ::testing::Test {
 protected:
  HandshakeKeysTest() {
    CS_ComponentServer::initialize(0, 0);
    m_listener = std::make_unique<OwnListener>();
    m_files.add("session-5", '5');
    m_files.add("session-6", '6');
    m_files.add("monitor", 'a');
  }

  // What the listening side, with these keys, makes of what the other side does; its connection ends with the action.
  Outcome welcome(const KeyFolder* folder, const std::function<void(Link&)>& dial, unsigned milliseconds = 20000) {
    Outcome outcome;
    JoinedThread acceptor([&] {
      Link link(m_listener->accept());
      outcome = outcomeOf([&] { return acceptHandshake(link, {}, folder, after(milliseconds)).identity; });
    });
    {
      Link link(m_listener->dial());
      dial(link);
    }
    acceptor.join();
    return outcome;
  }

  // What the dialing side, session 5 with that key, makes of what a listening side does.
  Outcome dial(unsigned char key, const std::function<void(Link&)>& answer) {
    JoinedThread acceptor([&] {
      Link link(m_listener->accept());
      answer(link);
    });
    Outcome outcome;
    {
      Link link(m_listener->dial());
      const Credentials credentials{Identity::session(5), Key(filled(key))};
      outcome = outcomeOf([&] {
        offerHandshake(link, {}, &credentials, after(20000));
        return std::optional<Identity>();
      });
    }
    acceptor.join();
    return outcome;
  }

  // A hand-made handshake: claims that identity and answers with what make() says to the challenge.
  static void claim(Link& link, const std::wstring& identity, const std::function<Bytes32(const Challenge&)>& make) {
    Challenge challenge{Identity::parse(identity).value_or(Identity::monitor()), filled(1), {}, link.peerEndpoint()};
    const HelloValues theirs = link.sayHello(
        {{L"process", L"17"}, {L"identity", identity}, {L"nonce", toHex(challenge.dialersNonce)}}, after(20000));
    challenge.listenersNonce = fromHex(theirs.at(L"nonce")).value();
    link.announceProof(toHex(make(challenge)));
    link.sendFrames({});
  }

  const KeyFiles m_files;
  const KeyFolder m_folder = m_files.folder();
  std::unique_ptr<OwnListener> m_listener;
};

TEST_F(HandshakeKeysTest, PeersWithOneKeyProveThemselvesToEachOther) {
  for (const auto& peer : {std::pair(Identity::session(5), 0x55), std::pair(Identity::monitor(), 0xaa)}) {
    const auto& identity = peer.first;
    const int byte = peer.second;
    const Outcome outcome = welcome(&m_folder, [&](Link& link) {
      const Credentials credentials{identity, Key(filled(static_cast<unsigned char>(byte)))};
      const HelloValues theirs = offerHandshake(link, {{L"process", L"17"}}, &credentials, after(20000));
      EXPECT_TRUE(theirs.contains(L"proof"));
      link.sendFrames({});  // stands for the first request
    });
    EXPECT_EQ(outcome.number, 0) << outcome.detail.size();
    EXPECT_EQ(outcome.identity, identity);
  }
}

TEST_F(HandshakeKeysTest, OfWhatAProvenPeerSaidOnlyTheRestIsKept) {
  const Credentials credentials{Identity::session(5), Key(filled(0x55))};
  JoinedThread dialer([&] {
    Link link(m_listener->dial());
    offerHandshake(link, {{L"process", L"17"}}, &credentials, after(20000));
    link.sendFrames({});  // stands for the first request
  });
  Link link(m_listener->accept());
  EXPECT_EQ((HelloValues{{L"process", L"17"}}), acceptHandshake(link, {}, &m_folder, after(20000)).values);
  dialer.join();
}

TEST_F(HandshakeKeysTest, ADialerWithAnotherKeyRefusesTheServerAndIsRefusedByIt) {
  Outcome dialer;
  const Outcome listener = welcome(&m_folder, [&](Link& link) {
    const Credentials credentials{Identity::session(5), Key(filled(0x66))};
    dialer = outcomeOf([&] {
      offerHandshake(link, {{L"process", L"17"}}, &credentials, after(20000));
      return std::optional<Identity>();
    });
  });
  EXPECT_EQ(dialer.number, kNotProven);
  EXPECT_EQ(dialer.detail,
            L"the server has another key of \"session-5\" than this side: the key files differ, or another program has "
            L"taken its port; nothing was sent to it");
  EXPECT_EQ(listener.number, kNotProven);
  EXPECT_EQ(listener.detail,
            L"Process 17 says that it is \"session-5\": it proved nothing, as with another key than the one here: the "
            L"other side closed the connection during the handshake");
}

TEST_F(HandshakeKeysTest, ADialerWithoutAKeyIsToldThatItNeedsOne) {
  Outcome dialer;
  const Outcome listener = welcome(&m_folder, [&](Link& link) {
    dialer = outcomeOf([&] {
      offerHandshake(link, {{L"process", L"17"}}, nullptr, after(20000));
      return std::optional<Identity>();
    });
  });
  EXPECT_EQ(dialer.number, kKeyNeeded);
  EXPECT_EQ(dialer.detail, L"the server serves only peers that prove who they are, and this one names no key");
  EXPECT_EQ(listener.number, kNotProven);
  EXPECT_EQ(listener.detail, L"Process 17 says that it is \"nobody\": it has no key");
}

TEST_F(HandshakeKeysTest, ADialerWithAKeyIsNotContentWithAServerThatProvesNothing) {
  for (const HelloValues& answer :
       {HelloValues{}, HelloValues{{L"nonce", toHex(filled(2))}}, HelloValues{{L"proof", toHex(filled(2))}},
        HelloValues{{L"nonce", L"12"}, {L"proof", toHex(filled(2))}},
        HelloValues{{L"nonce", toHex(filled(2))}, {L"proof", L""}}}) {
    const Outcome outcome = dial(0x55, [&](Link& link) {
      link.awaitHello(after(20000));
      link.welcome(answer);
      EXPECT_THROW(link.awaitProof(after(20000)), CS_Exception) << "no proof may be sent";
    });
    EXPECT_EQ(outcome.number, kNotProven);
    EXPECT_EQ(outcome.detail,
              L"the server proves no key of \"session-5\": it runs without keys, or another program has taken its "
              L"port; nothing was sent to it");
  }
}

TEST_F(HandshakeKeysTest, ARefusalByAServerThatProvesNothingDoesNotCountAsAMissingKey) {
  const Outcome outcome = dial(0x55, [&](Link& link) {
    link.awaitHello(after(20000));
    link.refuseHello(kKeyNeeded, L"no key for you");
  });
  EXPECT_EQ(outcome.number, kNotProven);
  EXPECT_EQ(outcome.detail, L"the server refuses \"session-5\": no key for you");
}

TEST_F(HandshakeKeysTest, AServersProofOfAnotherConnectionIsNone) {
  HelloValues recorded;
  const Outcome first = dial(0x55, [&](Link& link) {
    // The real server's answer, overheard.
    const HelloValues theirs = link.awaitHello(after(20000));
    const Challenge challenge{Identity::session(5), fromHex(theirs.at(L"nonce")).value(), filled(2),
                              link.localEndpoint()};
    recorded = {{L"nonce", toHex(filled(2))},
                {L"proof", toHex(proofOf(Prover::kListener, Key(filled(0x55)), challenge))}};
    link.welcome(recorded);
  });
  EXPECT_EQ(first.number, 0);
  const Outcome second = dial(0x55, [&](Link& link) {
    link.awaitHello(after(20000));
    link.welcome(recorded);
  });
  EXPECT_EQ(second.number, kNotProven);
}

TEST_F(HandshakeKeysTest, AProofOfAnotherConnectionIsNone) {
  Bytes32 recorded{};
  const auto prove = [&](const Challenge& challenge) {
    return recorded = proofOf(Prover::kDialer, Key(filled(0x55)), challenge);
  };
  EXPECT_EQ(welcome(&m_folder, [&](Link& link) { claim(link, L"session-5", prove); }).identity, Identity::session(5));
  const Outcome outcome =
      welcome(&m_folder, [&](Link& link) { claim(link, L"session-5", [&](const Challenge&) { return recorded; }); });
  EXPECT_EQ(outcome.number, kNotProven);
  EXPECT_EQ(outcome.detail, L"Process 17 says that it is \"session-5\": its proof is wrong");
}

TEST_F(HandshakeKeysTest, TheServersOwnProofSentBackIsNone) {
  const Outcome outcome = welcome(&m_folder, [&](Link& link) {
    const HelloValues theirs =
        link.sayHello({{L"process", L"17"}, {L"identity", L"session-5"}, {L"nonce", toHex(filled(1))}}, after(20000));
    link.announceProof(theirs.at(L"proof"));
    link.sendFrames({});
  });
  EXPECT_EQ(outcome.detail, L"Process 17 says that it is \"session-5\": its proof is wrong");
}

TEST_F(HandshakeKeysTest, TheKeyOfOneIdentityProvesNoOther) {
  const auto with5 = [](const Challenge& challenge) { return proofOf(Prover::kDialer, Key(filled(0x55)), challenge); };
  const auto as5 = [](Challenge challenge) {
    challenge.identity = Identity::session(5);
    return proofOf(Prover::kDialer, Key(filled(0x55)), challenge);
  };
  for (const wchar_t* identity : {L"session-6", L"monitor"}) {
    const std::wstring expected = L"Process 17 says that it is \"" + std::wstring(identity) + L"\": its proof is wrong";
    EXPECT_EQ(welcome(&m_folder, [&](Link& link) { claim(link, identity, with5); }).detail, expected);
    EXPECT_EQ(welcome(&m_folder, [&](Link& link) { claim(link, identity, as5); }).detail, expected);
  }
  // Even where two identities have the same key by mistake.
  m_files.add("session-6", '5');
  EXPECT_EQ(welcome(&m_folder, [&](Link& link) { claim(link, L"session-6", as5); }).number, kNotProven);
}

TEST_F(HandshakeKeysTest, AProofForAnotherPortOrAddressIsNone) {
  const auto elsewhere = [](Challenge challenge) {
    challenge.endpoint.back() ^= 1;
    return proofOf(Prover::kDialer, Key(filled(0x55)), challenge);
  };
  EXPECT_EQ(welcome(&m_folder, [&](Link& link) { claim(link, L"session-5", elsewhere); }).number, kNotProven);
}

TEST_F(HandshakeKeysTest, AnIdentityThatIsNoneOrHasNoKeyIsRefused) {
  const auto refused = [&](const std::wstring& identity, const std::wstring& nonce) {
    Outcome dialer;
    Outcome listener = welcome(&m_folder, [&](Link& link) {
      dialer = outcomeOf([&] {
        link.sayHello({{L"process", L"17"}, {L"identity", identity}, {L"nonce", nonce}}, after(20000));
        return std::optional<Identity>();
      });
    });
    EXPECT_EQ(dialer.number, kKeyNeeded);
    listener.detail = dialer.detail + L" | " + listener.detail;
    return listener.detail;
  };
  const std::wstring nonce = toHex(filled(1));
  const std::wstring odd =
      L"the server knows only \"monitor\" and \"session-\" with a number, each with a nonce | Process 17 says that it "
      L"is ";
  EXPECT_EQ(refused(L"../session-5", nonce),
            odd + L"\"../session-5\": that is not an identity, or its nonce is not valid");
  EXPECT_EQ(refused(std::wstring(30000, L'x'), nonce),
            odd + L"\"" + std::wstring(24, L'x') + L"...\": that is not an identity, or its nonce is not valid");
  EXPECT_EQ(refused(L"session-5", L"12"), odd + L"\"session-5\": that is not an identity, or its nonce is not valid");
  // What an invitation gives must not be readable on the way, as it would be here.
  m_files.add("invitation-5", '5');
  EXPECT_EQ(refused(L"invitation-5", nonce),
            odd + L"\"invitation-5\": that is not an identity, or its nonce is not valid");
  EXPECT_EQ(refused(L"session-7", nonce)
                .find(L"the server has no key for this identity that it can use; its log says why | Process 17 says "
                      L"that it is \"session-7\": the key file cannot be opened ("),
            0u);
  m_files.write("session-7.key", "nonsense");
  EXPECT_NE(refused(L"session-7", nonce).find(L"a key file holds 64 hexadecimal digits and nothing else"),
            std::wstring::npos);
}

TEST_F(HandshakeKeysTest, AProofThatIsCutLateOrSomethingElseIsNone) {
  const HelloValues hello{{L"process", L"17"}, {L"identity", L"session-5"}, {L"nonce", toHex(filled(1))}};
  const std::wstring begin =
      L"Process 17 says that it is \"session-5\": it proved nothing, as with another key than the one here: ";
  const auto after5 = [&](const std::function<void(Link&)>& rest, unsigned milliseconds = 20000) {
    return welcome(
               &m_folder,
               [&](Link& link) {
                 link.sayHello(hello, after(20000));
                 rest(link);
               },
               milliseconds)
        .detail;
  };
  const unsigned char half[30] = {130, 0, 0, 0, 8};
  EXPECT_EQ(after5([&](Link& link) { link.sendFrames(half); }),
            begin + L"the other side closed the connection during the handshake");
  EXPECT_EQ(after5([](Link& link) { EXPECT_EQ(link.serve(), kClosedInOrder); }, 500),
            begin + L"the other side did not finish the handshake in time");
  FrameHeader request;
  request.kind = FrameKind::kRequest;
  EXPECT_EQ(after5([&](Link& link) { link.sendText(request, L"serve me"); }),
            begin + L"a request comes before the proof");
  for (const wchar_t* text : {L"", L"proof"}) {
    EXPECT_EQ(after5([&](Link& link) {
                link.announceProof(text);
                link.sendFrames({});
              }),
              L"Process 17 says that it is \"session-5\": what it sent as its proof is not one");
  }
}

TEST_F(HandshakeKeysTest, WithoutKeysOnBothSidesNothingIsProven) {
  const Outcome outcome = welcome(nullptr, [&](Link& link) { offerHandshake(link, {}, nullptr, after(20000)); });
  EXPECT_EQ(outcome.number, 0);
  EXPECT_FALSE(outcome.identity);
}

}  // namespace
}  // namespace corvane
