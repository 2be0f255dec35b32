#include "corvane/trust/handshake.h"

#include "corvane/records/exception.h"
#include "corvane/records/messages.h"
#include "corvane/trust/crypto.h"

#include <string_view>

namespace corvane {
namespace {

constexpr wchar_t kIdentity[] = L"identity";
constexpr wchar_t kNonce[] = L"nonce";
constexpr wchar_t kProof[] = L"proof";

Bytes32 newNonce() {
  Bytes32 nonce;
  fillWithRandom(nonce);
  return nonce;
}

// A named value of 64 hexadecimal digits; nothing for one that is missing or something else.
std::optional<Bytes32> bytesOf(const HelloValues& values, const wchar_t* name) {
  const auto found = values.find(name);
  return found == values.end() ? std::nullopt : fromHex(found->second);
}

// What the peer says, short enough for a line that holds more than that.
std::wstring saidBy(const HelloValues& values, const wchar_t* name) {
  const auto found = values.find(name);
  if (found == values.end()) return L"nobody";
  constexpr std::size_t kLongest = 24;
  return found->second.size() <= kLongest ? found->second : found->second.substr(0, kLongest) + L"...";
}

// What a refused peer is told, and what the exception says about it.
class Refusal {
 public:
  Refusal(Link& link, const HelloValues& peer, const std::function<void()>& before)
      : m_link(link), m_peer(peer), m_before(before) {}

  [[noreturn]] void operator()(const wchar_t* toldToPeer, const wchar_t* why) const {
    if (toldToPeer != nullptr && m_before) m_before();
    try {
      if (toldToPeer != nullptr) m_link.refuseHello(kKeyNeeded, toldToPeer);
    } catch (const CS_Exception&) {
      // It has gone: the reason counts all the same.
    }
    throw CS_Exception(kNotProven, L"Process %s says that it is \"%s\": %s", saidBy(m_peer, L"process").c_str(),
                       saidBy(m_peer, kIdentity).c_str(), why);
  }

 private:
  Link& m_link;
  const HelloValues& m_peer;
  const std::function<void()>& m_before;
};

Key keyOf(const KeyFolder& keys, const Identity& identity, const Refusal& refuse) {
  try {
    return keys.read(identity);
  } catch (const CS_Exception& failure) {
    refuse(L"the server has no key for this identity that it can use; its log says why", failure.detail());
  }
}

Bytes32 awaitProof(Link& link, Deadline deadline, const Refusal& refuse) {
  std::optional<Bytes32> proof;
  try {
    proof = fromHex(link.awaitProof(deadline));
  } catch (const CS_Exception& failure) {
    const std::wstring why = L"it proved nothing, as with another key than the one here: ";
    refuse(nullptr, (why + failure.detail()).c_str());
  }
  if (!proof)
    refuse(L"the proof is not valid: it is not 64 hexadecimal digits", L"what it sent as its proof is not one");
  return *proof;
}

}  // namespace

HelloValues offerHandshake(Link& link, HelloValues own, const Credentials* credentials, Deadline deadline) {
  if (credentials == nullptr) return link.sayHello(own, deadline);

  const std::wstring name = credentials->identity.name();
  Challenge challenge{credentials->identity, newNonce(), {}, link.peerEndpoint()};
  own[kIdentity] = name;
  own[kNonce] = toHex(challenge.dialersNonce);
  HelloValues theirs;
  try {
    theirs = link.sayHello(own, deadline);
  } catch (const CS_Exception& failure) {
    // A side that has proven nothing does not decide what becomes of our key.
    if (failure.number() != kKeyNeeded) throw;
    throw CS_Exception(kNotProven, L"the server refuses \"%s\": %s", name.c_str(), failure.detail());
  }
  const auto nonce = bytesOf(theirs, kNonce);
  const auto proof = bytesOf(theirs, kProof);
  if (!nonce || !proof) {
    throw CS_Exception(kNotProven,
                       L"the server proves no key of \"%s\": it runs without keys, or another program has taken its "
                       L"port; nothing was sent to it",
                       name.c_str());
  }
  challenge.listenersNonce = *nonce;
  if (!equalInConstantTime(*proof, proofOf(Prover::kListener, credentials->key, challenge))) {
    throw CS_Exception(kNotProven,
                       L"the server has another key of \"%s\" than this side: the key files differ, or another program "
                       L"has taken its port; nothing was sent to it",
                       name.c_str());
  }
  link.announceProof(toHex(proofOf(Prover::kDialer, credentials->key, challenge)));
  return theirs;
}

Peer acceptHandshake(Link& link, HelloValues own, const KeyFolder* keys, Deadline deadline,
                     const std::function<void()>& beforeRefusal) {
  Peer peer{link.awaitHello(deadline), std::nullopt, {}};
  if (keys == nullptr) {
    link.welcome(own);
    return peer;
  }
  const Refusal refuse(link, peer.values, beforeRefusal);
  if (!peer.values.contains(kIdentity)) {
    refuse(L"the server serves only peers that prove who they are, and this one names no key", L"it has no key");
  }
  const auto identity = Identity::parse(peer.values[kIdentity]);
  const auto nonce = bytesOf(peer.values, kNonce);
  // A key is given only where nobody can read it on the way.
  const bool isInvited = identity && identity->kind() == Identity::Kind::kInvitation;
  if (!identity || isInvited || !nonce) {
    refuse(L"the server knows only \"monitor\" and \"session-\" with a number, each with a nonce",
           L"that is not an identity, or its nonce is not valid");
  }
  const Key key = keyOf(*keys, *identity, refuse);
  const Challenge challenge{*identity, *nonce, newNonce(), link.localEndpoint()};
  own[kNonce] = toHex(challenge.listenersNonce);
  own[kProof] = toHex(proofOf(Prover::kListener, key, challenge));
  link.welcome(own);
  if (!equalInConstantTime(awaitProof(link, deadline, refuse), proofOf(Prover::kDialer, key, challenge))) {
    refuse(L"the proof is wrong", L"its proof is wrong");
  }
  peer.identity = identity;
  peer.keyMark = key.mark();
  // What only the proof needed is not kept as long as the connection, and there are many of them.
  peer.values.erase(kIdentity);
  peer.values.erase(kNonce);
  return peer;
}

Bytes32 proofOf(Prover prover, const Key& key, const Challenge& challenge) {
  std::vector<unsigned char> message;
  // The ends of the texts are marked and the nonces have one size, so no two challenges make the same bytes.
  const auto appendText = [&](auto text) {
    for (const auto c : text)
      message.push_back(static_cast<unsigned char>(c));
    message.push_back(0);
  };
  const auto append = [&](const auto& bytes) { message.insert(message.end(), bytes.begin(), bytes.end()); };
  appendText(std::string_view(prover == Prover::kDialer ? "corvane dialer" : "corvane listener"));
  appendText(challenge.identity.name());
  append(challenge.dialersNonce);
  append(challenge.listenersNonce);
  append(challenge.endpoint);
  return hmacSha256(key.bytes(), message);
}

}  // namespace corvane
