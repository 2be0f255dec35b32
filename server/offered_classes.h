#pragma once

#include "server/application.h"
#include "server/invitation_host.h"

#include <memory>

namespace aps {

// Registers the classes of this server's components and offers those that a peer may create. Once, before the first
// peer is served; the components share the application.
void registerClasses(const std::shared_ptr<Application>& application,
                     const std::shared_ptr<InvitationHost::Context>& invitations = nullptr);

}  // namespace aps
