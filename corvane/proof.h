#pragma once

#include "corvane/key.h"

#include <vector>

namespace corvane {

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
