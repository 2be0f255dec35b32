#pragma once

#include "corvane/trust/key.h"

#include <string>

namespace aps {

// Why a peer that has proven who it is may not have a component of that class; empty when it may. A session's print
// client registers its session and nothing else; everything else is the monitor's.
std::wstring accessRefusal(const corvane::Identity& peer, const std::wstring& className);

// Why such a peer may not register that session as its own; empty when it may.
std::wstring sessionRefusal(const corvane::Identity& peer, int session);

}  // namespace aps
