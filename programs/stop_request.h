#pragma once

#include <functional>

namespace programs {

// Turns the user's or the system's request that the program end (Ctrl-C, SIGTERM, a console window that closes, the
// stop of a service of Windows) into one call of a handler. The handler runs at most once, on a thread that is not the
// program's own; a second one ends the process at once. One object per process, made before other threads start; the
// handler is not running any more when the destructor returns.
//
// SIGHUP is such a request as well, unless the program has another use for it: with a second handler it is one call of
// that each time, on the same thread, and the program goes on. Windows knows nothing like it.
class StopRequest {
 public:
  explicit StopRequest(std::function<void()> handler, std::function<void()> onHangup = {});
  ~StopRequest();
  StopRequest(const StopRequest&) = delete;
  StopRequest& operator=(const StopRequest&) = delete;
};

}  // namespace programs
