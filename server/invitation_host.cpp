#include "server/invitation_host.h"

#include "corvane/components/connection.h"
#include "corvane/components/in_request.h"
#include "corvane/records/exception.h"
#include "corvane/records/messages.h"
#include "programs/text.h"
#include "protocol/exchange.h"
#include "protocol/invitation.h"
#include "server/log_monitor.h"

#include <fmt/format.h>

namespace aps {

bool InvitationHost::processRequest(CS_InRequest& request) {
  if (request.number() != static_cast<int>(protocol::Redeem::kNumber)) return CS_Component::processRequest(request);
  return logThrown(
      m_context->log, [] { return "an invited person's request"; }, request.number(),
      [&] {
        redeem(request);
        return true;
      });
}

void InvitationHost::redeem(CS_InRequest& request) {
  protocol::read<protocol::Redeem>(request);
  const CS_RCPtr<CS_Connection> connection = getConnection();
  if (!connection) throw CS_Exception(corvane::kMissingObject, L"the guest has no connection");
  const auto& guest = connection->peerIdentity();
  protocol::Redeem::Answer answer{false, L"this connection was made with no invitation", {}};
  if (m_context->invitations && guest && guest->kind() == corvane::Identity::Kind::kInvitation) {
    const int session = guest->sessionNumber();
    const auto key = m_context->invitations->redeem(session, connection->peerKeyMark());
    answer.refusal = L"the invitation was used or replaced a moment ago; ask for another one";
    if (key) answer = {true, {}, corvane::toHex(key->bytes())};
    m_context->log.line(fmt::format("session {}: the invitation was {} from {}", session,
                                    key ? "redeemed" : "not open any more for a guest", connection->peerName()));
  }
  protocol::answer(request, answer);
}

}  // namespace aps
