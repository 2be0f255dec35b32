#pragma once

#include "server/application.h"

#include <memory>

namespace aps {

// Registers the classes of this server's components and offers those that a peer may create. Once, before the first
// peer is served; the components share the application.
void registerClasses(const std::shared_ptr<Application>& application);

}  // namespace aps
