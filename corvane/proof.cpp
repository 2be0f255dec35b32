#include "corvane/proof.h"

#include <string_view>

namespace corvane {

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
