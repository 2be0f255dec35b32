#pragma once

#include <string>

namespace tests {

// A printer that only takes data, on a port of the loopback address ("socket://", as port 9100 of many printers).
class RawDevice {
 public:
  RawDevice();
  ~RawDevice();
  RawDevice(const RawDevice&) = delete;
  RawDevice& operator=(const RawDevice&) = delete;

  std::string uri() const;
  // All that the next sender sends until it ends; throws std::runtime_error when none comes within a minute.
  std::string next() const;

 private:
  int m_listener;
  int m_port = 0;
};

}  // namespace tests
