#pragma once

#include "corvane/components/component.h"
#include "server/invitations.h"
#include "server/log.h"

#include <memory>
#include <optional>

namespace aps {

// Gives a guest whose invitation is open the key of the session; see protocol/invitation.h. Its connection is encrypted
// and was made with the invitation's code.
class InvitationHost : public CS_Component {
 public:
  struct Context {
    Log& log;
    const std::optional<Invitations>& invitations;  // nothing where peers need no keys
  };
  explicit InvitationHost(std::shared_ptr<Context> context) : m_context(std::move(context)) {}

  bool processRequest(CS_InRequest& request) override;

 private:
  void redeem(CS_InRequest& request);

  const std::shared_ptr<Context> m_context;
};

}  // namespace aps
