#pragma once

#include "corvane/trust/key.h"
#include "programs/invitation.h"

namespace printclient {

// Gives the invitation to its server, over TLS with its code as the key, and returns the key of the session. The
// invitation is used up then, whatever becomes of the answer. Waits for the server as long as a handshake and a request
// may take; throws std::runtime_error with the cause and what to do, for a person.
corvane::Key redeem(const programs::Invitation& invitation);

}  // namespace printclient
