#pragma once

#include "protocol/values.h"

#include <string>

// How somebody who was invited comes by the key of a session: the code of the invitation is the key of a TLS connection
// to the application server, on which kInvitationGuestClass asks kInvitationHostClass for the session's own key. It is
// given once.
namespace protocol {

enum class InvitationRequest {
  kRedeem = 25,  // from the guest
};

// Uses the invitation up, with whose code the connection was made.
struct Redeem {
  static constexpr InvitationRequest kNumber = InvitationRequest::kRedeem;

  static void layout(auto&, auto& wire) { wire(); }

  struct Answer {
    bool isGiven = true;
    std::wstring refusal;  // for a person; only when nothing is given
    std::wstring key;      // of the session: 64 hexadecimal digits

    static void layout(auto& self, auto& wire) {
      wire(self.isGiven);
      self.isGiven ? wire(self.key) : wire(self.refusal);
    }
  };
};

}  // namespace protocol
