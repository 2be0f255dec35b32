#pragma once

#include <chrono>
#include <cstddef>

namespace printclient {

// What a peer of the page may take.
struct PageLimits {
  std::size_t connections = 48;
  std::size_t headerBytes = 8192;
  std::size_t bodyBytes = 1024;
  std::chrono::milliseconds request{10000};  // until a request has come whole
  std::chrono::milliseconds idle{30000};     // between two requests
  std::chrono::milliseconds send{20000};     // until a peer takes a piece of an answer
  std::chrono::milliseconds pause{100};      // between two events of a stream
  std::chrono::milliseconds sign{15000};     // a stream without events says that it is alive
};

}  // namespace printclient
