#pragma once

#include "client/options.h"

#include <vector>

namespace printclient {

// Redeems the invitations. The server that the options name, or all that are known from invitations; none after saying
// why there is none. Each has the options with what is its own.
std::vector<Options> chooseServers(const Options& options);

}  // namespace printclient
