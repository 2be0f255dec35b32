#pragma once

#include "corvane/trust/key.h"

#include <chrono>
#include <mutex>
#include <optional>
#include <string>

namespace aps {

// The invitations that are open: each lets one person have the key of one session, once and for ten minutes. They are
// files in the folder of keys, "session-5.invitation", as private as the keys, so that one process may make one that
// another process is asked for, and so that they outlive both. Safe from any thread; several processes may make them,
// and one redeems them.
class Invitations {
 public:
  static constexpr std::chrono::minutes kValid{10};

  explicit Invitations(const corvane::KeyFolder& keys) : m_keys(keys.folder()) {}

  // Who is invited: somebody new, for whom the session gets a new key so that the old one opens nothing any more; or
  // the one who has the key already, with a further device. A session without a key gets one in either case.
  enum class Guest { kNext, kSame };
  // Returns the code. An invitation of the session that is still open is void. Throws CS_Exception (3108).
  std::string make(int session, Guest guest) const;

  // The key of the connection on which the invitation of that session is redeemed; nothing when none is open.
  std::optional<corvane::Key> keyOf(int session) const;
  // Uses up the invitation whose key has that mark, and returns the session's key; nothing when it is not open any
  // more. Throws CS_Exception (3108) when the session's key cannot be read; the invitation is used up all the same.
  std::optional<corvane::Key> redeem(int session, const corvane::Bytes32& mark) const;

 private:
  std::string file(int session) const;
  // The code of the session's open invitation.
  std::optional<std::string> codeOf(int session) const;

  const corvane::KeyFolder m_keys;
  mutable std::mutex m_lock;  // held while one is redeemed
};

}  // namespace aps
