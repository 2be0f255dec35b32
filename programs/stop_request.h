#pragma once

#include <functional>

namespace programs {

// Turns the user's or the system's wish that the program end (Ctrl-C, SIGTERM, a console window that closes) into one
// call of a handler. The handler runs at most once, on a thread that is not the program's own; a second wish ends the
// process at once. One object per process, made before other threads start; the handler is not running any more when
// the destructor returns.
class StopRequest {
 public:
  explicit StopRequest(std::function<void()> handler);
  ~StopRequest();
  StopRequest(const StopRequest&) = delete;
  StopRequest& operator=(const StopRequest&) = delete;
};

}  // namespace programs
