#pragma once

#include "corvane/net/stream.h"

#include <memory>
#include <utility>

namespace corvane {

// The two ends of a stream within this process: what one sends the other receives, with at most kLocalStreamBytes on
// the way, so that a sender waits for a receiver that does nothing, for as long as it does nothing. The one end may
// outlive the other.
std::pair<std::unique_ptr<Stream>, std::unique_ptr<Stream>> makeLocalStreams();
inline constexpr std::size_t kLocalStreamBytes = 256 * 1024;

}  // namespace corvane
