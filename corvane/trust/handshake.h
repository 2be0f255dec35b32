#pragma once

#include "corvane/trust/key.h"
#include "corvane/wire/link.h"

#include <functional>
#include <optional>
#include <vector>

namespace corvane {

// Who the dialing side is, and the key that shows it.
struct Credentials {
  Identity identity;
  Key key;
};

// The handshake of the side that dialed. With credentials the other side must prove that it has the same key, and the
// own proof goes out in front of the first request: that one is to follow within the time of the handshake. Throws
// CS_Exception: 3108 when the other side wants a key and there is none, 3109 when it does not prove itself, 3101 and
// 3105 for everything else. Returns what the other side says about itself.
HelloValues offerHandshake(Link& link, HelloValues own, const Credentials* credentials, Deadline deadline);

// The other side of an accepted connection.
struct Peer {
  HelloValues values;                // what it says about itself, and nothing that only its proof needs
  std::optional<Identity> identity;  // who it is, proven; nothing where peers need no keys
  Bytes32 keyMark = {};              // of the key that proved it
};

// The handshake of the listening side. With keys, returns only when the peer has proven itself; a peer that does not is
// told why and makes this throw CS_Exception (3109) with the identity it claimed, for the log. beforeRefusal is called
// before it is told, and may wait.
Peer acceptHandshake(Link& link, HelloValues own, const KeyFolder* keys, Deadline deadline,
                     const std::function<void()>& beforeRefusal = {});

// The address and port of the listening side, as both sides see it: 4 or 6, the bytes of the address, two of the port.
using Endpoint = std::vector<unsigned char>;  // Socket::localEndpoint, Socket::peerEndpoint

// What both sides have said before either proves anything.
struct Challenge {
  Identity identity;       // whose key it is: the side that dialed
  Bytes32 dialersNonce;    // random, for this connection only
  Bytes32 listenersNonce;  // likewise
  Endpoint endpoint;
};

enum class Prover { kDialer, kListener };

// The proof that its maker has the key, good for this one connection and direction only: with the nonces of another
// connection, for another identity, or sent back to where it came from, it is another proof. With the endpoint in it a
// program that listens elsewhere and passes everything on cannot stand in between. docs/protocol.md has the layout.
Bytes32 proofOf(Prover prover, const Key& key, const Challenge& challenge);

}  // namespace corvane
